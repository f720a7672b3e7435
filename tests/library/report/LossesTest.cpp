// SPDX-License-Identifier: Apache-2.0
#include "library/report/Losses.hpp"

#include "anchor/StrongPtr.hpp"

#include <utility>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

class TestReport final : public ConvLib::InputReport {
public:
    explicit TestReport(std::vector<std::string> lost) : lost_(std::move(lost)) {}
    std::string file() const override { return "a.laz"; }
    std::string kind() const override { return "test"; }
    std::string grid() const override { return "a"; }
    std::vector<std::string> notCarried() const override { return lost_; }
    std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override { return std::nullopt; }

private:
    std::vector<std::string> lost_;
};

TEST(Losses, NoneGiveAnEmptyList) {
    EXPECT_TRUE(Losses().list("PCD").empty());
}

TEST(Losses, FieldsBecomeOneEntryInOrderOfTheirNames) {
    Losses losses;
    losses.add("count", "later");
    losses.addField("RGB");
    losses.addField("GPSTime");
    losses.addField("RGB");
    const auto list = losses.list("PCD");
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].kind, "fields");
    EXPECT_EQ(list[0].message, "PCD does not carry the fields GPSTime, RGB");
    EXPECT_EQ(list[1].kind, "count");
    EXPECT_EQ(list[1].message, "later");
}

TEST(Losses, PropertiesOfAnInputBecomeOneEntry) {
    Losses losses;
    losses.addProperties(*Anchor::makeStrong<TestReport>(std::vector<std::string>{"a system", "flags"}));
    losses.addProperties(*Anchor::makeStrong<TestReport>(std::vector<std::string>{}));
    const auto list = losses.list("PCD");
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0].kind, "properties");
    EXPECT_EQ(list[0].message, "a.laz: not carried: a system, flags");
}

TEST(Losses, WhatIsSaidOfSeveralGridsInTheSameWordsIsOneEntry) {
    Losses losses;
    losses.addOf("a", "shift", "it moves");
    losses.addOf("a", "range", "it moves");
    losses.add("shift", "it moves");
    losses.addOf("b", "shift", "it moves");
    losses.addOf("b", "shift", "it stays");
    for (const char* const where : {"c", "d", "e"})
        losses.addOf(where, "range", "it moves");
    std::vector<std::pair<std::string, std::string>> entries;
    for (const Loss& loss : losses.list("PCD"))
        entries.emplace_back(loss.kind, loss.message);
    EXPECT_EQ(entries,
              (std::vector<std::pair<std::string, std::string>>{{"shift", "a, b: it moves"},
                                                                {"range", "a, c, d and 1 more: it moves"},
                                                                {"shift", "it moves"},
                                                                {"shift", "b: it stays"}}));
}

TEST(LossPolicy, ShowsThreeOfAKindAndHowManyMoreThereAre) {
    std::vector<Loss> losses;
    for (int i = 0; i < 5; ++i)
        losses.push_back({"range", "range " + std::to_string(i)});
    for (int i = 0; i < 3; ++i)
        losses.push_back({"count", "count " + std::to_string(i)});
    losses.push_back({"units", "accepted"});
    LossPolicy policy;
    policy.accepted = {"units"};
    std::vector<std::string> shown;
    for (const Loss& loss : policy.shown(losses, "; see there"))
        shown.push_back(loss.kind + ": " + loss.message);
    EXPECT_EQ(shown, (std::vector<std::string>{"range: range 0", "range: range 1",
                                               "range: ... and 3 more of kind range; see there",
                                               "count: count 0", "count: count 1", "count: count 2"}));
}

} // namespace
} // namespace Tidewatch
