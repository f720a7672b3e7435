// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/geoKeySystem.hpp"

#include "anchor/Error.hpp"
#include "support/GeoKeyBuilder.hpp"

#include <cstdint>
#include <ogr_srs_api.h>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Support::GeoKeyBuilder;
using ::testing::HasSubstr;

std::string systemOf(const std::vector<Sheaf::FileRecord>& records) {
    Tidewatch::GeoKeyBytes keys;
    for (const Sheaf::FileRecord& record : records) {
        if (record.recordId == 34735)
            keys.directory = record.bytes;
        else if (record.recordId == 34736)
            keys.doubles = record.bytes;
        else
            keys.texts = record.bytes;
    }
    return Tidewatch::systemOfGeoKeys(keys);
}

void expectSame(const std::string& found, const std::string& wanted) {
    const OGRSpatialReferenceH a = OSRNewSpatialReference(found.c_str());
    const OGRSpatialReferenceH b = OSRNewSpatialReference(nullptr);
    ASSERT_NE(a, nullptr) << found;
    ASSERT_EQ(OSRSetFromUserInput(b, wanted.c_str()), OGRERR_NONE);
    const char* const options[]{"IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES", "CRITERION=EQUIVALENT", nullptr};
    EXPECT_TRUE(OSRIsSameEx(a, b, options)) << found;
    OSRDestroySpatialReference(a);
    OSRDestroySpatialReference(b);
}

TEST(GeoKeySystem, OfAProjectionOfItsOwnIsSaid) {
    ASSERT_TRUE(Tidewatch::canReadGeoKeys());
    const std::string found = systemOf(GeoKeyBuilder::ownProjection().records());
    expectSame(found, GeoKeyBuilder::ownProjectionText());
    EXPECT_THAT(found, HasSubstr("site grid"));
}

TEST(GeoKeySystem, OfCodesIsSaidVerticalOnesIncluded) {
    expectSame(systemOf(GeoKeyBuilder().number(1024, 1).number(3072, 25832).number(4096, 5783).records()),
               "EPSG:25832+5783");
    expectSame(systemOf(GeoKeyBuilder().number(1024, 2).number(2048, 4326).records()), "EPSG:4326");
}

TEST(GeoKeySystem, CodesOfUnitsStandBehindTheirAuthority) {
    const std::string found =
        systemOf(GeoKeyBuilder().number(1024, 1).number(3072, 25832).number(3076, 9003).records());
    EXPECT_THAT(found, HasSubstr("[\"US survey foot\",0.3048006"));
    EXPECT_THAT(found, HasSubstr("ID[\"EPSG\",9003]"));
    EXPECT_THAT(found, ::testing::Not(HasSubstr("\"EPSG\"]")));
}

TEST(GeoKeySystem, TooManyBytesAreRefused) {
    const std::vector<std::uint8_t> many((std::size_t{256} << 10) + 1);
    EXPECT_THROW(static_cast<void>(Tidewatch::systemOfGeoKeys({many})), Anchor::LimitError);
    EXPECT_THROW(static_cast<void>(Tidewatch::systemOfGeoKeys({{}, many})), Anchor::LimitError);
    EXPECT_THROW(static_cast<void>(Tidewatch::systemOfGeoKeys({{}, {}, many})), Anchor::LimitError);
    EXPECT_EQ(Tidewatch::systemOfGeoKeys({}), "");
}

TEST(GeoKeySystem, AnyBytesAreASystemOrNoneOrAnError) {
    const std::vector<Sheaf::FileRecord> good = GeoKeyBuilder::ownProjection().records();
    std::mt19937 random(1);
    unsigned answers = 0;
    for (unsigned round = 0; round < 60; ++round) {
        std::vector<Sheaf::FileRecord> bad = good;
        for (unsigned left = 1 + round % 5; left > 0; --left) {
            auto& bytes = bad[round % 3].bytes;
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        if (round % 4 == 0)
            bad[random() % 3].bytes.resize(random() % 40);
        try {
            static_cast<void>(systemOf(bad));
            ++answers;
        } catch (const Anchor::Error& error) {
            EXPECT_THAT(error.what(), HasSubstr("GeoTIFF keys"));
        }
    }
    EXPECT_GT(answers, 0U);
}

} // namespace
