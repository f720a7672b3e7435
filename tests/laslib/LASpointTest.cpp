// SPDX-License-Identifier: Apache-2.0
#include "laspoint.hpp"

#include "lasutility.hpp"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::pair<int, int>> itemsOf(int format, int size) {
    unsigned short count = 0;
    LASitem* items = nullptr;
    if (!LASzip().setup(&count, &items, static_cast<unsigned char>(format),
                        static_cast<unsigned short>(size)))
        return {};
    const std::unique_ptr<LASitem[]> owned(items);
    std::vector<std::pair<int, int>> list;
    for (unsigned short i = 0; i < count; ++i) {
        list.emplace_back(items[i].type, items[i].size);
        EXPECT_EQ(items[i].version, 0);
    }
    return list;
}

TEST(LASzip, ItemsOfThePointFormats) {
    using Items = std::vector<std::pair<int, int>>;
    EXPECT_EQ(itemsOf(0, 20), (Items{{6, 20}}));
    EXPECT_EQ(itemsOf(1, 28), (Items{{6, 20}, {7, 8}}));
    EXPECT_EQ(itemsOf(2, 26), (Items{{6, 20}, {8, 6}}));
    EXPECT_EQ(itemsOf(3, 34), (Items{{6, 20}, {7, 8}, {8, 6}}));
    EXPECT_EQ(itemsOf(6, 30), (Items{{10, 30}}));
    EXPECT_EQ(itemsOf(7, 36), (Items{{10, 30}, {11, 6}}));
    EXPECT_EQ(itemsOf(8, 38), (Items{{10, 30}, {12, 8}}));
}

TEST(LASzip, SizeBeyondTheFormatBecomesExtraBytes) {
    using Items = std::vector<std::pair<int, int>>;
    EXPECT_EQ(itemsOf(2, 34), (Items{{6, 20}, {8, 6}, {0, 8}}));
    EXPECT_EQ(itemsOf(1, 30), (Items{{6, 20}, {7, 8}, {0, 2}}));
    EXPECT_EQ(itemsOf(7, 42), (Items{{10, 30}, {11, 6}, {14, 6}}));
}

TEST(LASzip, UnknownFormatIsRefused) {
    for (const int format : {4, 5, 9, 10, 11, 255})
        EXPECT_TRUE(itemsOf(format, 100).empty()) << format;
}

TEST(LASzip, SizeThatIsTooSmallIsWarnedOf) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(itemsOf(6, 28).size(), 1U);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "WARNING: point size 28 too small by 2 bytes for point type 6. assuming point_size of 30\n");
}

TEST(LASpoint, NewPointIsReturnOneOfOneAndElseZero) {
    const LASpoint point;
    EXPECT_EQ(point.X, 0);
    EXPECT_EQ(point.return_number, 1);
    EXPECT_EQ(point.number_of_returns, 1);
    EXPECT_EQ(point.extended_return_number, 1);
    EXPECT_EQ(point.extended_number_of_returns, 1);
    EXPECT_EQ(point.extended_point_type, 0);
    EXPECT_EQ(point.gps_time, 0);
    EXPECT_EQ(point.extra_bytes, nullptr);
}

TEST(LASpoint, InitGivesZeroedExtraBytesAndRemembersWhatBelongsToIt) {
    LASpoint point;
    const LASquantizer quantizer;
    const LASattributer attributer;
    ASSERT_TRUE(point.init(&quantizer, 7, 42, &attributer));
    ASSERT_EQ(point.extra_bytes_number, 6);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(point.extra_bytes[i], 0);
    EXPECT_EQ(point.extended_point_type, 1);
    EXPECT_EQ(point.quantizer, &quantizer);
    EXPECT_EQ(point.attributer, &attributer);
    point.set_attribute(2, 0x1234);
    EXPECT_EQ(point.extra_bytes[2], 0x34);
    EXPECT_EQ(point.extra_bytes[3], 0x12);
}

TEST(LASpoint, InitAgainBeginsAnew) {
    LASpoint point;
    ASSERT_TRUE(point.init(nullptr, 7, 42));
    point.X = 5;
    point.set_attribute(0, 7);
    ASSERT_TRUE(point.init(nullptr, 1, 28));
    EXPECT_EQ(point.X, 0);
    EXPECT_EQ(point.extra_bytes, nullptr);
    EXPECT_EQ(point.extra_bytes_number, 0);
    EXPECT_EQ(point.extended_point_type, 0);
}

TEST(LASpoint, InitOfAnUnknownFormatSaysSo) {
    LASpoint point;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(point.init(nullptr, 12, 50));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ERROR: unknown point type 12 with point size 50\n");
    EXPECT_EQ(point.num_items, 0);
}

TEST(LASinventory, CountsPointsByReturnAndTheirReach) {
    LASinventory inventory;
    LASpoint point;
    ASSERT_TRUE(point.init(nullptr, 1, 28));
    for (int i = 0; i < 5; ++i) {
        point.X = 10 * i;
        point.Y = -i;
        point.Z = 7;
        point.return_number = static_cast<U8>(i % 2 + 1) & 7;
        inventory.add(&point);
    }
    EXPECT_EQ(inventory.extended_number_of_point_records, 5);
    EXPECT_EQ(inventory.extended_number_of_points_by_return[1], 3);
    EXPECT_EQ(inventory.extended_number_of_points_by_return[2], 2);
    EXPECT_EQ(inventory.min_X, 0);
    EXPECT_EQ(inventory.max_X, 40);
    EXPECT_EQ(inventory.min_Y, -4);
    EXPECT_EQ(inventory.max_Y, 0);
    EXPECT_EQ(inventory.min_Z, 7);
    EXPECT_EQ(inventory.max_Z, 7);
}

} // namespace
