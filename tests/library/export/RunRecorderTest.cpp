// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunRecorder.hpp"

#include "convlib/BasicConverterDefs.hpp"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

/// Asks its filters as exporters do, and "writes" a number of files for each grid.
class TestExporter : public ConvLib::BasicConverterDefs {
public:
    struct Ask {
        double time;
        std::string grid;
        std::size_t files;
    };

    bool Run() override {
        for (const Ask& ask : asks) {
            if (!UseThisTime(ask.time) || !UseThisGrid(ask.grid))
                continue;
            takeUpGrid(ask.time, ask.grid);
            seen.push_back(ask.grid);
            if (UseThisField("Positions"))
                seen.emplace_back("Positions");
            for (std::size_t number = 0; number < ask.files; ++number) {
                if (Observer())
                    Observer()->fragmentBegins("Positions", "empty", 1);
                if (Observer())
                    Observer()->fragmentBegins("Positions", std::to_string(number), 1);
                recordWrittenFile({ask.grid, 1, 1, false});
            }
        }
        return true;
    }

    std::vector<Ask> asks;
    std::vector<std::string> seen;
};

/// Runs an exporter under a recorder.
struct Recorded {
    explicit Recorded(std::vector<TestExporter::Ask> asks, RunScope scope = {},
                      Anchor::StrongPtr<Progress> progress = {})
        : recorder(Anchor::makeStrong<RunRecorder>(std::move(scope), std::move(progress))) {
        exporter.asks = std::move(asks);
    }
    void run() {
        recorder->follow(exporter);
        EXPECT_TRUE(exporter.Run());
        recorder->finish(exporter.writtenFiles());
    }

    Anchor::StrongPtr<RunRecorder> recorder;
    TestExporter exporter;
};

TEST(RunRecorder, LearnsWhichGridBecameWhichFiles) {
    Recorded recorded({{0, "a", 1}, {0, "b", 0}, {1, "a", 2}});
    recorded.run();
    const auto& grids = recorded.recorder->grids();
    ASSERT_EQ(grids.size(), 3U);
    EXPECT_EQ(grids[0].time, 0);
    EXPECT_EQ(grids[0].name, "a");
    EXPECT_EQ(std::pair(grids[0].firstFile, grids[0].endFile), std::pair(std::size_t{0}, std::size_t{1}));
    EXPECT_FALSE(grids[1].hasFiles());
    EXPECT_EQ(grids[2].time, 1);
    EXPECT_EQ(std::pair(grids[2].firstFile, grids[2].endFile), std::pair(std::size_t{1}, std::size_t{3}));
}

TEST(RunRecorder, LearnsWhichFragmentBecameWhichFiles) {
    Recorded recorded({{0, "a", 2}, {0, "b", 1}});
    recorded.run();
    std::vector<std::string> seen;
    for (const ExportedGrid& grid : recorded.recorder->grids()) {
        for (const ExportedGrid::Fragment& fragment : grid.fragments)
            seen.push_back(grid.name + " " + fragment.field + " " + fragment.fragment + " " +
                           std::to_string(fragment.firstFile) + " " + std::to_string(fragment.endFile));
    }
    EXPECT_THAT(seen,
                ::testing::ElementsAre("a Positions empty 0 0", "a Positions 0 0 1", "a Positions empty 1 1",
                                       "a Positions 1 1 2", "b Positions empty 2 2", "b Positions 0 2 3"));
}

TEST(RunRecorder, TheExportersOwnFiltersStillHold) {
    Recorded recorded({{0, "a", 1}, {0, "b", 1}, {1, "b", 1}});
    recorded.exporter.GridFilter = {"b"};
    recorded.exporter.FieldFilter = {"Intensity"};
    recorded.exporter.TimeFilter = {{0, 0}};
    recorded.run();
    EXPECT_THAT(recorded.exporter.seen, ::testing::ElementsAre("b"));
}

TEST(RunRecorder, AddsUpHowValuesChanged) {
    using ConvLib::ValueChange;
    const auto recorder = Anchor::makeStrong<RunRecorder>(RunScope{}, nullptr);
    recorder->gridBegins(0, "a");
    recorder->valuesChanged({"Positions", ValueChange::Rounded, 3, 10, 0.5});
    recorder->valuesChanged({"Positions", ValueChange::Rounded, 1, 10, 0.25});
    recorder->gridBegins(0, "b");
    const ExportedGrid& a = recorder->grids()[0];
    EXPECT_EQ(a.changed("Positions", ValueChange::Rounded).count, 4U);
    EXPECT_EQ(a.changed("Positions", ValueChange::Rounded).total, 20U);
    EXPECT_EQ(a.changed("Positions", ValueChange::Rounded).most, 0.5);
    EXPECT_EQ(a.changed("Positions", ValueChange::Wrapped).count, 0U);
    EXPECT_EQ(recorder->grids()[1].changed("Positions", ValueChange::Rounded).count, 0U);
}

struct Stopped {};

class Stopping final : public Progress {
public:
    void check() override { throw Stopped(); }
};

TEST(RunRecorder, PassesTheStopQuestionOnToTheProgressObject) {
    Recorded recorded({{0, "a", 1}}, {}, Anchor::makeStrong<Stopping>());
    recorded.recorder->follow(recorded.exporter);
    EXPECT_THROW(recorded.exporter.askWhetherToStop(), Stopped);
    EXPECT_THROW(recorded.exporter.Run(), Stopped);
}

} // namespace
} // namespace Tidewatch
