// SPDX-License-Identifier: Apache-2.0
#include "capture/captureArray.hpp"

#include "anchor/Error.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"

#include <gtest/gtest.h>

namespace {

using ExportLib::captureArray;
using Geom::PhysicalSpace;
using Support::held;
using Support::Points;

/// A creator whose data cannot be had: none at all, or an error.
class Missing final : public Sheaf::CreativeArrayBase {
public:
    explicit Missing(bool fails) : fails_(fails) {}
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
        if (fails_)
            throw Anchor::FormatError("gone.laz: cut short");
        return nullptr;
    }
    [[nodiscard]] const std::type_info& elementType() const noexcept override {
        return typeid(PhysicalSpace::point);
    }
    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return std::nullopt; }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }

private:
    bool fails_;
};

TEST(CaptureArray, EmptyArrayAppendsNothing) {
    Points out{{1, 2, 3}};
    captureArray(out, held(Points()));
    EXPECT_EQ(out, (Points{{1, 2, 3}}));
}

TEST(CaptureArray, TwoFragmentsOfThreeAndFiveGiveEightFirstFragmentFirst) {
    Points first{{1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    Points second{{4, 0, 0}, {5, 0, 0}, {6, 0, 0}, {7, 0, 0}, {8, 0, 0}};
    Points out;
    captureArray(out, held(first));
    captureArray(out, held(second));
    Points expected = first;
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(out, expected);
}

template <class T>
concept Capturable = requires(std::vector<T>& out) {
    ExportLib::captureArray(out, Anchor::StrongPtr<Sheaf::CreativeArrayBase>());
};

TEST(CaptureArray, TakesEveryElementTypeAndNoOther) {
    std::vector<float> values;
    ExportLib::captureArray(values, Support::held(std::vector<float>{1.5F, 2.5F}));
    EXPECT_EQ(values, (std::vector<float>{1.5F, 2.5F}));
    EXPECT_TRUE(Capturable<long double>);
    EXPECT_FALSE(Capturable<bool>);
    EXPECT_FALSE(Capturable<std::string>);
}

TEST(CaptureArray, FixedArraysInsteadOfPointsAreNotCaptured) {
    Points out;
    captureArray(out, held(std::vector<Geom::FixedArray<double, 3>>(4)));
    EXPECT_TRUE(out.empty());
}

TEST(CaptureArray, IntensitiesOf32BitsAreNotCaptured) {
    std::vector<unsigned short> out;
    captureArray(out, held(std::vector<unsigned int>{1, 2, 3}));
    captureArray(out, held(std::vector<short>{1, 2, 3}));
    EXPECT_TRUE(out.empty());
    captureArray(out, held(std::vector<unsigned short>{1, 65535}));
    EXPECT_EQ(out, (std::vector<unsigned short>{1, 65535}));
}

TEST(CaptureArray, ArrayOfRankThreeIsCapturedInStorageOrder) {
    std::vector<unsigned short> elements{0, 1, 2, 3, 4, 5, 6, 7};
    const Sheaf::Field::Creator creator =
        Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Sheaf::Extents{2, 2, 2}, elements));
    std::vector<unsigned short> out;
    captureArray(out, creator);
    EXPECT_EQ(out, elements);
}

TEST(CaptureArray, UniformLatticeIsNotCaptured) {
    const Sheaf::Field::Creator creator =
        Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
            PhysicalSpace::point{}, PhysicalSpace::vector{1, 1, 1}, Sheaf::MultiIndex<3>{2, 2, 1}));
    Points out;
    captureArray(out, creator);
    EXPECT_TRUE(out.empty());
}

TEST(CaptureArray, NullCreatorAndMissingDataAppendNothing) {
    Points out;
    captureArray(out, Sheaf::Field::Creator());
    captureArray(out, Sheaf::Field::Creator(Anchor::makeStrong<Missing>(false)));
    EXPECT_TRUE(out.empty());
}

TEST(CaptureArray, CreatorThatFailsThrowsAndLeavesTheListAsItWas) {
    Points out{{1, 2, 3}};
    EXPECT_THROW(captureArray(out, Sheaf::Field::Creator(Anchor::makeStrong<Missing>(true))),
                 Anchor::FormatError);
    EXPECT_EQ(out, (Points{{1, 2, 3}}));
}

} // namespace
