// SPDX-License-Identifier: Apache-2.0
#include "host/Losses.hpp"

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

} // namespace
} // namespace Tidewatch
