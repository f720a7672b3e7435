// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/Field.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace {

using Geom::PhysicalSpace;
using Points = std::vector<PhysicalSpace::point>;

TEST(Extents, CountIsTheProductAndOneForRankZero) {
    EXPECT_EQ(Sheaf::Extents().elementCount(), 1U);
    EXPECT_EQ((Sheaf::Extents{3, 4, 5}.elementCount()), 60U);
    EXPECT_EQ((Sheaf::Extents{3, 0, 5}.elementCount()), 0U);
}

TEST(Extents, ProductBeyond64BitsIsNoNumber) {
    constexpr std::uint64_t huge = std::uint64_t{1} << 40;
    EXPECT_FALSE((Sheaf::Extents{huge, huge}.elementCount()));
    EXPECT_FALSE((Sheaf::Extents{huge, huge / 65536}.byteCount(8)));
    EXPECT_EQ((Sheaf::Extents{huge, huge, 0}.elementCount()), 0U);
}

TEST(Extents, FifthAxisIsRefused) {
    EXPECT_THROW((Sheaf::Extents{1, 1, 1, 1, 1}), Anchor::ModelError);
}

TEST(MemArray, ElementIsColumnIOfRowJ) {
    const auto array = Sheaf::makeArray(Sheaf::Extents{3, 2}, std::vector<int>{0, 1, 2, 10, 11, 12});
    const auto table = Anchor::dynamicCast<Sheaf::MemArray<2, int>>(array);
    ASSERT_TRUE(table);
    EXPECT_EQ((*table)({2, 0}), 2);
    EXPECT_EQ((*table)({0, 1}), 10);
    EXPECT_EQ((*table)({2, 1}), 12);
}

TEST(MemArray, ExtentsThatDoNotMatchTheElementsAreRefused) {
    EXPECT_THROW((void)Sheaf::makeArray(Sheaf::Extents{2, 2}, std::vector<int>(3)), Anchor::ModelError);
    EXPECT_THROW((void)Sheaf::makeArray(Sheaf::Extents(), std::vector<int>(1)), Anchor::ModelError);
    EXPECT_THROW((Sheaf::MemArray<1, int>({0}, nullptr)), Anchor::ModelError);
}

TEST(MemArray, EveryRankOfOneElementTypeIsATypedArrayOfIt) {
    for (const auto& extents :
         {Sheaf::Extents{4}, Sheaf::Extents{2, 2}, Sheaf::Extents{2, 2, 1}, Sheaf::Extents{1, 2, 2, 1}}) {
        const Anchor::StrongPtr<Sheaf::MemBase> array = Sheaf::makeArray(extents, std::vector<float>(4));
        EXPECT_TRUE(Anchor::dynamicCast<Sheaf::TypedArray<float>>(array));
        EXPECT_FALSE(Anchor::dynamicCast<Sheaf::TypedArray<double>>(array));
        EXPECT_EQ(array->extents(), extents);
        EXPECT_EQ(array->byteSize(), 16U);
    }
}

TEST(ElementTypes, EachIsFoundByTypeAndByName) {
    std::set<std::string> names;
    const auto check = [&](auto tag) {
        using T = typename decltype(tag)::type;
        const std::string name(Sheaf::ElementTraits<T>::name);
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_EQ(Sheaf::elementTypeName(typeid(T)), name);
        bool same = false;
        EXPECT_TRUE(Sheaf::visitElementName(
            name, [&](auto found) { same = std::is_same_v<typename decltype(found)::type, T>; }));
        EXPECT_TRUE(same) << name;
        return false;
    };
    EXPECT_FALSE(Sheaf::ElementTypes::visitFirst(check, [](auto) {}));
    EXPECT_EQ(names.size(), 17U);
    EXPECT_FALSE(Sheaf::visitElementType(typeid(std::string), [](auto) {}));
    EXPECT_FALSE(Sheaf::visitElementName("float16", [](auto) {}));
    EXPECT_TRUE(Sheaf::elementTypeName(typeid(bool)).empty());
}

TEST(UniformCartesianArray, ReachesFromTheFirstToTheLastPlace) {
    const Sheaf::UniformCartesianArray lattice({10, 20, 5}, {0.5, 2, 1}, {4, 3, 1});
    Geom::BoundingBox box;
    lattice.expand(box);
    EXPECT_EQ(box.lower(), (PhysicalSpace::point{10, 20, 5}));
    EXPECT_EQ(box.upper(), (PhysicalSpace::point{11.5, 24, 5}));
}

TEST(UniformCartesianArray, WithoutPlacesWidensNothing) {
    Geom::BoundingBox box;
    Sheaf::UniformCartesianArray({0, 0, 0}, {1, 1, 1}, {4, 0, 1}).expand(box);
    EXPECT_TRUE(box.empty());
}

/// Stands in for a file: counts how often its array is made.
class Counting final : public Sheaf::CachedCreator {
public:
    explicit Counting(Points points, Anchor::StrongPtr<Counting> sibling = {})
        : CachedCreator(typeid(PhysicalSpace::point), Sheaf::Extents{points.size()}),
          points_(std::move(points)),
          sibling_(std::move(sibling)) {}

    mutable int made = 0;

protected:
    [[nodiscard]] Made make() const override {
        ++made;
        Made all{Sheaf::makeArray(points_)};
        if (sibling_)
            all.siblings.push_back({sibling_, Sheaf::makeArray(sibling_->points_)});
        return all;
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return points_.size() * sizeof points_[0]; }

private:
    Points points_;
    Anchor::StrongPtr<Counting> sibling_;
};

/// Makes the array of another creator along, whose last other holder lets go of it in the meantime.
class Deserted final : public Sheaf::CachedCreator {
public:
    explicit Deserted(Anchor::StrongPtr<Counting>& sibling)
        : CachedCreator(typeid(PhysicalSpace::point), Sheaf::Extents{1}),
          sibling_(sibling) {}

protected:
    [[nodiscard]] Made make() const override {
        Made all{Sheaf::makeArray(Points(1)), {{sibling_, Sheaf::makeArray(Points(100))}}};
        std::thread([this] { sibling_ = nullptr; }).join();
        return all;
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return sizeof(PhysicalSpace::point); }

private:
    Anchor::StrongPtr<Counting>& sibling_;
};

/// The cache is shared by the whole process; each test gives it back with its usual limit.
struct CachedCreatorTest : ::testing::Test {
    ~CachedCreatorTest() override { Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit); }
};

TEST_F(CachedCreatorTest, CreateFalseMakesOnceAndCreateTrueMakesAnew) {
    const Counting creator(Points{{1, 2, 3}});
    EXPECT_FALSE(creator.available());
    const auto first = creator.create(false);
    EXPECT_EQ(creator.create(false), first);
    EXPECT_EQ(creator.available(), first);
    EXPECT_EQ(creator.made, 1);
    const auto second = creator.create(true);
    EXPECT_NE(second, first);
    EXPECT_EQ(creator.create(false), second);
    EXPECT_EQ(creator.made, 2);
}

TEST_F(CachedCreatorTest, DroppedArrayIsMadeAgain) {
    const Counting creator(Points(10));
    const std::uint64_t before = Anchor::Cache::MemCache().bytesInUse();
    (void)creator.create(false);
    EXPECT_EQ(Anchor::Cache::MemCache().bytesInUse(), before + 10 * sizeof(PhysicalSpace::point));
    Anchor::Cache::MemCache().setLimit(0);
    EXPECT_FALSE(creator.available());
    (void)creator.create(false);
    EXPECT_EQ(creator.made, 2);
}

TEST_F(CachedCreatorTest, SiblingMadeInTheSamePassIsNotMadeAgain) {
    const auto sibling = Anchor::makeStrong<Counting>(Points{{4, 5, 6}});
    const Counting creator(Points{{1, 2, 3}}, sibling);
    Anchor::Cache::MemCache().setLimit(0);
    const auto held = creator.create(false);
    EXPECT_TRUE(sibling->create(false));
    EXPECT_EQ(sibling->made, 0);
}

TEST_F(CachedCreatorTest, SiblingLetGoOfBeforeItsArrayIsPublishedLeavesNothingInTheCache) {
    const std::uint64_t before = Anchor::Cache::MemCache().bytesInUse();
    auto sibling = Anchor::makeStrong<Counting>(Points(100));
    const Deserted creator(sibling);
    EXPECT_TRUE(creator.create(false));
    EXPECT_FALSE(sibling);
    EXPECT_EQ(Anchor::Cache::MemCache().bytesInUse(), before + sizeof(PhysicalSpace::point));
}

TEST_F(CachedCreatorTest, EndOfTheCreatorEndsItsEntry) {
    const std::uint64_t before = Anchor::Cache::MemCache().bytesInUse();
    {
        const Counting creator(Points(10));
        (void)creator.create(false);
        EXPECT_GT(Anchor::Cache::MemCache().bytesInUse(), before);
    }
    EXPECT_EQ(Anchor::Cache::MemCache().bytesInUse(), before);
}

TEST_F(CachedCreatorTest, ReadingLargerThanTheLimitPeaksAtOneArrayOverWhatIsHeld) {
    Anchor::Cache::MemCache().setLimit(1000 * sizeof(PhysicalSpace::point));
    std::vector<std::unique_ptr<Counting>> creators;
    for (int fragment = 0; fragment < 20; ++fragment)
        creators.push_back(std::make_unique<Counting>(Points(400)));
    std::uint64_t peak = 0;
    for (const auto& creator : creators) {
        const auto held = creator->create(false);
        peak = std::max(peak, Anchor::Cache::MemCache().bytesInUse());
    }
    EXPECT_LE(peak, 1000 * sizeof(PhysicalSpace::point));
}

TEST(ExpandBBox, WidensByPointsAndLatticesAndByNothingElse) {
    Geom::BoundingBox box;
    Sheaf::ExpandBBox(box, Sheaf::HeldCreator(Sheaf::makeArray(std::vector<double>{1, 2, 3})), true);
    Sheaf::ExpandBBox(box, Sheaf::HeldCreator(Sheaf::makeArray(std::vector<Geom::FixedArray<double, 3>>(2))),
                      true);
    EXPECT_TRUE(box.empty());
    Sheaf::ExpandBBox(box, Sheaf::HeldCreator(Sheaf::makeArray(Points{{1, 2, 3}, {-1, 5, 0}})), true);
    EXPECT_EQ(box.lower(), (PhysicalSpace::point{-1, 2, 0}));
    Sheaf::ExpandBBox(
        box,
        Sheaf::HeldCreator(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
            PhysicalSpace::point{0, 0, 0}, PhysicalSpace::vector{10, 1, 1}, Sheaf::MultiIndex<3>{3, 1, 1})),
        false);
    EXPECT_EQ(box.upper(), (PhysicalSpace::point{20, 5, 3}));
}

TEST(ExpandBBox, ArraysWithoutElementsLeaveTheBoxAsItIs) {
    const auto lattice = [](const Sheaf::MultiIndex<3>& extents) {
        return Sheaf::HeldCreator(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
            PhysicalSpace::point{7, 8, 9}, PhysicalSpace::vector{1, 1, 1}, extents));
    };
    Geom::BoundingBox box({1, 2, 3}, {4, 5, 6});
    Sheaf::ExpandBBox(box, Sheaf::HeldCreator(Sheaf::makeArray(Points())), true);
    for (const Sheaf::MultiIndex<3>& extents : {Sheaf::MultiIndex<3>{0, 2, 1}, {2, 0, 1}, {2, 2, 0}}) {
        const Sheaf::HeldCreator creator = lattice(extents);
        // Once by the array, once by what is remembered of it.
        Sheaf::ExpandBBox(box, creator, true);
        Sheaf::ExpandBBox(box, creator, true);
    }
    EXPECT_EQ(box.lower(), (PhysicalSpace::point{1, 2, 3}));
    EXPECT_EQ(box.upper(), (PhysicalSpace::point{4, 5, 6}));
}

TEST(BoundsOf, AsksEvery65536PointsWhetherToGoOn) {
    const Sheaf::HeldCreator creator(Sheaf::makeArray(Points(2 * 65536 + 1)));
    int asked = 0;
    EXPECT_TRUE(Sheaf::boundsOf(creator, true, [&] { ++asked; }));
    EXPECT_EQ(asked, 3);
    struct Stop {};
    EXPECT_THROW((void)Sheaf::boundsOf(creator, true, [] { throw Stop(); }), Stop);
}

TEST(BoundsOf, IsNullForArraysWithoutCoordinatesOnly) {
    EXPECT_FALSE(Sheaf::boundsOf(Sheaf::HeldCreator(Sheaf::makeArray(std::vector<double>{1})), true));
    const auto ofNone = Sheaf::boundsOf(Sheaf::HeldCreator(Sheaf::makeArray(Points())), true);
    ASSERT_TRUE(ofNone);
    EXPECT_TRUE(ofNone->empty());
    const auto ofOne = Sheaf::boundsOf(Sheaf::HeldCreator(Sheaf::makeArray(Points{{1, 2, 3}})), true);
    ASSERT_TRUE(ofOne);
    EXPECT_EQ(ofOne->upper(), (PhysicalSpace::point{1, 2, 3}));
}

TEST(ExpandBBox, WithoutPermissionMakesNothingButRemembers) {
    const Counting creator(Points{{1, 2, 3}});
    Geom::BoundingBox box;
    Sheaf::ExpandBBox(box, creator, false);
    EXPECT_TRUE(box.empty());
    EXPECT_EQ(creator.made, 0);
    Sheaf::ExpandBBox(box, creator, true);
    EXPECT_EQ(creator.made, 1);
    Anchor::Cache::MemCache().forget(&creator);
    Geom::BoundingBox again;
    Sheaf::ExpandBBox(again, creator, false);
    EXPECT_EQ(again.upper(), (PhysicalSpace::point{1, 2, 3}));
    EXPECT_EQ(creator.made, 1);
}

TEST(ExpandBBox, SeesWhatTheHostHasEditedInMemoryInBetween) {
    const auto array = Sheaf::makeArray(Points{{1, 2, 3}});
    const Sheaf::HeldCreator creator(array);
    Geom::BoundingBox before;
    EXPECT_TRUE(Sheaf::ExpandBBox(before, creator, true));
    array->base_vector()[0] = {500000, 2, 3};
    Geom::BoundingBox after;
    EXPECT_TRUE(Sheaf::ExpandBBox(after, creator, true));
    EXPECT_EQ(after.lower(), (PhysicalSpace::point{500000, 2, 3}));
}

TEST(ExpandBBox, TellsWhereTheCoordinatesStayUnknown) {
    const Counting creator(Points{{1, 2, 3}});
    Geom::BoundingBox box;
    EXPECT_FALSE(Sheaf::ExpandBBox(box, creator, false));
    EXPECT_TRUE(Sheaf::ExpandBBox(box, creator, true));
    EXPECT_TRUE(Sheaf::ExpandBBox(box, Sheaf::HeldCreator(Sheaf::makeArray(std::vector<double>(3))), false));
}

TEST(ExpandBoundingBox, JoinsAllFragmentsOfAField) {
    Sheaf::Field field(typeid(PhysicalSpace::point));
    field.addFragment(Anchor::makeStrong<Sheaf::FragmentID>("a"),
                      Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Points{{1, 1, 1}})));
    field.addFragment(Anchor::makeStrong<Sheaf::FragmentID>("b"),
                      Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Points{{-4, 9, 2}})));
    Geom::BoundingBox box;
    Sheaf::expandBoundingBox(field, box);
    EXPECT_EQ(box.lower(), (PhysicalSpace::point{-4, 1, 1}));
    EXPECT_EQ(box.upper(), (PhysicalSpace::point{1, 9, 2}));
}

template <class T>
concept MakesAnArray = requires(std::vector<T> elements) {
    Sheaf::makeArray(elements);
};

TEST(MakeArray, TakesEveryElementTypeAndNoOther) {
    EXPECT_TRUE(MakesAnArray<PhysicalSpace::point>);
    EXPECT_TRUE(MakesAnArray<unsigned long long>);
    EXPECT_FALSE(MakesAnArray<bool>);
    EXPECT_FALSE(MakesAnArray<unsigned long>);
    EXPECT_FALSE(MakesAnArray<std::string>);
}

TEST(GetSize, IsKnownWithoutMakingTheArray) {
    const Counting creator(Points(7));
    EXPECT_EQ(Sheaf::getSize(creator), (Sheaf::Extents{7}));
    EXPECT_EQ(creator.made, 0);
}

TEST(HeldCreator, NullArrayIsRefused) {
    EXPECT_THROW(Sheaf::HeldCreator(nullptr), Anchor::ModelError);
}

} // namespace
