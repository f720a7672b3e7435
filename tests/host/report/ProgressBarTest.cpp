// SPDX-License-Identifier: Apache-2.0
#include "host/report/ProgressBar.hpp"

#include "host/Interruption.hpp"

#include <csignal>
#include <cstdio>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(ProgressLine, ShowsWhatIsKnown) {
    EXPECT_EQ(progressLine({"reading", std::nullopt, std::nullopt, "", std::nullopt}), "reading");
    EXPECT_EQ(progressLine({"reading", 0.25, std::nullopt, "", std::nullopt}),
              "reading [######------------------]  25 %");
    EXPECT_EQ(progressLine({"reading", 0.5, 3.21e6, "points", 61.2}),
              "reading [############------------]  50 %  3.2 M points/s  1:02 left");
}

TEST(ProgressLine, SharesStayInsideTheBar) {
    EXPECT_EQ(progressLine({"x", 0.0, {}, "", {}}), "x [------------------------]   0 %");
    EXPECT_EQ(progressLine({"x", 1.0, {}, "", {}}), "x [########################] 100 %");
    EXPECT_EQ(progressLine({"x", 1.5, {}, "", {}}), "x [########################] 100 %");
    EXPECT_EQ(progressLine({"x", -1.0, {}, "", {}}), "x [------------------------]   0 %");
}

TEST(ProgressLine, RatesAndTimesHaveFittingUnits) {
    EXPECT_EQ(progressLine({"x", {}, 12.0, "items", 0.0}), "x  12.0 items/s  0:00 left");
    EXPECT_EQ(progressLine({"x", {}, 12345.0, "items", 3661.0}), "x  12.3 k items/s  1:01:01 left");
}

class ProgressBarTest : public ::testing::Test {
protected:
    Anchor::StrongPtr<ProgressBar> make(ProgressMode wish) {
        return Anchor::makeStrong<ProgressBar>(wish, messages_, [this] { return now_; });
    }
    std::string shown() {
        std::fflush(stream_.get());
        std::rewind(stream_.get());
        std::string text;
        for (int character = std::fgetc(stream_.get()); character != EOF;
             character = std::fgetc(stream_.get()))
            text += static_cast<char>(character);
        return text;
    }

    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> stream_{std::tmpfile()};
    Messages messages_{Messages::Verbosity::Normal, stream_.get()};
    ProgressBar::Clock::time_point now_{};
};

TEST_F(ProgressBarTest, AutomaticShowsNothingInAFile) {
    const auto bar = make(ProgressMode::Automatic);
    bar->begin("reading", 10, "points");
    bar->piece(0, 10);
    bar->tick("a", 0.5);
    bar->end();
    EXPECT_EQ(shown(), "");
}

TEST_F(ProgressBarTest, AlwaysShowsLinesInAFileThrottledByTheClock) {
    const auto bar = make(ProgressMode::Always);
    bar->begin("reading", 100, "points");
    bar->piece(0, 50);
    for (int tenth = 1; tenth <= 25; ++tenth) {
        now_ += std::chrono::milliseconds(100);
        bar->tick("a", tenth / 25.0);
    }
    bar->end();
    EXPECT_EQ(shown(), "reading [------------------------]   0 %\n"
                       "reading [####--------------------]  20 %  20.0 points/s  0:04 left\n"
                       "reading [#########---------------]  40 %  20.0 points/s  0:03 left\n"
                       "reading [########################] 100 %  40.0 points/s  0:00 left\n");
}

TEST_F(ProgressBarTest, ANewTextIsShownAtOnce) {
    const auto bar = make(ProgressMode::Always);
    bar->begin("reading", 2, "points");
    bar->piece(1, 1);
    bar->say("writing");
    EXPECT_THAT(shown(), ::testing::EndsWith("writing [############------------]  50 %\n"));
}

TEST_F(ProgressBarTest, WaitingIsSaidWithoutABarToo) {
    make(ProgressMode::Never)->waits("waiting for others");
    EXPECT_EQ(shown(), "tidewatch: waiting for others\n");
    make(ProgressMode::Always)->waits("waiting again");
    EXPECT_THAT(shown(), ::testing::HasSubstr("\nwaiting again"));
}

TEST_F(ProgressBarTest, WithoutBegunWorkAFileIsTheWork) {
    const auto bar = make(ProgressMode::Always);
    Progress::ticker(bar)("a.laz", 0.5);
    EXPECT_EQ(shown(), "reading a.laz [############------------]  50 %\n");
}

TEST_F(ProgressBarTest, WorkOfNoSizeIsDoneAtTheEnd) {
    const auto bar = make(ProgressMode::Always);
    bar->begin("reading", 0, "points");
    bar->piece(0, 0);
    bar->end();
    EXPECT_EQ(shown(),
              "reading [------------------------]   0 %\nreading [########################] 100 %\n");
}

TEST_F(ProgressBarTest, PartsFillTheBarOneAfterTheOther) {
    const auto bar = make(ProgressMode::Always);
    bar->part(0, 0.25);
    bar->tick("a", 1);
    bar->part(0.25, 0.75);
    bar->begin("writing", 10, "points");
    bar->piece(5, 5);
    bar->say("checking");
    bar->part(0.75, 1);
    bar->begin("placing", 2, "files");
    bar->end();
    EXPECT_EQ(shown(), "reading a [######------------------]  25 %\n"
                       "writing [######------------------]  25 %\n"
                       "checking [############------------]  50 %\n"
                       "placing [##################------]  75 %\n"
                       "placing [########################] 100 %\n");
}

TEST_F(ProgressBarTest, WorkThatGoesOnIsNeverAtItsEnd) {
    const auto bar = make(ProgressMode::Always);
    bar->begin("writing", 10, "points");
    bar->piece(10, 0);
    bar->say("closing");
    EXPECT_THAT(shown(), ::testing::EndsWith("closing [#######################-]  99 %\n"));
}

TEST_F(ProgressBarTest, TheShareNeverFalls) {
    const auto bar = make(ProgressMode::Always);
    bar->begin("reading", 10, "points");
    bar->piece(5, 5);
    bar->say("reading again");
    bar->begin("writing", 10, "points");
    EXPECT_THAT(shown(), ::testing::EndsWith("writing [############------------]  50 %\n"));
}

TEST_F(ProgressBarTest, TheTimeLeftIsThatOfTheWholeRun) {
    const auto bar = make(ProgressMode::Always);
    bar->part(0, 0.5);
    bar->begin("reading", 100, "points");
    now_ += std::chrono::seconds(10);
    bar->piece(50, 0);
    EXPECT_THAT(shown(),
                ::testing::EndsWith("reading [######------------------]  25 %  5.0 points/s  0:30 left\n"));
}

// Each interruption test runs in its own process, since a request to stop cannot be taken back.

TEST_F(ProgressBarTest, EveryCallStopsOnceTheUserWantsTo) {
    EXPECT_EXIT(
        {
            const auto bar = make(ProgressMode::Never);
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
            count([&] { bar->check(); });
            count([&] { bar->begin("x", 1, "points"); });
            count([&] { bar->piece(0, 1); });
            count([&] { bar->say("y"); });
            count([&] { bar->tick("file", 0.5); });
            std::_Exit(stopped);
        },
        ::testing::ExitedWithCode(5), "");
}

} // namespace
} // namespace Tidewatch
