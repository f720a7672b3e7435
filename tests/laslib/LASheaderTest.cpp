// SPDX-License-Identifier: Apache-2.0
#include "lasdefinitions.hpp"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr U32 typeU16 = 2;

TEST(LASattribute, BytesAreThoseOfTheFormat) {
    LASattribute attribute(typeU16, "Name", "What it is");
    attribute.set_scale(0.5);
    attribute.set_offset(-25.0);
    const auto bytes = attribute.toBytes();
    std::string expected(192, '\0');
    expected[2] = 3;
    expected[3] = 0x18;
    expected.replace(4, 4, "Name");
    const auto put = [&](std::size_t place, double value) { std::memcpy(&expected[place], &value, 8); };
    put(112, 0.5);
    put(120, 1.0);
    put(128, 1.0);
    put(136, -25.0);
    expected.replace(160, 10, "What it is");
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), expected);
}

TEST(LASattribute, ScaleAndOffsetAreFlaggedOnlyWhenSet) {
    LASattribute attribute(typeU16, "a");
    EXPECT_EQ(attribute.options, 0);
    EXPECT_TRUE(attribute.set_scale(2));
    EXPECT_EQ(attribute.options, 8);
    EXPECT_TRUE(attribute.set_offset(2));
    EXPECT_EQ(attribute.options, 24);
}

TEST(LASattribute, LongTextsAreCutAt32Bytes) {
    const std::string text(40, 'x');
    const LASattribute attribute(typeU16, text.c_str(), text.c_str());
    const auto bytes = attribute.toBytes();
    EXPECT_EQ(std::string(bytes.begin() + 4, bytes.begin() + 40),
              std::string(32, 'x') + std::string(4, '\0'));
    EXPECT_EQ(std::string(bytes.begin() + 160, bytes.end()), std::string(32, 'x'));
}

TEST(LASattribute, SizesAreThoseOfTheTenTypes) {
    const U32 sizes[]{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    for (U32 type = 0; type < 10; ++type)
        EXPECT_EQ(LASattribute(type, "a").get_size(), sizes[type]);
    EXPECT_EQ(LASattribute(10, "a").get_size(), 0U);
    EXPECT_EQ(LASattribute(255, "a").get_size(), 0U);
}

TEST(LASattributer, AttributesStandOneBehindTheOther) {
    LASattributer attributer;
    EXPECT_EQ(attributer.get_attributes_size(), 0);
    EXPECT_EQ(attributer.add_attribute(LASattribute(typeU16, "a")), 0);
    EXPECT_EQ(attributer.add_attribute(LASattribute(9, "b")), 1);
    EXPECT_EQ(attributer.add_attribute(LASattribute(0, "c")), 2);
    EXPECT_EQ(attributer.get_attribute_start(0), 0);
    EXPECT_EQ(attributer.get_attribute_start(1), 2);
    EXPECT_EQ(attributer.get_attribute_start(2), 10);
    EXPECT_EQ(attributer.get_attributes_size(), 11);
}

TEST(LASattributer, UnknownAttributesHaveNoPlace) {
    LASattributer attributer;
    EXPECT_EQ(attributer.add_attribute(LASattribute(77, "a")), -1);
    EXPECT_EQ(attributer.get_attribute_start(0), -1);
    EXPECT_EQ(attributer.get_attribute_start(-1), -1);
}

TEST(LASheader, NewHeaderIsThatOfAnEmptyFile) {
    const LASheader header;
    EXPECT_EQ(header.version_minor, 2);
    EXPECT_EQ(header.header_size, 227);
    EXPECT_EQ(header.offset_to_point_data, 227U);
    EXPECT_EQ(header.point_data_format, 0);
    EXPECT_EQ(header.point_data_record_length, 20);
    EXPECT_EQ(header.x_scale_factor, 0.01);
    EXPECT_EQ(header.z_offset, 0);
    EXPECT_TRUE(header.vlrs.empty());
}

TEST(LASheader, AttributesGetOneRecordThatGrowsWithThem) {
    LASheader header;
    header.add_attribute(LASattribute(typeU16, "a"));
    EXPECT_TRUE(header.update_extra_bytes_vlr());
    EXPECT_EQ(header.offset_to_point_data, 227U + 54 + 192);
    EXPECT_EQ(header.number_of_variable_length_records, 1U);
    header.add_attribute(LASattribute(typeU16, "b"));
    EXPECT_TRUE(header.update_extra_bytes_vlr());
    EXPECT_TRUE(header.update_extra_bytes_vlr());
    EXPECT_EQ(header.offset_to_point_data, 227U + 54 + 384);
    EXPECT_EQ(header.number_of_variable_length_records, 1U);
    ASSERT_EQ(header.vlrs.size(), 1U);
    EXPECT_STREQ(header.vlrs[0].user_id, "LASF_Spec");
    EXPECT_EQ(header.vlrs[0].record_id, 4);
    EXPECT_EQ(header.vlrs[0].reserved, 0);
    EXPECT_STREQ(header.vlrs[0].description, "by LAStools of rapidlasso GmbH");
}

TEST(LASheader, RecordsOfTheSameIdsReplaceEachOtherUnlessToldOtherwise) {
    LASheader header;
    header.add_vlr("Somebody", 1, 3, new U8[3]{1, 2, 3}, false, "first");
    header.add_vlr("Somebody", 2, 0, new U8[1]);
    EXPECT_EQ(header.offset_to_point_data, 227U + 2 * 54 + 3);
    header.add_vlr("Somebody", 1, 1, new U8[1]{9}, true, "second");
    ASSERT_EQ(header.vlrs.size(), 2U);
    EXPECT_EQ(header.number_of_variable_length_records, 2U);
    EXPECT_EQ(header.offset_to_point_data, 227U + 2 * 54 + 1);
    EXPECT_EQ(header.vlrs[0].data, std::vector<U8>{9});
    EXPECT_STREQ(header.vlrs[0].description, "first");
    EXPECT_STREQ(header.vlrs[1].description, "by LAStools of rapidlasso GmbH");
    header.add_vlr("Somebody", 1, 0, new U8[1], false, "third", true);
    ASSERT_EQ(header.vlrs.size(), 3U);
    EXPECT_EQ(header.offset_to_point_data, 227U + 3 * 54 + 1);
}

TEST(LASheader, LongTextsOfRecordsAreCut) {
    LASheader header;
    header.add_vlr("0123456789abcdefgh", 1, 0, new U8[1], false, std::string(40, 'd').c_str());
    EXPECT_EQ(std::string(header.vlrs[0].user_id, 16), "0123456789abcdef");
    EXPECT_EQ(std::string(header.vlrs[0].description), std::string(31, 'd'));
}

TEST(LASheader, NoAttributesGetNoRecord) {
    LASheader header;
    EXPECT_TRUE(header.update_extra_bytes_vlr());
    EXPECT_EQ(header.offset_to_point_data, 227U);
    EXPECT_EQ(header.number_of_variable_length_records, 0U);
}

} // namespace
