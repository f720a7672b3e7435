// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasOutput.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

LasOutput output(const std::string& text, bool uncompressed) {
    return {text, LasOutput::endsInExtension(text), uncompressed};
}

TEST(LasOutput, AnExtensionIsAddedWhereThereIsNone) {
    EXPECT_EQ(output("out/cloud", false).file(), "out/cloud.laz");
    EXPECT_EQ(output("out/cloud", true).file(), "out/cloud.las");
    EXPECT_EQ(output("cloud.", false).file(), "cloud..laz");
}

TEST(LasOutput, WhatFollowsAnotherDotBelongsToTheName) {
    EXPECT_EQ(output("out/6.5", false).file(), "out/6.5.laz");
    EXPECT_EQ(output("survey.2024/cloud", false).file(), "survey.2024/cloud.laz");
    EXPECT_EQ(output("survey.las/cloud", false).file(), "survey.las/cloud.laz");
    EXPECT_EQ(output("a.xyz", true).file(), "a.xyz.las");
}

TEST(LasOutput, TheRightExtensionStaysAsItIsSpelt) {
    EXPECT_EQ(output("out/cloud.laz", false).file(), "out/cloud.laz");
    EXPECT_EQ(output("CLOUD.LAZ", false).file(), "CLOUD.LAZ");
    EXPECT_EQ(output("Cloud.Las", true).file(), "Cloud.Las");
    EXPECT_EQ(output("a.b.las", true).file(), "a.b.las");
    EXPECT_EQ(output(".las", true).file(), ".las");
}

TEST(LasOutput, TheOtherExtensionIsReplaced) {
    EXPECT_EQ(output("out/cloud.laz", true).file(), "out/cloud.las");
    EXPECT_EQ(output("CLOUD.LAS", false).file(), "CLOUD.laz");
}

TEST(LasOutput, ANameThatOnlyLooksLikeAnExtensionIsKept) {
    EXPECT_EQ(LasOutput("x.las", false, false).file(), "x.las.laz");
    EXPECT_FALSE(LasOutput::endsInExtension("las"));
    EXPECT_FALSE(LasOutput::endsInExtension("x.lasx"));
    EXPECT_TRUE(LasOutput::endsInLas("x.LAS"));
    EXPECT_FALSE(LasOutput::endsInLas("x.laz"));
}

TEST(LasOutput, TilesAreNamedBehindTheStem) {
    EXPECT_EQ(output("x.las", true).placeOf("cloud_000001.las"), "x_000001.las");
    EXPECT_EQ(output("d/x", false).placeOf("cloud_a.b.laz"), "d/x_a.b.laz");
    EXPECT_EQ(output("d/x.LAZ", false).placeOf("cloud_a.laz"), "d/x_a.LAZ");
}

TEST(LasOutput, FilesOfTheExporterFindTheirPlaces) {
    const LasOutput plain = output("d.1/x.2", true);
    EXPECT_EQ(plain.exporterName(), "cloud.las");
    EXPECT_EQ(plain.placeOf("cloud.las"), "d.1/x.2.las");
    EXPECT_EQ(plain.placeOf("cloud_a.las"), "d.1/x.2_a.las");
    EXPECT_EQ(plain.placeOf("cloud_a.las.las"), "d.1/x.2_a.las.las");
    EXPECT_EQ(plain.placeOf("cloud_a/b.las"), "d.1/x.2_a/b.las");
    EXPECT_EQ(output("x", false).exporterName(), "cloud.laz");
}

} // namespace
} // namespace Tidewatch
