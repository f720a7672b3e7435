// SPDX-License-Identifier: Apache-2.0
#include "ascii/CheckType.hpp"

#include "anchor/Error.hpp"
#include "ascii/AsciiBundle.hpp"
#include "support/ConsoleCapture.hpp"

#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ExportLib::CheckType;
using Geom::PhysicalSpace;
using Support::heldArray;
using Support::heldLattice;
using Support::namesIn;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Creator = Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>;

/// One field of one fragment, and the positions that belong to it.
struct Writers : ::testing::Test {
    Writers() : fragment(Anchor::makeStrong<Sheaf::FragmentID>("f")) {}

    void setPositions(Creator positions) {
        representation = Anchor::makeStrong<Sheaf::Representation>();
        representation->makeField("Positions", typeid(PhysicalSpace::point))
            ->addFragment(fragment, std::move(positions));
    }

    template <class T>
    void setField(Creator creator) {
        data = std::move(creator);
        field = Anchor::makeStrong<Sheaf::Field>(typeid(T));
    }

    CheckType check(const std::string& stem) {
        return {data,
                *field,
                *representation,
                folder.path() / stem,
                fragment,
                cellTypes,
                filter,
                precision,
                append,
                false,
                true,
                {}};
    }

    /// Dispatches the fragment and gives the content of the file.
    std::string dispatched(const std::string& stem, const std::string& file) {
        CheckType c = check(stem);
        ExportLib::dispatch(c);
        EXPECT_TRUE(c.written);
        EXPECT_EQ(c.written ? c.written->path : "", folder / file);
        const std::string content = Support::readBytes(folder / file);
        EXPECT_FALSE(c.written && c.written->failed);
        return content;
    }

    template <class T>
    std::string listOf(std::vector<T> elements) {
        setField<T>(Support::held(std::move(elements)));
        return dispatched("list", "list.asc");
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::FragmentID> fragment;
    Creator data;
    Anchor::StrongPtr<Sheaf::Field> field;
    Anchor::StrongPtr<Sheaf::Representation> representation = Anchor::makeStrong<Sheaf::Representation>();
    Geom::MultiRange<double> cellTypes;
    std::string filter = "CellType";
    unsigned int precision = 0;
    bool append = false;
};

TEST(CheckTypeAggregate, MembersStandInTheOrderOfTheContract) {
    static_assert(std::is_aggregate_v<CheckType>);
    Creator data;
    const Sheaf::Field field(typeid(int));
    const Sheaf::Representation representation;
    const Anchor::StrongPtr<Sheaf::FragmentID> fragment;
    const Geom::MultiRange<double> cellTypes;
    const std::string name = "n";
    const unsigned int precision = 3;
    const CheckType c{data, field, representation, "path", fragment, cellTypes, name, precision, true, false};
    EXPECT_EQ(&c.data, &data);
    EXPECT_EQ(&c.field, &field);
    EXPECT_EQ(&c.representation, &representation);
    EXPECT_EQ(c.outputPath, "path");
    EXPECT_EQ(&c.fragment, &fragment);
    EXPECT_EQ(&c.cellTypeFilter, &cellTypes);
    EXPECT_EQ(&c.cellTypeFieldName, &name);
    EXPECT_EQ(&c.precision, &precision);
    EXPECT_TRUE(c.append);
    EXPECT_FALSE(c.tileSuffix);
    EXPECT_TRUE(c.flushLines);
    EXPECT_FALSE(c.written);
}

TEST_F(Writers, BreakIsFalseForAnotherElementTypeAndWritesNothing) {
    setField<float>(Support::held(std::vector<float>{1}));
    CheckType c = check("x");
    EXPECT_FALSE(CheckType::exec<double>::Break(c));
    EXPECT_FALSE(CheckType::exec<PhysicalSpace::point>::Break(c));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_TRUE(CheckType::exec<float>::Break(c));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("x.asc"));
}

TEST_F(Writers, NullDataOfTheRightTypeIsTakenWithoutAFile) {
    setField<float>(nullptr);
    CheckType c = check("x");
    EXPECT_FALSE(CheckType::exec<double>::Break(c));
    EXPECT_TRUE(CheckType::exec<float>::Break(c));
    EXPECT_FALSE(c.written);
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(Writers, ArrayOfAnotherElementTypeThanItsFieldIsTakenWithoutAFile) {
    setField<float>(Support::held(std::vector<double>{1}));
    CheckType c = check("x");
    EXPECT_TRUE(CheckType::exec<float>::Break(c));
    EXPECT_FALSE(c.written);
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(Writers, FieldOfATypeWithoutWriterYieldsNoFileAndNoMessage) {
    const auto write = [&](const Creator& creator) {
        data = creator;
        field = Anchor::makeStrong<Sheaf::Field>(creator->elementType());
        CheckType c = check("x");
        ExportLib::dispatch(c);
    };
    write(Support::held(std::vector<signed char>{1}));
    write(Support::held(std::vector<short>{1}));
    write(Support::held(std::vector<long long>{1}));
    write(Support::held(std::vector<Sheaf::Element::FixedDoubles>(1)));
    // std::uint64_t is "unsigned long" on Linux, and no element type.
    field = Anchor::makeStrong<Sheaf::Field>(typeid(unsigned long));
    CheckType c = check("x");
    ExportLib::dispatch(c);
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(Writers, EveryElementTypeIsWrittenAsAListByteForByte) {
    EXPECT_EQ(listOf<float>({1.5F, -0.1F}), " 1.500000\n -0.100000\n");
    EXPECT_EQ(listOf<double>({1.5, 1e10}), " 1.500000\n 10000000000.000000\n");
    EXPECT_EQ(listOf<long double>({1.5L}), " 1.500000\n");
    EXPECT_EQ(listOf<unsigned char>({0, 65, 255}), " 0\n 65\n 255\n");
    EXPECT_EQ(listOf<unsigned short>({65535}), " 65535\n");
    EXPECT_EQ(listOf<unsigned int>({4294967295U}), " 4294967295\n");
    EXPECT_EQ(listOf<unsigned long long>({18446744073709551615ULL}), " 18446744073709551615\n");
    EXPECT_EQ(listOf<int>({-7}), " -7\n");
    EXPECT_EQ(listOf<PhysicalSpace::point>({{1, 2, 3}, {4, 5, 6}}),
              " 1.000000 2.000000 3.000000\n 4.000000 5.000000 6.000000\n");
    EXPECT_EQ(listOf<PhysicalSpace::vector>({{1, 2, 3}}), " 1.000000 2.000000 3.000000\n");
    EXPECT_EQ(listOf<Sheaf::Element::Color>({{{{255, 0, 7}}}, {{{1, 2, 3}}}}), " 255 0 7\n 1 2 3\n");
    EXPECT_EQ(listOf<Sheaf::Element::FloatBivector>({{0.1F, 2, 3}}), " 0.100000 2.000000 3.000000\n");
    EXPECT_EQ(listOf<PhysicalSpace::bivector>({{1, 2, 3}}), " 1.000000 2.000000 3.000000\n");
}

TEST_F(Writers, ColourFieldIsFoundUnderBothNamesOfItsType) {
    using Color = Geom::DomainVector<Geom::Vector<unsigned char, 3>, Geom::RGB, unsigned char>;
    setField<Color>(Support::held(std::vector<Color>{{{{9, 8, 7}}}}));
    CheckType c = check("x");
    EXPECT_TRUE(CheckType::exec<Color>::Break(c));
    EXPECT_EQ(Support::readBytes(folder / "x.asc"), " 9 8 7\n");
}

TEST_F(Writers, PointIsALineOfBlankAndCoordinatesWithNothingAfterIt) {
    EXPECT_EQ(listOf<PhysicalSpace::point>({{1.5, -2, 0}}), " 1.500000 -2.000000 0.000000\n");
}

TEST_F(Writers, ColourIsALineOfBlanksAndDecimalBytes) {
    EXPECT_EQ(listOf<Sheaf::Element::Color>({{{{255, 0, 7}}}}), " 255 0 7\n");
}

TEST_F(Writers, TableOfTwoByTwoPointsIsTwoLinesWithABlankBehindEveryElement) {
    setField<PhysicalSpace::point>(heldArray({2, 2}, Points{{1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1.000000 0.000000 0.000000  2.000000 0.000000 0.000000 \n"
                                        " 3.000000 0.000000 0.000000  4.000000 0.000000 0.000000 \n");
}

TEST_F(Writers, TableHasColumnsAlongTheFirstExtent) {
    setField<int>(heldArray<int>({3, 2}, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1  2  3 \n 4  5  6 \n");
    CheckType c = check("x");
    ExportLib::dispatch(c);
    EXPECT_EQ(c.written->items, 6U);
    EXPECT_EQ(c.written->bytes, 20U);
}

TEST_F(Writers, EveryElementTypeIsWrittenAsATable) {
    const auto tableOf = [&](auto a, auto b) {
        using T = decltype(a);
        setField<T>(heldArray<T>({1, 2}, {a, b}));
        return dispatched("x", "x.asc");
    };
    EXPECT_EQ(tableOf(1.5F, 2.5F), " 1.500000 \n 2.500000 \n");
    EXPECT_EQ(tableOf(1.5, 2.5), " 1.500000 \n 2.500000 \n");
    EXPECT_EQ(tableOf(1.5L, 2.5L), " 1.500000 \n 2.500000 \n");
    EXPECT_EQ(tableOf(static_cast<unsigned char>(65), static_cast<unsigned char>(66)), " 65 \n 66 \n");
    EXPECT_EQ(tableOf(static_cast<unsigned short>(1), static_cast<unsigned short>(2)), " 1 \n 2 \n");
    EXPECT_EQ(tableOf(1U, 2U), " 1 \n 2 \n");
    EXPECT_EQ(tableOf(1ULL, 2ULL), " 1 \n 2 \n");
    EXPECT_EQ(tableOf(-1, 2), " -1 \n 2 \n");
    EXPECT_EQ(tableOf(PhysicalSpace::vector{1, 2, 3}, PhysicalSpace::vector{}),
              " 1.000000 2.000000 3.000000 \n 0.000000 0.000000 0.000000 \n");
    EXPECT_EQ(tableOf(PhysicalSpace::bivector{1, 2, 3}, PhysicalSpace::bivector{}),
              " 1.000000 2.000000 3.000000 \n 0.000000 0.000000 0.000000 \n");
    EXPECT_EQ(tableOf(Sheaf::Element::FloatBivector{1, 2, 3}, Sheaf::Element::FloatBivector{}),
              " 1.000000 2.000000 3.000000 \n 0.000000 0.000000 0.000000 \n");
    EXPECT_EQ(tableOf(Sheaf::Element::Color{{{1, 2, 3}}}, Sheaf::Element::Color{}), " 1 2 3 \n 0 0 0 \n");
}

TEST_F(Writers, ArraysOfThreeAndFourAxesAreListsInStorageOrder) {
    setField<int>(heldArray<int>({2, 1, 2}, {1, 2, 3, 4}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1\n 2\n 3\n 4\n");
    setField<int>(heldArray<int>({1, 2, 1, 2}, {1, 2, 3, 4}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1\n 2\n 3\n 4\n");
}

TEST_F(Writers, EmptyArrayMakesAnEmptyFile) {
    EXPECT_EQ(listOf<double>({}), "");
    setField<double>(heldArray<double>({3, 0}, {}));
    EXPECT_EQ(dispatched("x", "x.asc"), "");
}

TEST_F(Writers, RowsWithoutColumnsAreEmptyLines) {
    setField<double>(heldArray<double>({0, 3}, {}));
    EXPECT_EQ(dispatched("x", "x.asc"), "\n\n\n");
    setField<PhysicalSpace::point>(heldArray<PhysicalSpace::point>({0, 1}, {}));
    EXPECT_EQ(dispatched("x", "x.asc"), "\n");
}

TEST_F(Writers, PrecisionDoesNotReachListsAndTables) {
    precision = 2;
    EXPECT_EQ(listOf<double>({1.25}), " 1.250000\n");
    EXPECT_EQ(listOf<unsigned char>({65}), " 65\n");
    EXPECT_EQ(listOf<PhysicalSpace::point>({{1, 2, 3}}), " 1.000000 2.000000 3.000000\n");
    setField<unsigned char>(heldArray<unsigned char>({1, 1}, {65}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 65 \n");
}

TEST_F(Writers, StemPositionsIsReplaced) {
    setField<PhysicalSpace::point>(Support::held(Points{{1, 2, 3}}));
    EXPECT_EQ(dispatched("Positions", "XYZ_Coordinates.asc"), " 1.000000 2.000000 3.000000\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("XYZ_Coordinates.asc"));
}

TEST_F(Writers, StemEndsAtTheLastDotWhenItIsComparedWithPositions) {
    setField<int>(Support::held(std::vector<int>{1}));
    EXPECT_EQ(dispatched("Positions.7", "XYZ_Coordinates.asc"), " 1\n");
    EXPECT_EQ(dispatched("Positions.7.1", "Positions.7.1.asc"), " 1\n");
    EXPECT_EQ(dispatched("positions", "positions.asc"), " 1\n");
    EXPECT_EQ(dispatched("Positions2", "Positions2.asc"), " 1\n");
}

TEST_F(Writers, ExtensionIsAppendedAndNeverReplaced) {
    setField<int>(Support::held(std::vector<int>{1}));
    EXPECT_EQ(dispatched("tile.1", "tile.1.asc"), " 1\n");
    EXPECT_EQ(dispatched("tile.asc", "tile.asc.asc"), " 1\n");
    EXPECT_EQ(dispatched("Höhe 高さ", "Höhe 高さ.asc"), " 1\n");
}

TEST_F(Writers, FileIsTruncatedOrAppendedToAsAskedFor) {
    EXPECT_EQ(listOf<int>({1}), " 1\n");
    EXPECT_EQ(listOf<int>({2}), " 2\n");
    append = true;
    EXPECT_EQ(listOf<int>({3}), " 2\n 3\n");
}

TEST_F(Writers, FileThatCannotBeOpenedOrWrittenShowsInTheRecordOnly) {
    std::filesystem::create_directory(folder.path() / "x.asc");
    setField<int>(Support::held(std::vector<int>{1, 2}));
    CheckType c = check("x");
    EXPECT_TRUE(CheckType::exec<int>::Break(c));
    ASSERT_TRUE(c.written);
    EXPECT_TRUE(c.written->failed);
    EXPECT_EQ(c.written->bytes, 6U);
    EXPECT_THAT(console.messages, IsEmpty());

    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    std::filesystem::create_symlink("/dev/full", folder.path() / "full.asc");
    CheckType full = check("full");
    EXPECT_TRUE(CheckType::exec<int>::Break(full));
    ASSERT_TRUE(full.written);
    EXPECT_TRUE(full.written->failed);
}

TEST_F(Writers, PointFieldOnAUniformGridYieldsOnlyTheConsoleMessage) {
    const Creator lattice = heldLattice({0, 0, 0}, {1, 1, 1}, {2, 1, 1});
    setPositions(lattice);
    setField<PhysicalSpace::point>(lattice);
    CheckType c = check("x");
    EXPECT_TRUE(CheckType::exec<PhysicalSpace::point>::Break(c));
    EXPECT_FALSE(c.written);
    EXPECT_THAT(console.messages, ElementsAre("Can only convert scalar fields"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(Writers, EveryTypeOfComponentsOnAUniformGridYieldsOnlyTheMessage) {
    setPositions(heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}));
    const auto write = [&](auto element) {
        using T = decltype(element);
        setField<T>(heldArray<T>({1, 1, 1}, {element}));
        CheckType c = check("x");
        EXPECT_TRUE(CheckType::exec<T>::Break(c));
        EXPECT_FALSE(c.written);
    };
    write(PhysicalSpace::vector{});
    write(PhysicalSpace::bivector{});
    write(Sheaf::Element::FloatBivector{});
    write(Sheaf::Element::Color{});
    EXPECT_THAT(console.messages, ::testing::SizeIs(4));
    EXPECT_THAT(console.messages, ::testing::Each("Can only convert scalar fields"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(Writers, FieldOfAnotherFragmentThanThePositionsIsAList) {
    setPositions(heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}));
    fragment = Anchor::makeStrong<Sheaf::FragmentID>("elsewhere");
    EXPECT_EQ(listOf<int>({1}), " 1\n");
}

/// A creator whose promise and whose array differ.
class Liar final : public Sheaf::CreativeArrayBase {
public:
    Liar(Anchor::StrongPtr<Sheaf::MemBase> array, std::optional<Sheaf::Extents> promised)
        : array_(std::move(array)),
          promised_(promised) {}
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override { return array_; }
    [[nodiscard]] const std::type_info& elementType() const noexcept override { return typeid(int); }
    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return promised_; }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return array_; }

private:
    Anchor::StrongPtr<Sheaf::MemBase> array_;
    std::optional<Sheaf::Extents> promised_;
};

Anchor::StrongPtr<Sheaf::MemBase> fourInts(const Sheaf::Extents& extents) {
    return Sheaf::makeArray(extents, std::vector<int>{1, 2, 3, 4});
}

TEST_F(Writers, ArrayThatIsNotTheTableItsCreatorPromisedLeavesTheFileEmpty) {
    const Sheaf::Extents promised{2, 3};
    for (const Sheaf::Extents& actual : {Sheaf::Extents{2, 2}, Sheaf::Extents{1, 4}, Sheaf::Extents{4},
                                         Sheaf::Extents{2, 2, 1}, Sheaf::Extents{1, 1, 2, 2}}) {
        setField<int>(Anchor::makeStrong<Liar>(fourInts(actual), promised));
        EXPECT_EQ(dispatched("x", "x.asc"), "");
    }
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(Writers, ArrayWithMoreThanItsCreatorPromisedIsWrittenAsPromised) {
    setField<int>(Anchor::makeStrong<Liar>(fourInts({2, 2}), Sheaf::Extents{1, 2}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1 \n 3 \n");
}

TEST_F(Writers, ArrayOfAnyAxesIsAListWhereNoTableIsPromised) {
    setField<int>(Anchor::makeStrong<Liar>(fourInts({2, 2}), Sheaf::Extents{9}));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1\n 2\n 3\n 4\n");
    setField<int>(Anchor::makeStrong<Liar>(fourInts({2, 2}), std::nullopt));
    EXPECT_EQ(dispatched("x", "x.asc"), " 1\n 2\n 3\n 4\n");
}

TEST_F(Writers, ArrayWhoseMemoryHasShrunkIsNotReadBeyondItsEnd) {
    const auto array = Sheaf::makeArray({2, 2}, std::vector<int>{1, 2, 3, 4});
    array->base_vector().resize(1);
    setField<int>(Anchor::makeStrong<Liar>(array, Sheaf::Extents{2, 2}));
    EXPECT_EQ(dispatched("x", "x.asc"), "");
}

/// A creator of an array that exists but cannot be read.
class Damaged final : public Sheaf::CreativeArrayBase {
public:
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
        throw Anchor::FormatError("file: array: damaged");
    }
    [[nodiscard]] const std::type_info& elementType() const noexcept override { return typeid(int); }
    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return Sheaf::Extents{1}; }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }
};

TEST_F(Writers, ExceptionOfACreatorPassesThroughBeforeAFileIsOpened) {
    setField<int>(Anchor::makeStrong<Damaged>());
    CheckType c = check("x");
    EXPECT_THROW(ExportLib::dispatch(c), Anchor::FormatError);
    EXPECT_FALSE(c.written);
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

} // namespace
