// SPDX-License-Identifier: Apache-2.0
#include "library/input/Filters.hpp"

#include "support/BundleBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

std::vector<std::string> chosen(const Sheaf::Bundle& bundle, const Filters& filters) {
    std::vector<std::string> names;
    Selection(filters).forEachGrid(bundle,
                                   [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                                       EXPECT_EQ(grid.name(), name);
                                       names.push_back(name + "@" + std::to_string(static_cast<int>(time)));
                                   });
    return names;
}

TEST(Selection, ChoosesGridsInTheOrderOfTheBundle) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder(*bundle, 1, "a");
    Support::GridBuilder(*bundle, 0, "b");
    Support::GridBuilder(*bundle, 0, "a");
    EXPECT_THAT(chosen(*bundle, {}), ::testing::ElementsAre("a@0", "b@0", "a@1"));
    EXPECT_THAT(chosen(*bundle, {{{0, 0}}, {}, {}}), ::testing::ElementsAre("a@0", "b@0"));
    EXPECT_THAT(chosen(*bundle, {{}, {"[b-z]"}, {}}), ::testing::ElementsAre("b@0"));
    EXPECT_THAT(chosen(*bundle, {{{1, 1}}, {"b"}, {}}), ::testing::IsEmpty());
}

TEST(Selection, PassesOverWhatIsGone) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder(*bundle, 0, "a");
    Support::GridBuilder(*bundle, 0, "b");
    Support::GridBuilder(*bundle, 1, "c");
    bundle->makeSlice(0)->removeGrid("a");
    bundle->removeSlice(1);
    EXPECT_THAT(chosen(*bundle, {}), ::testing::ElementsAre("b@0"));
}

TEST(Selection, HasNothingToConvert) {
    Selection selection{Filters{}};
    EXPECT_FALSE(selection.Run());
}

TEST(Filters, BecomeTheFiltersOfAConverter) {
    Selection converter(Filters{{{1, 2}}, {"g*"}, {"Pos*"}});
    EXPECT_TRUE(converter.UseThisTime(1.5));
    EXPECT_FALSE(converter.UseThisTime(2.5));
    EXPECT_TRUE(converter.UseThisGrid("g1"));
    EXPECT_FALSE(converter.UseThisGrid("h"));
    EXPECT_TRUE(converter.UseThisField("Positions"));
    EXPECT_FALSE(converter.UseThisField("Intensity"));
}

} // namespace
} // namespace Tidewatch
