// SPDX-License-Identifier: Apache-2.0
#include "library/crs/GeoKeys.hpp"

#include "support/GeoKeyBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/geoTiff.hpp"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GeoKeyBuilder;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Keys = std::vector<std::pair<unsigned, unsigned>>;

/// A directory of keys whose values stand in place.
Sheaf::FileRecord directory(const Keys& keys) {
    std::string bytes;
    for (const unsigned number : {1U, 1U, 0U, static_cast<unsigned>(keys.size())})
        Support::append(bytes, static_cast<std::uint16_t>(number));
    for (const auto& [key, value] : keys) {
        for (const unsigned number : {key, 0U, 1U, value})
            Support::append(bytes, static_cast<std::uint16_t>(number));
    }
    return {"LASF_Projection", 34735, "", {bytes.begin(), bytes.end()}};
}

GeoKeys read(const Keys& keys) {
    const std::vector<Sheaf::FileRecord> records{{"Somebody", 34735, "", {1}}, directory(keys)};
    return GeoKeys::read(records);
}

std::string codeOf(const Keys& keys) {
    const GeoKeys found = read(keys);
    return (found.system ? found.system->codeText() : std::string("none")) +
           (found.unreadable.empty() ? "" : ", not: " + found.unreadable);
}

TEST(GeoKeys, CodesOfSystemsAreRead) {
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}}), "EPSG:25832");
    EXPECT_EQ(codeOf({{1024, 2}, {2048, 4326}}), "EPSG:4326");
    EXPECT_EQ(codeOf({{1024, 3}, {2048, 4978}}), "EPSG:4978");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}, {4096, 5783}}), "EPSG:25832+5783");
    EXPECT_EQ(codeOf({{2048, 4269}, {3072, 2994}}), "EPSG:2994") << "the model is not always stated";
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}, {3076, 9001}, {4096, 0}}), "EPSG:25832");
}

TEST(GeoKeys, OlderCodesAndFeetOfHeightsAreSystemsOfTheirOwn) {
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 2994}, {4096, 5103}}), "EPSG:2994+5703");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 2994}, {4096, 5703}, {4099, 9003}}), "EPSG:2994+6360");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 2994}, {4096, 5703}, {4099, 9002}}), "EPSG:2994+8228");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 2994}, {4096, 5703}, {4099, 9001}}), "EPSG:2994+5703");
}

TEST(GeoKeys, WhatIsNotReadIsNamed) {
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 32767}}), "none, not: a user-defined projection");
    EXPECT_EQ(codeOf({{1024, 1}}), "none, not: a user-defined projection");
    EXPECT_EQ(codeOf({{1024, 2}, {2048, 32767}}), "none, not: a user-defined geodetic system");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 1025}}), "none, not: EPSG:1025, which PROJ does not know");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 32767}, {3074, 32767}, {3075, 1}}),
              "none, not: a user-defined projection")
        << "an ellipsoid is not made up";
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}, {4096, 32767}}),
              "EPSG:25832, not: a user-defined vertical system");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}, {4096, 5030}}), "EPSG:25832, not: the vertical system 5030");
    EXPECT_EQ(codeOf({{1024, 1}, {3072, 25832}, {4096, 5783}, {4099, 9002}}),
              "EPSG:25832, not: the vertical system 5783 in the unit EPSG:9002");
    EXPECT_EQ(codeOf({{4096, 5783}}), "none, not: a vertical system alone");
}

#ifdef TIDEWATCH_GDAL

TEST(GeoKeys, UserDefinedProjectionIsRead) {
    const auto own = ReferenceSystem::fromText(GeoKeyBuilder::ownProjectionText());
    const GeoKeys keys = GeoKeys::read(GeoKeyBuilder::ownProjection().records());
    EXPECT_THAT(keys.unreadable, IsEmpty());
    ASSERT_TRUE(keys.system);
    EXPECT_TRUE(keys.system->isEquivalentTo(own));
    EXPECT_EQ(keys.system->title(), "site grid");
}

TEST(GeoKeys, UserDefinedGeodeticSystemIsRead) {
    GeoKeyBuilder builder;
    builder.number(1024, 2).number(2048, 32767).text(2049, "mine").number(2050, 32767).number(2054, 9102);
    builder.number(2056, 32767).real(2057, 6378000).real(2059, 298);
    const GeoKeys keys = GeoKeys::read(builder.records());
    EXPECT_THAT(keys.unreadable, IsEmpty());
    ASSERT_TRUE(keys.system);
    EXPECT_EQ(keys.system->kind(), ReferenceSystem::Kind::Geographic);
    EXPECT_THAT(*keys.system->ogcText(), AllOf(HasSubstr("GEOGCS[\"mine\""), HasSubstr(",6378000,29")));
}

TEST(GeoKeys, UserDefinedSystemsHaveHeightsOfTheirCodes) {
    const auto verticalOf = [](const GeoKeyBuilder& builder) {
        const GeoKeys keys = GeoKeys::read(builder.records());
        return (keys.system && keys.system->verticalCode() ? std::to_string(*keys.system->verticalCode())
                                                           : std::string("none")) +
               (keys.unreadable.empty() ? "" : ", not: " + keys.unreadable);
    };
    EXPECT_EQ(verticalOf(GeoKeyBuilder::ownProjection().number(4096, 5783)), "5783");
    EXPECT_EQ(verticalOf(GeoKeyBuilder::ownProjection().number(4096, 5703).number(4099, 9003)), "6360");
    EXPECT_EQ(verticalOf(GeoKeyBuilder::ownProjection().number(4096, 5783).number(4099, 9002)),
              "none, not: the vertical system 5783 in the unit EPSG:9002");
    const GeoKeys keys = GeoKeys::read(GeoKeyBuilder::ownProjection().number(4096, 5783).records());
    EXPECT_EQ(keys.system->name(), "site grid + DHHN92 height");
    EXPECT_TRUE(keys.system->ogcText());
}

TEST(GeoKeys, UserDefinedHeightsAreReadWhereTheyHaveANameAndAUnit) {
    const auto plain = GeoKeyBuilder().number(1024, 1).number(3072, 25832).number(4096, 32767);
    GeoKeys keys = GeoKeys::read(GeoKeyBuilder(plain).text(4097, "site height").number(4099, 9002).records());
    EXPECT_THAT(keys.unreadable, IsEmpty());
    ASSERT_TRUE(keys.system);
    EXPECT_TRUE(keys.system->hasVertical());
    EXPECT_EQ(keys.system->code(), 25832U);
    EXPECT_EQ(keys.system->verticalUnit(), 9002U);
    EXPECT_THAT(keys.system->name(), HasSubstr("site height"));
    for (const auto& less :
         {plain, GeoKeyBuilder(plain).text(4097, "site height"), GeoKeyBuilder(plain).number(4099, 9002)}) {
        keys = GeoKeys::read(less.records());
        EXPECT_EQ(keys.unreadable, "a user-defined vertical system");
        ASSERT_TRUE(keys.system);
        EXPECT_EQ(keys.system->codeText(), "EPSG:25832");
    }
}

TEST(GeoKeys, SystemInAnotherUnitIsOneOfItsOwn) {
    const GeoKeys keys =
        GeoKeys::read(GeoKeyBuilder().number(1024, 1).number(3072, 25832).number(3076, 9003).records());
    EXPECT_THAT(keys.unreadable, IsEmpty());
    ASSERT_TRUE(keys.system);
    EXPECT_EQ(keys.system->unit(), 9003U);
    EXPECT_FALSE(keys.system->code());
    EXPECT_FALSE(keys.system->isEquivalentTo(ReferenceSystem::fromCode("EPSG:25832")));
}

TEST(GeoKeys, KeysThatGdalCannotReadAreNamedWithItsReason) {
    GeoKeyBuilder builder = GeoKeyBuilder::ownProjection();
    builder.text(1026, std::string(300'000, 'x'));
    EXPECT_THAT(GeoKeys::read(builder.records()).unreadable,
                AllOf(HasSubstr("a user-defined projection ("), HasSubstr("more than 262144 bytes")));
}

#endif

TEST(GeoKeys, DamagedDirectoriesAreNamedAndEmptyOnesAreNone) {
    EXPECT_FALSE(read({}).areThere);
    EXPECT_THAT(read({}).unreadable, IsEmpty());
    EXPECT_FALSE(GeoKeys::read({}).areThere);
    const std::vector<std::uint8_t> whole = directory({{1024, 1}, {3072, 25832}}).bytes;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<Sheaf::FileRecord> records{
            {"LASF_Projection",
             34735,
             "",
             {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}}};
        const GeoKeys keys = GeoKeys::read(records);
        EXPECT_TRUE(keys.areThere) << size;
        EXPECT_EQ(keys.unreadable, "a damaged directory") << size;
    }
}

TEST(GeoKeys, WrittenKeysAreReadAsTheSystem) {
    for (const char* const code : {"EPSG:4326", "EPSG:4979", "EPSG:4978", "EPSG:25832", "EPSG:25832+5783",
                                   "EPSG:31468", "EPSG:2994+6360", "EPSG:4326+5773"}) {
        const auto system = ReferenceSystem::fromCode(code);
        const auto record = GeoKeys::write(system);
        ASSERT_TRUE(record) << code;
        const std::vector<Sheaf::FileRecord> records{*record};
        const GeoKeys keys = GeoKeys::read(records);
        ASSERT_TRUE(keys.system) << code << ": " << keys.unreadable;
        EXPECT_TRUE(keys.system->isEquivalentTo(system)) << code;
    }
}

TEST(GeoKeys, SystemsWithoutCodesHaveNoKeys) {
    EXPECT_FALSE(GeoKeys::write(ReferenceSystem::fromText("LOCAL_CS[\"site\",UNIT[\"metre\",1]]")));
    std::string text = *ReferenceSystem::fromCode("EPSG:25832").esriText();
    text.replace(text.find("500000"), 6, "500001");
    EXPECT_FALSE(GeoKeys::write(ReferenceSystem::fromText(text)));
}

/// What a program says of a file; nothing where there is no such program.
std::optional<std::string> answer(const std::string& program, const std::string& arguments) {
    const Support::TemporaryFolder folder;
    if (std::system((program + " --version > /dev/null 2>&1; test $? -ne 127").c_str()) != 0)
        return std::nullopt;
    if (std::system((program + " " + arguments + " > '" + (folder / "out") + "' 2>&1").c_str()) != 0)
        return "failed: " + Support::readBytes(folder / "out");
    return Support::readBytes(folder / "out");
}

TEST(GeoKeys, OthersReadWrittenKeys) {
    const Support::TemporaryFolder folder;
    struct Said {
        std::vector<std::string> byInfo;
        std::vector<std::string> byList;
    };
    const std::vector<std::pair<std::string, Said>> systems{
        {"EPSG:4326", {{"[\"EPSG\",4326]"}, {"GCS_WGS_84"}}},
        {"EPSG:25832", {{"[\"EPSG\",25832]"}, {"Code-25832 (ETRS89 / UTM zone 32N)"}}},
        {"EPSG:25832+5783",
         {{"\"ETRS89 / UTM zone 32N\"", "\"DHHN92 height\"", "[\"EPSG\","},
          {"Code-25832", "Code-5783 (DHHN92 height)"}}},
        {"EPSG:4978", {{"geocentricX", "[\"EPSG\",6326]"}, {"ModelTypeGeocentric", "Code-4978 (WGS 84)"}}}};
    for (const auto& [code, said] : systems) {
        const auto record = GeoKeys::write(ReferenceSystem::fromCode(code));
        ASSERT_TRUE(record);
        Support::writeBytes(folder / "keys.tif",
                            Support::tiffWithKeys({record->bytes.begin(), record->bytes.end()}));
        const std::string file = "'" + (folder / "keys.tif") + "'";
        const auto info = answer("gdalinfo", "--config GTIFF_REPORT_COMPD_CS YES " + file);
        const auto list = answer("listgeo", file);
        if (!info || !list)
            GTEST_SKIP() << "no gdalinfo or listgeo: scripts/setup.sh installs them";
        for (const std::string& words : said.byInfo)
            EXPECT_THAT(*info, HasSubstr(words)) << code;
        for (const std::string& words : said.byList)
            EXPECT_THAT(*list, HasSubstr(words)) << code;
    }
}

} // namespace
} // namespace Tidewatch
