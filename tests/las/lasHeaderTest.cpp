// SPDX-License-Identifier: Apache-2.0
#include "las/lasHeader.hpp"

#include <limits>
#include <ostream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

using namespace ExportLib;

struct VersionRow {
    int version;
    int format;
    int headerSize;
    int recordLength;

    friend void PrintTo(const VersionRow& row, std::ostream* out) { *out << "1." << row.version; }
};

class LasVersion : public ::testing::TestWithParam<VersionRow> {};

TEST_P(LasVersion, SetsFormatAndSizes) {
    LASheader header;
    ASSERT_TRUE(setVersion(header, GetParam().version));
    EXPECT_EQ(header.version_major, 1);
    EXPECT_EQ(header.version_minor, GetParam().version);
    EXPECT_EQ(header.point_data_format, GetParam().format);
    EXPECT_EQ(header.header_size, GetParam().headerSize);
    EXPECT_EQ(header.offset_to_point_data, static_cast<U32>(GetParam().headerSize));
    EXPECT_EQ(header.point_data_record_length, GetParam().recordLength);
}

INSTANTIATE_TEST_SUITE_P(, LasVersion,
                         ::testing::Values(VersionRow{2, 1, 227, 28}, VersionRow{3, 1, 235, 28},
                                           VersionRow{4, 6, 375, 30}),
                         [](const auto& one) { return std::to_string(one.param.version); });

TEST(LasHeader, OtherVersionsLeaveTheHeaderAsItWas) {
    for (const int version :
         {std::numeric_limits<int>::min(), -2, 0, 1, 5, std::numeric_limits<int>::max()}) {
        LASheader header;
        EXPECT_FALSE(setVersion(header, version));
        EXPECT_EQ(header.version_minor, 2);
        EXPECT_EQ(header.point_data_format, 0);
        EXPECT_EQ(header.header_size, 227);
        EXPECT_EQ(header.offset_to_point_data, 227U);
        EXPECT_EQ(header.point_data_record_length, 20);
        EXPECT_EQ(header.x_scale_factor, 0.01);
    }
}

TEST(LasHeader, CornersAreRoundedToStepsHalfAwayFromZero) {
    EXPECT_EQ(quantizedCorner(1.00012), 1.0);
    EXPECT_EQ(quantizedCorner(2.99988), 3.0);
    EXPECT_EQ(quantizedCorner(0.000125), 0.00025);
    EXPECT_EQ(quantizedCorner(-0.000125), -0.00025);
    EXPECT_EQ(quantizedCorner(-1.00012), -1.0);
    EXPECT_EQ(quantizedCorner(0.0), 0.0);
}

TEST(LasHeader, ExtentNearlyFromOneToThreeHasOffsetTwo) {
    LASheader header;
    setExtent(header, {1.00012, -10.3, 0}, {2.99988, -10.1, 0});
    EXPECT_EQ(header.min_x, 1.0);
    EXPECT_EQ(header.max_x, 3.0);
    EXPECT_EQ(header.x_offset, 2.0);
    EXPECT_EQ(header.x_scale_factor, 0.00025);
    EXPECT_EQ(header.y_scale_factor, 0.00025);
    EXPECT_EQ(header.z_scale_factor, 0.00025);
    EXPECT_EQ(header.z_offset, 0.0);
}

TEST(LasHeader, NegativeExtentRoundsTheOffsetDown) {
    LASheader header;
    setExtent(header, {-10.3, -0.75, -3}, {-10.1, 0.25, -2});
    EXPECT_EQ(header.x_offset, -11.0);
    EXPECT_EQ(header.y_offset, -1.0);
    EXPECT_EQ(header.z_offset, -3.0);
}

TEST(LasHeader, IdentificationTextsArePaddedWithZeros) {
    LASheader header;
    setIdentification(header);
    std::string system = "BluestoneSurveyGroup";
    std::string software = "Tidewatch";
    system.resize(32);
    software.resize(32);
    EXPECT_EQ(std::string(header.system_identifier, 32), system);
    EXPECT_EQ(std::string(header.generating_software, 32), software);
}

std::time_t localNoon(int year, int month, int day) {
    std::tm date{};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    date.tm_hour = 12;
    date.tm_isdst = -1;
    return std::mktime(&date);
}

TEST(LasHeader, DayAndYearZeroOnTheFirstOfJanuaryGiveDayZero) {
    LASheader header;
    setCreationDate(header, 0, 0, localNoon(2024, 1, 1));
    EXPECT_EQ(header.file_creation_day, 0);
    EXPECT_EQ(header.file_creation_year, 2024);
}

TEST(LasHeader, DayAndYearZeroInALeapYearCountTheDaysFromZero) {
    LASheader header;
    setCreationDate(header, 0, 0, localNoon(2024, 12, 31));
    EXPECT_EQ(header.file_creation_day, 365);
}

TEST(LasHeader, StatedDatesAreTakenAsTheyAreAndCutTo16Bits) {
    LASheader header;
    setCreationDate(header, 123, 2023, 0);
    EXPECT_EQ(header.file_creation_day, 123);
    EXPECT_EQ(header.file_creation_year, 2023);
    setCreationDate(header, 0, 2023, 0);
    EXPECT_EQ(header.file_creation_day, 0);
    EXPECT_EQ(header.file_creation_year, 2023);
    setCreationDate(header, 70000, -1, 0);
    EXPECT_EQ(header.file_creation_day, 70000 - 65536);
    EXPECT_EQ(header.file_creation_year, 65535);
}

TEST(LasHeader, ColorMakesFormat7And36BytesOfVersion4) {
    LASheader header;
    ASSERT_TRUE(setVersion(header, 4));
    addColor(header);
    EXPECT_EQ(header.point_data_format, 7);
    EXPECT_EQ(header.point_data_record_length, 36);
}

TEST(LasHeader, ColorMakesFormat2And34BytesOfVersion2) {
    LASheader header;
    ASSERT_TRUE(setVersion(header, 2));
    addColor(header);
    EXPECT_EQ(header.point_data_format, 2);
    EXPECT_EQ(header.point_data_record_length, 34);
}

TEST(LasHeader, BothAttributesAddSixBytesAndOneRecord) {
    LASheader header;
    ASSERT_TRUE(setVersion(header, 2));
    EXPECT_EQ(addAmplitude(header), 0);
    EXPECT_EQ(header.point_data_record_length, 30);
    EXPECT_EQ(header.offset_to_point_data, 227U + 54 + 192);
    EXPECT_EQ(addReflectance(header), 2);
    EXPECT_EQ(header.point_data_record_length, 34);
    EXPECT_EQ(header.offset_to_point_data, 227U + 54 + 384);
    EXPECT_EQ(header.number_of_variable_length_records, 1U);
}

TEST(LasHeader, OneAttributeAddsTwoBytes) {
    LASheader header;
    ASSERT_TRUE(setVersion(header, 4));
    EXPECT_EQ(addReflectance(header), 0);
    EXPECT_EQ(header.point_data_record_length, 32);
}

TEST(LasHeader, CountsOfOldVersionsAreModulo32BitsAndFiveReturns) {
    std::array<std::uint32_t, 15> counts{};
    for (std::uint32_t i = 0; i < 15; ++i)
        counts[i] = i + 1;
    for (const int version : {2, 3}) {
        LASheader header;
        ASSERT_TRUE(setVersion(header, version));
        setPointCounts(header, 4'294'967'296ULL + 7, counts);
        EXPECT_EQ(header.number_of_point_records, 7U);
        for (U32 i = 0; i < 5; ++i)
            EXPECT_EQ(header.number_of_points_by_return[i], i + 1);
        EXPECT_EQ(header.extended_number_of_point_records, 0U);
    }
}

TEST(LasHeader, CountsOfVersion4Have64BitsAndFifteenReturns) {
    std::array<std::uint32_t, 15> counts{};
    for (std::uint32_t i = 0; i < 15; ++i)
        counts[i] = i + 1;
    LASheader header;
    ASSERT_TRUE(setVersion(header, 4));
    setPointCounts(header, 4'294'967'296ULL + 7, counts);
    EXPECT_EQ(header.extended_number_of_point_records, 4'294'967'296ULL + 7);
    for (U64 i = 0; i < 15; ++i)
        EXPECT_EQ(header.extended_number_of_points_by_return[i], i + 1);
    EXPECT_EQ(header.number_of_point_records, 0U);
}

} // namespace
