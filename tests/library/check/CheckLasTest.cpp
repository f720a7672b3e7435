// SPDX-License-Identifier: Apache-2.0
#include "formats/las/layout.hpp"
#include "library/check/found.hpp"
#include "support/LazAssembly.hpp"
#include "support/compressLas.hpp"

#include <cstddef>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::LasFileBuilder;
using Support::LasRecord;
using Support::patch;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace Place = Formats::Las::Header;

constexpr const char* systemText =
    "GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563,AUTHORITY[\"EPSG\",\"7030\"]],"
    "AUTHORITY[\"EPSG\",\"6326\"]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433],"
    "AUTHORITY[\"EPSG\",\"4326\"]]";

LasFileBuilder builder(unsigned minor, unsigned format) {
    LasFileBuilder file;
    file.minor = minor;
    file.format = format;
    if (minor >= 4) {
        file.vlrs.push_back({"LASF_Projection", 2112, std::string(systemText) + '\0'});
        file.globalEncoding = 16;
    }
    for (int i = 0; i < 40; ++i) {
        LasRecord point;
        point.x = 100 + i;
        point.y = 200 - i;
        point.z = 7;
        point.numberOfReturns = 2;
        point.returnNumber = i % 4 == 0 ? 2 : 1;
        point.classification = 2;
        point.scanAngle = static_cast<std::int16_t>(i - 20);
        if (format >= 6)
            point.scanAngle = static_cast<std::int16_t>(100 * point.scanAngle);
        point.gpsTime = 1000.0 + i;
        point.rgb = {static_cast<std::uint16_t>(256 * i), 0, 0};
        file.points.push_back(point);
    }
    return file;
}

/// With counts by return, which the builder leaves out.
std::string build(const LasFileBuilder& file) {
    std::string bytes = file.build();
    for (const LasRecord& point : file.points) {
        if (point.returnNumber == 0)
            continue;
        const std::size_t number = point.returnNumber - 1U;
        if (file.minor >= 4) {
            const std::size_t place = Place::countsByReturn + 8 * number;
            patch(bytes, place, Support::number<std::uint64_t>(bytes, place) + 1);
        } else if (number < 5) {
            const std::size_t place = Place::legacyCountsByReturn + 4 * number;
            patch(bytes, place, Support::number<std::uint32_t>(bytes, place) + 1);
        }
    }
    return bytes;
}

/// The bytes of a file of 1.4 after a change.
template <class T>
std::string changed(std::size_t place, T value, unsigned format = 6) {
    std::string bytes = build(builder(4, format));
    patch(bytes, place, value);
    return bytes;
}

std::string asOwn(std::string bytes) {
    bytes.replace(Place::generatingSoftware, 9, "Tidewatch");
    return bytes;
}

/// What is found, apart from the missing system of files of 1.2.
std::vector<std::string> check(const std::string& bytes) {
    std::vector<std::string> kinds = kindsOf(checkBytes(bytes));
    std::erase(kinds, "note no-system");
    return kinds;
}

TEST(CheckLas, SoundFilesHaveNoFindings) {
    for (const unsigned format : {0U, 1U, 2U, 3U}) {
        EXPECT_THAT(check(build(builder(2, format))), IsEmpty()) << format;
        EXPECT_THAT(check(build(builder(4, format))), IsEmpty()) << format;
    }
    for (const unsigned format : {6U, 7U, 8U})
        EXPECT_THAT(check(build(builder(4, format))), IsEmpty()) << format;
    EXPECT_EQ(checkBytes(build(builder(4, 7))).format(), "LAS 1.4, point format 7");
    LasFileBuilder empty = builder(4, 6);
    empty.points.clear();
    EXPECT_THAT(check(build(empty)), IsEmpty());
}

TEST(CheckLas, WhatTheReaderRefusesIsAFaultOfItsKind) {
    EXPECT_THAT(check(changed(Place::versionMinor, std::uint8_t{9})), ElementsAre("fault header"));
    EXPECT_THAT(check(changed(Place::scale, 0.0)), ElementsAre("fault header"));
    EXPECT_THAT(check(changed(Place::vlrCount, std::uint32_t{2})), ElementsAre("fault records"));
    LasFileBuilder extra = builder(4, 6);
    extra.extraByteCount = 1;
    for (LasRecord& point : extra.points)
        point.extraBytes = "x";
    extra.describe(LasFileBuilder::attribute(3, "Wide"));
    EXPECT_THAT(check(build(extra)), ElementsAre("fault extra-bytes"));
    const std::string cut = build(builder(4, 6));
    EXPECT_THAT(check(cut.substr(0, cut.size() - 10)), ElementsAre("fault points"));
    EXPECT_EQ(checkBytes(changed(Place::scale, 0.0)).findings()[0].place, "header");
}

TEST(CheckLas, CompressedFilesAreDecoded) {
    std::string bytes = Support::compressLas(builder(4, 6), 10);
    EXPECT_THAT(check(bytes), ElementsAre("fault counts-by-return"));
    const auto data = Support::number<std::uint32_t>(bytes, Place::pointOffset);
    std::string tableless = bytes;
    patch(tableless, data, std::uint64_t{0});
    EXPECT_THAT(check(tableless), ElementsAre("fault compression"));
    // The sizes of the layers of the second chunk.
    std::string chunk = bytes;
    const std::size_t behindFirstPoint = data + 8 + 30;
    patch(chunk, behindFirstPoint, std::uint32_t{99});
    EXPECT_THAT(check(chunk), ElementsAre("fault compression"));
}

TEST(CheckLas, AStatedCountOfNoneIsAFault) {
    std::string bytes = build(builder(4, 1));
    ASSERT_EQ(Support::number<std::uint32_t>(bytes, Place::legacyPointCount), 40U);
    patch(bytes, Place::pointCount, std::uint64_t{0});
    EXPECT_THAT(check(bytes), ElementsAre("fault point-count"));
}

TEST(CheckLas, CountsByReturnAreThoseOfThePoints) {
    const CheckReport report = checkBytes(changed(Place::countsByReturn, std::uint64_t{31}));
    EXPECT_THAT(kindsOf(report), ElementsAre("fault counts-by-return"));
    EXPECT_EQ(report.findings()[0].message, "31 points of return 1 are stated, there are 30");
    std::string old = build(builder(2, 1));
    patch(old, Place::legacyCountsByReturn + 4, std::uint32_t{0});
    EXPECT_THAT(check(old), ElementsAre("fault counts-by-return"));
}

TEST(CheckLas, CountsByReturnOfTheExporterMayFollowItsOwnRules) {
    const CheckReport report = checkBytes(asOwn(changed(Place::countsByReturn, std::uint64_t{40})));
    EXPECT_THAT(kindsOf(report), ElementsAre("warning counts-by-return"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("without --plain"));
}

TEST(CheckLas, PointsWithoutAReturnNumberMayCountAsFirst) {
    LasFileBuilder file = builder(4, 6);
    file.points[1].returnNumber = 0;
    std::string bytes = build(file);
    EXPECT_THAT(check(bytes), ElementsAre("note return-numbers"));
    patch(bytes, Place::countsByReturn, std::uint64_t{30});
    EXPECT_THAT(check(bytes), ElementsAre("note return-numbers"));
    patch(bytes, Place::countsByReturn, std::uint64_t{31});
    EXPECT_THAT(check(bytes), ElementsAre("fault counts-by-return", "note return-numbers"));
}

TEST(CheckLas, ThePointsLieInTheBox) {
    // The points reach from 1 to 1.39 along x.
    EXPECT_THAT(check(changed(Place::bounds, 1.375)), ElementsAre("fault box"));
    EXPECT_THAT(check(changed(Place::bounds + 8, 1.02)), ElementsAre("fault box"));
    EXPECT_THAT(check(changed(Place::bounds, std::numeric_limits<double>::quiet_NaN())),
                ElementsAre("fault box"));
    EXPECT_THAT(check(changed(Place::bounds, 1.385)), IsEmpty());
    EXPECT_THAT(check(changed(Place::bounds, 1.5)), ElementsAre("warning loose-box"));
    EXPECT_THAT(check(changed(Place::bounds + 40, 0.0)), ElementsAre("warning loose-box"));
    EXPECT_EQ(checkBytes(changed(Place::bounds, 1.25)).findings()[0].message,
              "x is stated from 1 to 1.25, its points reach from 1 to 1.39");
}

TEST(CheckLas, StepsAreThoseThatNumbersCanHold) {
    LasFileBuilder fine = builder(4, 6);
    fine.scale = {1e-12, 0.01, 0.01};
    fine.offset = {5e6, 0, 0};
    EXPECT_THAT(check(build(fine)), ElementsAre("warning coordinate-step"));
    LasFileBuilder negative = builder(4, 6);
    negative.scale = {0.01, -0.01, 0.01};
    EXPECT_THAT(check(build(negative)), ElementsAre("warning coordinate-step"));
}

TEST(CheckLas, BytesBehindThePointsAreTold) {
    const CheckReport report = checkBytes(build(builder(4, 6)) + "abc");
    EXPECT_THAT(kindsOf(report), ElementsAre("warning unused-bytes"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("3 bytes after the 40 points"));
}

TEST(CheckLas, UndescribedBytesAreTold) {
    LasFileBuilder file = builder(4, 6);
    file.extraByteCount = 3;
    file.describe(LasFileBuilder::attribute(1, "Known"));
    for (LasRecord& point : file.points)
        point.extraBytes = "abc";
    EXPECT_THAT(check(build(file)), ElementsAre("note undescribed-bytes"));
    const CheckReport own = checkBytes(asOwn(build(file)));
    EXPECT_THAT(kindsOf(own), ElementsAre("warning undescribed-bytes"));
    EXPECT_THAT(own.findings()[0].message, HasSubstr("last 2 of their 33 bytes"));
    EXPECT_THAT(own.findings()[0].message, HasSubstr("without --plain"));
}

TEST(CheckLas, NamesOfExtraBytesAreThereAndDiffer) {
    const auto named = [](const std::string& a, const std::string& b) {
        LasFileBuilder file = builder(4, 6);
        file.extraByteCount = 2;
        file.describe(LasFileBuilder::attribute(1, a) + LasFileBuilder::attribute(1, b));
        for (LasRecord& point : file.points)
            point.extraBytes = "ab";
        return build(file);
    };
    EXPECT_THAT(check(named("a", "b")), IsEmpty());
    EXPECT_THAT(check(named("a", "a")), ElementsAre("warning extra-bytes-names"));
    EXPECT_THAT(check(named("a", "")), ElementsAre("warning extra-bytes-names"));
}

TEST(CheckLas, TheCreationDayIsADayOfItsYear) {
    const auto dated = [](std::uint16_t day, std::uint16_t year) {
        std::string bytes = build(builder(4, 6));
        patch(bytes, Place::creationDay, day);
        patch(bytes, Place::creationYear, year);
        return bytes;
    };
    EXPECT_THAT(check(dated(0, 0)), IsEmpty());
    EXPECT_THAT(check(dated(365, 2023)), IsEmpty());
    EXPECT_THAT(check(dated(366, 2024)), IsEmpty());
    EXPECT_THAT(check(dated(366, 2023)), ElementsAre("warning creation-day"));
    EXPECT_THAT(check(dated(0, 2023)), ElementsAre("warning creation-day"));
    EXPECT_THAT(checkBytes(dated(0, 2023)).findings()[0].message, Not(HasSubstr("--plain")));
    EXPECT_THAT(checkBytes(asOwn(dated(0, 2023))).findings()[0].message, HasSubstr("--plain"));
}

TEST(CheckLas, ReservedBitsAreTold) {
    EXPECT_THAT(check(changed(Place::globalEncoding, std::uint16_t{16 | 32})),
                ElementsAre("warning global-encoding"));
}

TEST(CheckLas, ReservedClassesAreNotedEachWithItsFirstPoint) {
    LasFileBuilder file = builder(4, 6);
    file.points[7].classification = 40;
    file.points[9].classification = 12;
    file.points[11].classification = 70;
    const CheckReport report = checkBytes(build(file));
    EXPECT_THAT(kindsOf(report), ElementsAre("note classes"));
    EXPECT_EQ(report.findings()[0].place, "point 7");
    EXPECT_EQ(report.findings()[0].count, 2U);
    LasFileBuilder old = builder(2, 1);
    old.points[7].classification = 13;
    EXPECT_THAT(check(build(old)), ElementsAre("note classes"));
    old.points[7].classification = 12;
    EXPECT_THAT(check(build(old)), IsEmpty());
}

TEST(CheckLas, ReturnNumbersAboveTheNumberOfReturnsAreNoted) {
    LasFileBuilder file = builder(4, 6);
    file.points[5].numberOfReturns = 0;
    file.points[6].numberOfReturns = 0;
    const CheckReport report = checkBytes(build(file));
    EXPECT_THAT(kindsOf(report), ElementsAre("note return-numbers"));
    EXPECT_EQ(report.findings()[0].count, 2U);
    EXPECT_EQ(report.findings()[0].place, "point 5");
}

TEST(CheckLas, ScanAnglesHaveALimit) {
    LasFileBuilder file = builder(4, 6);
    file.points[3].scanAngle = 30001;
    EXPECT_THAT(check(build(file)), ElementsAre("warning scan-angles"));
    LasFileBuilder old = builder(2, 1);
    old.points[3].scanAngle = -91;
    EXPECT_THAT(check(build(old)), ElementsAre("warning scan-angles"));
}

TEST(CheckLas, AnglesThatLookLikeDegreesAreTold) {
    LasFileBuilder file = builder(4, 6);
    for (LasRecord& point : file.points)
        point.scanAngle = static_cast<std::int16_t>(point.scanAngle / 100);
    EXPECT_THAT(check(build(file)), ElementsAre("warning scan-angle-unit"));
    EXPECT_THAT(checkBytes(asOwn(build(file))).findings()[0].message, HasSubstr("without --plain"));
    for (LasRecord& point : file.points)
        point.scanAngle = 0;
    EXPECT_THAT(check(build(file)), IsEmpty());
}

TEST(CheckLas, ColorsOfEightBitsAreNoted) {
    LasFileBuilder file = builder(4, 7);
    for (LasRecord& point : file.points)
        point.rgb = {255, 1, 0};
    EXPECT_THAT(check(build(file)), ElementsAre("note color-depth"));
    // What tells that the exporter followed its habits makes a warning of it.
    for (LasRecord& point : file.points)
        point.scanAngle = 20;
    EXPECT_THAT(check(asOwn(build(file))), ElementsAre("warning scan-angle-unit", "warning color-depth"));
}

TEST(CheckLas, AttributesThatComeOnePointLateAreTold) {
    const auto attributed = [](const std::string& name, char first) {
        LasFileBuilder file = builder(4, 6);
        file.extraByteCount = 2;
        file.describe(LasFileBuilder::attribute(3, name, 24, 0.5, 0));
        for (LasRecord& point : file.points)
            point.extraBytes = "ab";
        file.points[0].extraBytes = {first, '\0'};
        return build(file);
    };
    const CheckReport report = checkBytes(asOwn(attributed("BSG_Reflectance", '\0')));
    EXPECT_THAT(kindsOf(report), ElementsAre("warning shifted-attributes"));
    EXPECT_THAT(report.findings()[0].message, HasSubstr("without --plain"));
    EXPECT_THAT(check(asOwn(attributed("BSG_Reflectance", '\1'))), IsEmpty());
    EXPECT_THAT(check(attributed("BSG_Reflectance", '\0')), IsEmpty());
    // An amplitude may be 0.
    EXPECT_THAT(check(asOwn(attributed("Amplitude", '\0'))), ElementsAre("note shifted-attributes"));
}

TEST(CheckLas, GpsTimesAreSecondsOfAWeekWhereTheHeaderSaysSo) {
    LasFileBuilder file = builder(4, 6);
    file.points[4].gpsTime = 604'801;
    file.points[6].gpsTime = -1;
    const CheckReport report = checkBytes(build(file));
    EXPECT_THAT(kindsOf(report), ElementsAre("warning gps-time"));
    EXPECT_EQ(report.findings()[0].place, "point 4");
    EXPECT_EQ(report.findings()[0].count, 2U);
    // Its input may have said nothing.
    EXPECT_THAT(check(asOwn(build(file))), ElementsAre("note gps-time"));
    file.globalEncoding = 17;
    EXPECT_THAT(check(build(file)), IsEmpty());
    file.points[4].gpsTime = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THAT(check(build(file)), ElementsAre("warning gps-time"));
}

TEST(CheckLas, TheReferenceSystemIsThereAndCanBeRead) {
    EXPECT_THAT(kindsOf(checkBytes(build(builder(2, 1)))), ElementsAre("note no-system"));
    LasFileBuilder file = builder(4, 6);
    file.vlrs[0].payload = "PROJCS[\"nothing of the kind\"";
    EXPECT_THAT(check(build(file)), ElementsAre("warning unreadable-system"));
    LasFileBuilder keys = builder(2, 1);
    keys.vlrs.push_back(
        {"LASF_Projection", 34735, std::string("\1\0\1\0\0\0\1\0\0\x0c\0\0\1\0\xff\x7f", 16)});
    EXPECT_THAT(check(build(keys)), ElementsAre("note unreadable-system"));
}

TEST(CheckLas, TheReferenceSystemHasTheFormThatTheHeaderStates) {
    LasFileBuilder file = builder(4, 6);
    file.globalEncoding = 0;
    EXPECT_THAT(check(build(file)), ElementsAre("warning system-form"));
    LasFileBuilder old = builder(4, 1);
    old.globalEncoding = 0;
    EXPECT_THAT(check(build(old)), ElementsAre("warning system-form"));
    LasFileBuilder keys = builder(4, 1);
    keys.vlrs = {{"LASF_Projection", 34735, std::string("\1\0\1\0\0\0\1\0\0\x08\0\0\1\0\xe6\x10", 16)}};
    EXPECT_THAT(check(build(keys)), ElementsAre("warning system-form"));
}

} // namespace
} // namespace Tidewatch
