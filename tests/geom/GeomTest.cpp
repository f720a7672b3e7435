// SPDX-License-Identifier: Apache-2.0
#include "geom/BoundingBox.hpp"
#include "geom/Color.hpp"
#include "geom/FixedArray.hpp"
#include "geom/MultiRange.hpp"

#include <limits>
#include <type_traits>
#include <typeinfo>

#include <gtest/gtest.h>

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(BoundingBox, NewIsEmptyAndTheFirstPointMakesIt) {
    Geom::BoundingBox box;
    EXPECT_TRUE(box.empty());
    box.expand(Geom::PhysicalSpace::point{-1, 2, -3});
    EXPECT_FALSE(box.empty());
    EXPECT_EQ(box.lower(), (Geom::PhysicalSpace::point{-1, 2, -3}));
    EXPECT_EQ(box.upper(), (Geom::PhysicalSpace::point{-1, 2, -3}));
}

TEST(BoundingBox, CoordinateThatIsNoNumberWidensNothing) {
    Geom::BoundingBox box({0, 0, 0}, {1, 1, 1});
    box.expand(Geom::PhysicalSpace::point{nan, 5, nan});
    EXPECT_EQ(box.lower(), (Geom::PhysicalSpace::point{0, 0, 0}));
    EXPECT_EQ(box.upper(), (Geom::PhysicalSpace::point{1, 5, 1}));
}

TEST(BoundingBox, WidenedByAnotherHoldsBoth) {
    Geom::BoundingBox box({0, 0, 0}, {1, 1, 1});
    box.expand(Geom::BoundingBox({-1, 0.5, 0}, {0.5, 3, 1}));
    EXPECT_EQ(box.lower(), (Geom::PhysicalSpace::point{-1, 0, 0}));
    EXPECT_EQ(box.upper(), (Geom::PhysicalSpace::point{1, 3, 1}));
}

TEST(BoundingBox, WidenedByAnEmptyOneStaysAsItWas) {
    Geom::BoundingBox box({0, 0, 0}, {1, 1, 1});
    box.expand(Geom::BoundingBox());
    EXPECT_EQ(box.lower(), (Geom::PhysicalSpace::point{0, 0, 0}));
    EXPECT_EQ(box.upper(), (Geom::PhysicalSpace::point{1, 1, 1}));
}

TEST(MultiRange, EmptyHoldsNothing) {
    const Geom::MultiRange<double> ranges;
    EXPECT_FALSE(ranges.contains(0.0));
    EXPECT_FALSE(ranges.contains(nan));
}

TEST(MultiRange, BothEndsAndTheToleranceBelongToARange) {
    Geom::MultiRange<double> ranges;
    ranges.add(3, 3);
    EXPECT_TRUE(ranges.contains(3.0));
    EXPECT_TRUE(ranges.contains(3.0 + 5e-10));
    EXPECT_TRUE(ranges.contains(3.0 - 5e-10));
    EXPECT_FALSE(ranges.contains(3.0 + 2e-9));
    Geom::MultiRange<double> close;
    close.add(2.9999999995, 2.9999999995);
    EXPECT_TRUE(close.contains(3.0));
}

TEST(MultiRange, ValueBetweenTwoRangesIsRejected) {
    Geom::MultiRange<double> ranges;
    ranges.add(5, 6);
    ranges.add(1, 2);
    EXPECT_TRUE(ranges.contains(1.5));
    EXPECT_TRUE(ranges.contains(5.5));
    EXPECT_FALSE(ranges.contains(3.0));
    EXPECT_FALSE(ranges.contains(0.0));
    EXPECT_FALSE(ranges.contains(7.0));
    EXPECT_FALSE(ranges.contains(nan));
}

TEST(ElementTypes, ColorsHaveOneTypeUnderBothNames) {
    using Long = Geom::DomainVector<Geom::Vector<unsigned char, 3>, Geom::RGB, unsigned char>;
    static_assert(std::is_same_v<Long, Geom::RGB<unsigned char>>);
    EXPECT_TRUE(typeid(Long) == typeid(Geom::RGB<unsigned char>));
}

TEST(ElementTypes, PointVectorBivectorAndFixedArrayAreFourTypes) {
    using Space = Geom::PhysicalSpace;
    EXPECT_FALSE(typeid(Space::point) == typeid(Space::vector));
    EXPECT_FALSE(typeid(Space::point) == typeid(Space::bivector));
    EXPECT_FALSE((typeid(Space::point) == typeid(Geom::FixedArray<double, 3>)));
    EXPECT_FALSE((typeid(Space::bivector) == typeid(Geom::Coordinates<Geom::Cartesian3D, float>::bivector)));
}

} // namespace
