// SPDX-License-Identifier: Apache-2.0
#include "las/CaptureSlots.hpp"

#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <vector>

#include <gtest/gtest.h>

namespace {

using ExportLib::CaptureSlots;
using ExportLib::elements;
using Color = Geom::RGB<unsigned char>;
using Point = Geom::PhysicalSpace::point;

template <class T>
Anchor::StrongPtr<Anchor::Cacheable> arrayOf(std::size_t count) {
    return Sheaf::makeArray(std::vector<T>(count));
}

/// Names of attributes that take arrays of a type, found by trying.
template <class T>
std::vector<std::string> takers() {
    std::vector<std::string> names;
    for (const char* const name :
         {"Positions", "Classification", "Intensity", "ReturnNumber", "NumberOfReturns", "EdgeOfFlightLine",
          "ScanAngleRank", "ScanDirectionFlag", "UserData", "PointSourceID", "GPSTime", "RGB", "Reflectance",
          "Amplitude"}) {
        if (CaptureSlots::slotOf(name, typeid(T)))
            names.emplace_back(name);
    }
    return names;
}

TEST(CaptureSlots, EachAttributeTakesItsElementTypes) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(takers<Point>(), Names{"Positions"});
    EXPECT_EQ(takers<unsigned char>(), (Names{"Classification", "ReturnNumber", "NumberOfReturns",
                                              "EdgeOfFlightLine", "ScanDirectionFlag", "UserData"}));
    EXPECT_EQ(takers<unsigned short>(), (Names{"Intensity", "PointSourceID", "Amplitude"}));
    EXPECT_EQ(takers<signed char>(), Names{"ScanAngleRank"});
    EXPECT_EQ(takers<short>(), Names{"ScanAngleRank"});
    EXPECT_EQ(takers<double>(), Names{"GPSTime"});
    EXPECT_EQ(takers<float>(), (Names{"Reflectance", "Amplitude"}));
    EXPECT_EQ(takers<Color>(), Names{"RGB"});
    EXPECT_EQ(takers<int>(), Names{});
    EXPECT_EQ(takers<unsigned>(), Names{});
    EXPECT_EQ((takers<Geom::FixedArray<double, 3>>()), Names{});
}

TEST(CaptureSlots, EveryAttributeFillsItsSlot) {
    CaptureSlots slots;
    slots.capture("Positions", arrayOf<Point>(1));
    slots.capture("Classification", arrayOf<unsigned char>(2));
    slots.capture("Intensity", arrayOf<unsigned short>(3));
    slots.capture("ReturnNumber", arrayOf<unsigned char>(4));
    slots.capture("NumberOfReturns", arrayOf<unsigned char>(5));
    slots.capture("EdgeOfFlightLine", arrayOf<unsigned char>(6));
    slots.capture("ScanAngleRank", arrayOf<signed char>(7));
    slots.capture("ScanDirectionFlag", arrayOf<unsigned char>(8));
    slots.capture("UserData", arrayOf<unsigned char>(9));
    slots.capture("PointSourceID", arrayOf<unsigned short>(10));
    slots.capture("GPSTime", arrayOf<double>(11));
    slots.capture("RGB", arrayOf<Color>(12));
    slots.capture("Reflectance", arrayOf<float>(13));
    slots.capture("Amplitude", arrayOf<unsigned short>(14));
    EXPECT_EQ(elements(slots.positions).size(), 1U);
    EXPECT_EQ(elements(slots.classification).size(), 2U);
    EXPECT_EQ(elements(slots.intensity).size(), 3U);
    EXPECT_EQ(elements(slots.returnNumber).size(), 4U);
    EXPECT_EQ(elements(slots.numberOfReturns).size(), 5U);
    EXPECT_EQ(elements(slots.edgeOfFlightLine).size(), 6U);
    EXPECT_EQ(elements(slots.scanAngleRank).size(), 7U);
    EXPECT_EQ(elements(slots.scanDirectionFlag).size(), 8U);
    EXPECT_EQ(elements(slots.userData).size(), 9U);
    EXPECT_EQ(elements(slots.pointSourceID).size(), 10U);
    EXPECT_EQ(elements(slots.gpsTime).size(), 11U);
    EXPECT_EQ(elements(slots.rgb).size(), 12U);
    EXPECT_EQ(elements(slots.reflectance).size(), 13U);
    EXPECT_EQ(elements(slots.amplitude).size(), 14U);
    EXPECT_FALSE(slots.scanAngle);
    EXPECT_FALSE(slots.amplitudeFloat);
    slots.clear();
    EXPECT_FALSE(slots.positions);
    EXPECT_FALSE(slots.amplitude);
}

TEST(CaptureSlots, ArrayOfAnotherElementTypeLeavesTheSlotAsItWas) {
    CaptureSlots slots;
    slots.capture("Intensity", arrayOf<unsigned short>(3));
    slots.capture("Intensity", arrayOf<unsigned>(4));
    EXPECT_EQ(elements(slots.intensity).size(), 3U);
    slots.capture("Positions",
                  Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                      Point{}, Geom::PhysicalSpace::vector{1, 1, 1}, Sheaf::MultiIndex<3>{2, 2, 1}));
    EXPECT_FALSE(slots.positions);
}

TEST(CaptureSlots, NamesAreComparedExactly) {
    CaptureSlots slots;
    for (const char* const name : {"intensity", "INTENSITY", "Intensity ", "", "Colour"}) {
        slots.capture(name, arrayOf<unsigned short>(3));
        EXPECT_FALSE(CaptureSlots::slotOf(name, typeid(unsigned short)));
        EXPECT_FALSE(CaptureSlots::isAttribute(name));
    }
    EXPECT_FALSE(slots.intensity);
}

TEST(CaptureSlots, FineScanAngleIsTakenOnlyWhereThereIsNoCoarseOne) {
    CaptureSlots slots;
    slots.capture("ScanAngleRank", arrayOf<short>(2));
    EXPECT_TRUE(slots.scanAngle);
    EXPECT_FALSE(slots.scanAngleRank);
    // The coarse one comes on top of a fine one that is there already, but keeps a later one out.
    slots.capture("ScanAngleRank", arrayOf<signed char>(3));
    slots.capture("ScanAngleRank", arrayOf<short>(4));
    EXPECT_EQ(elements(slots.scanAngleRank).size(), 3U);
    EXPECT_EQ(elements(slots.scanAngle).size(), 2U);
}

TEST(CaptureSlots, FloatAmplitudeIsTakenBesideAWholeOne) {
    CaptureSlots slots;
    slots.capture("Amplitude", arrayOf<unsigned short>(2));
    slots.capture("Amplitude", arrayOf<float>(3));
    EXPECT_TRUE(slots.amplitude);
    EXPECT_EQ(elements(slots.amplitudeFloat).size(), 3U);
}

TEST(CaptureSlots, TwelveNamesStandForThemselvesByDefault) {
    const auto names = CaptureSlots::defaultNames();
    EXPECT_EQ(names.size(), 12U);
    for (const auto& [field, lasName] : names)
        EXPECT_EQ(field, lasName);
    EXPECT_FALSE(names.contains("Reflectance"));
    EXPECT_FALSE(names.contains("Amplitude"));
}

} // namespace
