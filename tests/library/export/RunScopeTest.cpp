// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunScope.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "support/BundleBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

class PlanRuns : public ::testing::Test {
protected:
    PlanRuns() : bundle_(Anchor::makeStrong<Sheaf::Bundle>()) {}

    std::vector<RunScope> plan(const std::string& pattern, const Filters& filters = {}) {
        return planRuns(OutputPattern(pattern), Selection(filters), Inputs(bundle_));
    }
    void add(double time, const std::string& grid) { Support::GridBuilder(*bundle_, time, grid); }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
};

std::vector<std::string> outputs(const std::vector<RunScope>& runs) {
    std::vector<std::string> names;
    for (const RunScope& run : runs)
        names.push_back(run.output);
    return names;
}

std::vector<std::string> grids(const RunScope& run) {
    std::vector<std::string> names;
    Selection(Filters{}).forEachGrid(*run.bundle,
                                     [&](double time, const std::string& name, const Sheaf::Grid&) {
                                         names.push_back(name + " at " + shortestText(time));
                                     });
    return names;
}

TEST_F(PlanRuns, APlainOutputIsOneRunOfEverything) {
    add(0, "a");
    add(1, "b");
    const auto runs = plan("x.pcd");
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs[0].output, "x.pcd");
    EXPECT_THAT(grids(runs[0]), ::testing::ElementsAre("a at 0", "b at 1"));
}

TEST_F(PlanRuns, GridsGetARunEachWhateverTheirTimes) {
    add(0, "a");
    add(0, "b");
    add(1, "a");
    const auto runs = plan("{grid}.pcd");
    EXPECT_THAT(outputs(runs), ::testing::ElementsAre("a.pcd", "b.pcd"));
    EXPECT_THAT(grids(runs[0]), ::testing::ElementsAre("a at 0", "a at 1"));
    EXPECT_THAT(grids(runs[1]), ::testing::ElementsAre("b at 0"));
}

TEST_F(PlanRuns, TimesGetARunEachWhateverTheirGrids) {
    add(0, "a");
    add(0, "b");
    add(0.5, "a");
    const auto runs = plan("t{time}.pcd");
    EXPECT_THAT(outputs(runs), ::testing::ElementsAre("t0.pcd", "t0.5.pcd"));
    EXPECT_THAT(grids(runs[0]), ::testing::ElementsAre("a at 0", "b at 0"));
    EXPECT_THAT(grids(runs[1]), ::testing::ElementsAre("a at 0.5"));
}

TEST_F(PlanRuns, BothGiveARunForEachGridAtATime) {
    add(0, "a");
    add(0, "b");
    add(1, "a");
    EXPECT_THAT(outputs(plan("{grid}-{time}")), ::testing::ElementsAre("a-0", "b-0", "a-1"));
}

TEST_F(PlanRuns, FiltersLeaveRunsOut) {
    add(0, "a");
    add(0, "b");
    add(1, "a");
    EXPECT_THAT(outputs(plan("{grid}-{time}", {{{1, 2}}, {}, {}})), ::testing::ElementsAre("a-1"));
    EXPECT_THAT(outputs(plan("{grid}-{time}", {{}, {"b*"}, {}})), ::testing::ElementsAre("b-0"));
    EXPECT_THAT(outputs(plan("{grid}", {{}, {"c"}, {}})), ::testing::IsEmpty());
}

TEST_F(PlanRuns, TwoRunsOfOneNameAreAnErrorThatNamesBoth) {
    add(10, "a");
    add(0, "a1");
    try {
        (void)plan("{grid}{time}.pcd");
        FAIL() << "no error";
    } catch (const Anchor::FileError& error) {
        EXPECT_STREQ(error.what(),
                     "a10.pcd: both grid \"a1\" at time 0 and grid \"a\" at time 10 get this name");
    }
}

TEST_F(PlanRuns, NamesThatDifferInSpellingOnlyAreOneName) {
    add(0, "a");
    add(0, "b");
    EXPECT_THROW((void)plan("out/{grid}/../x.pcd"), Anchor::FileError);
}

TEST_F(PlanRuns, AnUnfitGridNameIsRefusedBeforeAnyWork) {
    add(0, "../../etc");
    EXPECT_THROW((void)plan("{grid}.pcd"), Anchor::FormatError);
}

} // namespace
} // namespace Tidewatch
