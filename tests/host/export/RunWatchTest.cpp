// SPDX-License-Identifier: Apache-2.0
#include "host/export/RunWatch.hpp"

#include "host/Interruption.hpp"
#include "host/export/Guarded.hpp"

#include <csignal>
#include <cstdlib>
#include <utility>

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
            seen.push_back(ask.grid);
            if (UseThisField("Positions"))
                seen.emplace_back("Positions");
            for (std::size_t number = 0; number < ask.files; ++number)
                recordWrittenFile({ask.grid, 1, 1, false});
        }
        return true;
    }

    std::vector<Ask> asks;
    std::vector<std::string> seen;
};

class ListeningWatch final : public RunWatch {
public:
    using RunWatch::RunWatch;
    std::vector<std::string> heard;

protected:
    void onGrid() override { heard.push_back("grid " + visits().back().grid); }
    void onField(const std::string& field) override { heard.push_back("field " + field); }
    void onEnd() override { heard.emplace_back("end"); }
};

TEST(RunWatch, LearnsWhichGridBecameWhichFiles) {
    RunWatch watch({});
    Guarded<TestExporter> exporter(watch);
    exporter.asks = {{0, "a", 1}, {0, "b", 0}, {1, "a", 2}};
    EXPECT_TRUE(exporter.Run());
    watch.finish(exporter.writtenFiles().size());
    const auto& visits = watch.visits();
    ASSERT_EQ(visits.size(), 3U);
    EXPECT_EQ(visits[0].time, 0);
    EXPECT_EQ(visits[0].grid, "a");
    EXPECT_EQ(std::pair(visits[0].firstFile, visits[0].endFile), std::pair(std::size_t{0}, std::size_t{1}));
    EXPECT_FALSE(visits[1].hasFiles());
    EXPECT_EQ(visits[2].time, 1);
    EXPECT_EQ(std::pair(visits[2].firstFile, visits[2].endFile), std::pair(std::size_t{1}, std::size_t{3}));
}

TEST(RunWatch, NarrowsTheRunToItsScope) {
    RunWatch watch({1.0, "a", "x"});
    Guarded<TestExporter> exporter(watch);
    exporter.asks = {{0, "a", 1}, {1, "b", 1}, {1, "a", 1}};
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.seen, ::testing::ElementsAre("a", "Positions"));
    EXPECT_EQ(watch.visits().size(), 1U);
}

TEST(RunWatch, TheExportersOwnFiltersStillHold) {
    RunWatch watch({});
    Guarded<TestExporter> exporter(watch);
    exporter.GridFilter = {"b"};
    exporter.FieldFilter = {"Intensity"};
    exporter.TimeFilter = {{0, 0}};
    exporter.asks = {{0, "a", 1}, {0, "b", 1}, {1, "b", 1}};
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.seen, ::testing::ElementsAre("b"));
}

TEST(RunWatch, TellsOfGridsFieldsAndTheEnd) {
    ListeningWatch watch(RunScope{});
    Guarded<TestExporter> exporter(watch);
    exporter.GridFilter = {"a"};
    exporter.asks = {{0, "a", 1}, {0, "b", 1}};
    EXPECT_TRUE(exporter.Run());
    watch.finish(1);
    EXPECT_THAT(watch.heard, ::testing::ElementsAre("grid a", "field Positions", "end"));
}

TEST(RunWatch, EveryQuestionStopsOnceTheUserWantsTo) {
    EXPECT_EXIT(
        {
            RunWatch watch({});
            Guarded<TestExporter> exporter(watch);
            Interruption::install();
            std::raise(SIGINT);
            int stopped = 0;
            const auto count = [&](auto call) {
                try {
                    call();
                } catch (const Interrupted&) {
                    ++stopped;
                }
            };
            count([&] { (void)exporter.UseThisTime(0); });
            count([&] { (void)exporter.UseThisGrid("a"); });
            count([&] { (void)exporter.UseThisField("Positions"); });
            std::_Exit(stopped);
        },
        ::testing::ExitedWithCode(3), "");
}

} // namespace
} // namespace Tidewatch
