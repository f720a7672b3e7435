// SPDX-License-Identifier: Apache-2.0
#include "library/crs/ReferenceSystem.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using Kind = ReferenceSystem::Kind;

TEST(ReferenceSystem, CodesNameASystemAndItsParts) {
    const auto system = ReferenceSystem::fromCode("EPSG:25832+5783");
    EXPECT_EQ(system.name(), "ETRS89 / UTM zone 32N + DHHN92 height");
    EXPECT_EQ(system.code(), 25832U);
    EXPECT_EQ(system.verticalCode(), 5783U);
    EXPECT_TRUE(system.hasVertical());
    EXPECT_EQ(system.kind(), Kind::Projected);
    EXPECT_EQ(system.codeText(), "EPSG:25832+5783");
    EXPECT_EQ(system.title(), "ETRS89 / UTM zone 32N + DHHN92 height (EPSG:25832+5783)");
}

TEST(ReferenceSystem, KindsAreToldApart) {
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:4326").kind(), Kind::Geographic);
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:4979").kind(), Kind::Geographic3D);
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:4978").kind(), Kind::Geocentric);
    EXPECT_EQ(ReferenceSystem::fromText("LOCAL_CS[\"site\",UNIT[\"metre\",1]]").kind(), Kind::Local);
    EXPECT_FALSE(ReferenceSystem::fromCode("EPSG:4326").hasVertical());
}

TEST(ReferenceSystem, TextsOfEachKindAreReadBackAsTheSystem) {
    const auto system = ReferenceSystem::fromCode("EPSG:31468");
    for (const auto& text : {system.ogcText(), system.esriText(), system.isoText()}) {
        ASSERT_TRUE(text);
        EXPECT_TRUE(ReferenceSystem::fromText(*text).isEquivalentTo(system)) << *text;
    }
    EXPECT_THAT(*system.ogcText(), StartsWith("PROJCS["));
    EXPECT_THAT(*system.isoText(), StartsWith("PROJCRS["));
}

TEST(ReferenceSystem, OlderTextsCannotSayAllSystems) {
    EXPECT_FALSE(ReferenceSystem::fromCode("EPSG:4979").ogcText());
    EXPECT_FALSE(ReferenceSystem::fromCode("EPSG:4978").esriText());
    EXPECT_TRUE(ReferenceSystem::fromCode("EPSG:4979").isoText());
}

TEST(ReferenceSystem, OrderOfAxesDoesNotCount) {
    // EPSG has northings first here, the text has them last.
    const auto system = ReferenceSystem::fromCode("EPSG:3035");
    const std::string text = *system.ogcText();
    std::string turned = text;
    const std::size_t axes = turned.find(",AXIS[");
    const std::size_t end = turned.find(",AUTHORITY[\"EPSG\",\"3035\"");
    ASSERT_NE(end, std::string::npos);
    turned.replace(std::min(axes, end), end - std::min(axes, end),
                   ",AXIS[\"Easting\",EAST],AXIS[\"Northing\",NORTH]");
    EXPECT_TRUE(ReferenceSystem::fromText(turned).isEquivalentTo(system));
    EXPECT_FALSE(ReferenceSystem::fromCode("EPSG:25832").isEquivalentTo(system));
    EXPECT_FALSE(
        ReferenceSystem::fromCode("EPSG:25832").isEquivalentTo(ReferenceSystem::fromCode("EPSG:25832+5783")));
}

TEST(ReferenceSystem, CodeThatATextDoesNotStateIsLookedUp) {
    std::string text = *ReferenceSystem::fromCode("EPSG:25832").esriText();
    EXPECT_THAT(text, ::testing::Not(HasSubstr("25832")));
    EXPECT_EQ(ReferenceSystem::fromText(text).code(), 25832U);
    text.replace(text.find("500000"), 6, "500001");
    EXPECT_EQ(ReferenceSystem::fromText(text).code(), std::nullopt);
    EXPECT_EQ(ReferenceSystem::fromText(text).codeText(), "");
}

TEST(ReferenceSystem, UnitsAreThoseOfTheAxes) {
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:25832").unit(), 9001U);
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:2994").unit(), 9002U);
    EXPECT_EQ(ReferenceSystem::fromCode("EPSG:2994+6360").verticalUnit(), 9003U);
}

TEST(ReferenceSystem, AttachedTransformationIsNotPartOfASystem) {
    std::string text = *ReferenceSystem::fromCode("EPSG:31468").ogcText();
    const std::size_t place = text.find(",AUTHORITY[\"EPSG\",\"6314\"]");
    ASSERT_NE(place, std::string::npos);
    text.insert(place, ",TOWGS84[598.1,73.7,418.2,0.202,0.045,-2.455,6.7]");
    EXPECT_EQ(ReferenceSystem::fromText(text).code(), 31468U);
}

TEST(ReferenceSystem, WhatIsNoSystemIsRefused) {
    for (const char* const text : {"", "PROJCS[", "no system", "VERT_DATUM[\"x\",2005]"})
        EXPECT_THROW(static_cast<void>(ReferenceSystem::fromText(text)), Anchor::FormatError) << text;
    for (const char* const code : {"", "25832", "EPSG:", ":1", "EPSG:25832+", "+proj=longlat", "epsg:25832",
                                   "EPSG:99999999", "EPSG:25832+4326", "EPSG:25832+5783+5783"})
        EXPECT_THROW(static_cast<void>(ReferenceSystem::fromCode(code)), Anchor::FormatError) << code;
    EXPECT_THROW(static_cast<void>(ReferenceSystem::fromText(std::string(2'000'000, '['))),
                 Anchor::FormatError);
}

TEST(ReferenceSystem, NothingIsSaidOnStandardError) {
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(ReferenceSystem::fromCode("EPSG:4979").ogcText());
    EXPECT_THROW(static_cast<void>(ReferenceSystem::fromText("PROJCS[")), Anchor::FormatError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

} // namespace
} // namespace Tidewatch
