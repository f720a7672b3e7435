// SPDX-License-Identifier: Apache-2.0
#include "library/export/SideBySide.hpp"

#include "anchor/Console.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Id = std::thread::id;

/// Notes what it is told, and may stop the work.
class Watch final : public Progress {
public:
    void piece(double done, double) override { told.push_back(done); }
    void check() override {
        threads.push_back(std::this_thread::get_id());
        if (stops)
            throw std::runtime_error("stopped");
    }

    std::vector<double> told;
    std::vector<Id> threads;
    std::atomic<bool> stops = false;
};

struct ConcurrentUnits : ::testing::Test {
    SideBySide::Units units(std::size_t count) {
        SideBySide::Units made;
        made.sizes.assign(count, 1);
        made.unit = "points";
        made.write = [](std::size_t, const Anchor::StrongPtr<Progress>&) {};
        made.take = [this](std::size_t number) {
            taken.push_back(number);
            EXPECT_EQ(std::this_thread::get_id(), caller);
            return true;
        };
        return made;
    }

    Id caller = std::this_thread::get_id();
    Watch watch;
    std::vector<std::size_t> taken;
};

TEST_F(ConcurrentUnits, EachIsWrittenOnceAndTakenOnTheCallingThread) {
    for (const unsigned threads : {1U, 2U, 5U, 40U}) {
        taken.clear();
        std::vector<std::atomic<int>> written(100);
        auto work = units(written.size());
        work.write = [&](std::size_t number, const Anchor::StrongPtr<Progress>&) {
            ++written[number];
            EXPECT_NE(std::this_thread::get_id(), caller);
            EXPECT_TRUE(Progress::OnThisThread::exists());
        };
        SideBySide::run(work, threads, watch);
        for (const auto& times : written)
            EXPECT_EQ(times, 1);
        std::sort(taken.begin(), taken.end());
        std::vector<std::size_t> all(written.size());
        std::iota(all.begin(), all.end(), std::size_t{0});
        EXPECT_EQ(taken, all);
    }
    EXPECT_THAT(watch.threads, Each(caller));
    EXPECT_FALSE(Progress::OnThisThread::exists());
}

TEST_F(ConcurrentUnits, LargestIsBegunFirst) {
    auto work = units(5);
    work.sizes = {2, 9, 4, 9, 1};
    std::vector<std::size_t> begun;
    work.write = [&](std::size_t number, const Anchor::StrongPtr<Progress>&) { begun.push_back(number); };
    SideBySide::run(work, 1, watch);
    EXPECT_THAT(begun, ElementsAre(1, 3, 2, 0, 4));
}

TEST_F(ConcurrentUnits, ProgressIsThatOfAllTogether) {
    auto work = units(8);
    const auto reader = Progress::ticker(Anchor::makeStrong<Progress>());
    work.write = [&](std::size_t, const Anchor::StrongPtr<Progress>& progress) {
        progress->begin("writing", 10, "points");
        progress->piece(5, 5);
        reader("a file", 0.5);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        progress->piece(10, 0);
    };
    SideBySide::run(work, 3, watch);
    EXPECT_TRUE(std::is_sorted(watch.told.begin(), watch.told.end()));
    EXPECT_EQ(watch.told.back(), 8);
}

TEST_F(ConcurrentUnits, MessagesComeInTheOrderOfTheUnitsOnTheCallingThread) {
    auto work = units(20);
    work.write = [](std::size_t number, const Anchor::StrongPtr<Progress>&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(number % 3));
        Anchor::Console() << number;
        Anchor::Console() << number;
    };
    std::vector<std::string> expected;
    for (std::size_t number = 0; number < 20; ++number)
        expected.insert(expected.end(), 2, std::to_string(number));
    std::vector<std::string> messages;
    const auto earlier = Anchor::Console::setSink([&](std::string_view message) {
        messages.emplace_back(message);
        EXPECT_EQ(std::this_thread::get_id(), caller);
    });
    SideBySide::run(work, 4, watch);
    Anchor::Console::setSink(earlier);
    EXPECT_EQ(messages, expected);
}

TEST_F(ConcurrentUnits, ExceptionOfTheLowestNumberPassesThroughWhenAllHaveEnded) {
    auto work = units(50);
    std::atomic<int> running = 0;
    std::atomic<bool> isMet = false;
    work.write = [&](std::size_t number, const Anchor::StrongPtr<Progress>& progress) {
        struct Count {
            explicit Count(std::atomic<int>& counted) : count(counted) { ++count; }
            ~Count() { --count; }
            std::atomic<int>& count;
        } const counted(running);
        if (number == 1) {
            // Both fail, this one first.
            isMet = true;
            throw std::runtime_error("1");
        }
        if (number == 0) {
            while (!isMet)
                std::this_thread::yield();
            throw std::runtime_error("0");
        }
        for (;;)
            progress->check();
    };
    try {
        SideBySide::run(work, 4, watch);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "0");
    }
    EXPECT_EQ(running, 0);
}

TEST_F(ConcurrentUnits, HostStopsAllThatRun) {
    auto work = units(10);
    std::atomic<int> begun = 0;
    work.write = [&](std::size_t, const Anchor::StrongPtr<Progress>& progress) {
        if (++begun == 2)
            watch.stops = true;
        // As a reader does.
        for (;;)
            progress->tick("a file", 0);
    };
    EXPECT_THROW(SideBySide::run(work, 2, watch), std::runtime_error);
    EXPECT_EQ(begun, 2);
    EXPECT_THAT(taken, IsEmpty());
}

TEST_F(ConcurrentUnits, NoMoreAreBegunWhenOneIsNotTaken) {
    auto work = units(1000);
    std::atomic<int> begun = 0;
    work.write = [&](std::size_t, const Anchor::StrongPtr<Progress>& progress) {
        ++begun;
        for (int i = 0; i < 20; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            progress->check();
        }
    };
    work.take = [&](std::size_t number) {
        taken.push_back(number);
        return false;
    };
    EXPECT_NO_THROW(SideBySide::run(work, 2, watch));
    EXPECT_EQ(taken.size(), 1U);
    EXPECT_LT(begun, 1000);
}

} // namespace
} // namespace Tidewatch
