// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Grid.hpp"
#include "support/inTwoThreads.hpp"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Exporters make the standard chart in grids that others may be reading.
TEST(ConcurrentCharts, TwoThreadsThatMakeAndFindChartsGetTheSameOnes) {
    const auto grid = Anchor::makeStrong<Sheaf::Grid>("g");
    std::array<std::vector<Anchor::StrongPtr<Sheaf::BaseSpace>>, 2> made;
    std::array<std::size_t, 2> found{};
    Support::inTwoThreads([&](std::size_t thread) {
        for (int number = 0; number < 500; ++number) {
            const std::string name = std::to_string(number);
            made[thread].push_back(grid->makeCartesianChart(name, 0));
            found[thread] += grid->findCartesianChart(name) ? 1U : 0U;
            EXPECT_FALSE(grid->findCartesianChart("")) << "no representation uses a chart";
        }
    });
    EXPECT_EQ(made[0], made[1]);
    EXPECT_EQ(found[0], 500U);
    EXPECT_EQ(found[1], 500U);
}

} // namespace
