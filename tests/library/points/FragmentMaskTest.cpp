// SPDX-License-Identifier: Apache-2.0
#include "library/points/FragmentMask.hpp"

#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

std::vector<std::size_t> members(const ElementSet& set) {
    std::vector<std::size_t> found;
    set.forEach([&](std::size_t number) { found.push_back(number); });
    return found;
}

TEST(ElementSet, HoldsAllNumbersBelowItsSize) {
    for (const std::size_t size : {0U, 1U, 63U, 64U, 65U, 128U, 1000U}) {
        const ElementSet set(size);
        EXPECT_EQ(set.count(), size);
        EXPECT_EQ(members(set).size(), size);
    }
}

TEST(ElementSet, NarrowedTwiceItHoldsWhatBothAdmit) {
    std::mt19937 random(5);
    for (const std::size_t size : {1U, 64U, 200U, 4097U}) {
        std::vector<bool> first(size);
        std::vector<bool> second(size);
        for (std::size_t i = 0; i < size; ++i) {
            first[i] = random() % 3 != 0;
            second[i] = random() % 4 == 0;
        }
        ElementSet set(size);
        set.narrow([&](std::size_t i) { return first[i]; });
        set.narrow([&](std::size_t i) {
            EXPECT_TRUE(first[i]) << "asked for a number that is not a member";
            return second[i];
        });
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < size; ++i) {
            if (first[i] && second[i])
                expected.push_back(i);
        }
        EXPECT_EQ(members(set), expected);
        EXPECT_EQ(set.count(), expected.size());
    }
}

TEST(FragmentMask, TestsRunOnceAndWhenFirstNeeded) {
    int calls = 0;
    const FragmentMask mask(10, {[&](ElementSet& chosen) {
                                ++calls;
                                chosen.narrow([](std::size_t i) { return i % 2 == 0; });
                            }});
    EXPECT_EQ(mask.knownCount(), std::nullopt);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(mask.chosen().count(), 5U);
    EXPECT_EQ(mask.chosen().count(), 5U);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(mask.knownCount(), 5U);
}

TEST(FragmentMask, AfterAnErrorTestsAreAskedAgain) {
    bool fails = true;
    const FragmentMask mask(3, {[&](ElementSet&) {
                                if (fails)
                                    throw std::runtime_error("no");
                            }});
    EXPECT_THROW(static_cast<void>(mask.chosen()), std::runtime_error);
    EXPECT_EQ(mask.knownCount(), std::nullopt);
    fails = false;
    EXPECT_EQ(mask.chosen().count(), 3U);
}

} // namespace
} // namespace Tidewatch
