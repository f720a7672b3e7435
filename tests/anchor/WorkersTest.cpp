// SPDX-License-Identifier: Apache-2.0
#include "anchor/Workers.hpp"

#include "support/ThreadWorkers.hpp"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Anchor::runPieces;
using Support::threadWorkers;

std::string failureOf(Anchor::Workers* workers, std::size_t pieces,
                      const std::function<void(std::size_t)>& piece,
                      const std::function<void()>& between = {}) {
    try {
        runPieces(workers, pieces, piece, between);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

TEST(Workers, EachPieceIsCalledOnceWhateverTheirNumber) {
    for (const unsigned count : {1U, 2U, 3U, 16U}) {
        const auto workers = threadWorkers(count);
        EXPECT_EQ(Anchor::workerCount(workers.get()), count);
        for (const std::size_t pieces : {0U, 1U, 2U, 1000U}) {
            std::vector<std::atomic<int>> calls(pieces);
            runPieces(workers.get(), pieces, [&](std::size_t i) { ++calls[i]; });
            for (const auto& number : calls)
                EXPECT_EQ(number, 1);
        }
    }
}

TEST(Workers, WithoutWorkersPiecesRunInOrderOnTheCallingThread) {
    std::vector<std::size_t> order;
    const std::thread::id caller = std::this_thread::get_id();
    runPieces(nullptr, 5, [&](std::size_t i) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        order.push_back(i);
    });
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
}

TEST(Workers, TheFailureOfTheFirstFailingPiecePassesThrough) {
    for (const unsigned count : {1U, 2U, 16U}) {
        const auto workers = threadWorkers(count);
        for (int round = 0; round < 50; ++round) {
            const auto piece = [](std::size_t i) {
                // The later one usually fails first.
                if (i == 7)
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                if (i == 7 || i == 9)
                    throw std::runtime_error(std::to_string(i));
            };
            ASSERT_EQ(failureOf(workers.get(), 40, piece), "7");
        }
    }
}

TEST(Workers, QuestionsBetweenPiecesAreAskedOnTheCallingThreadAndMayStop) {
    const auto workers = threadWorkers(3);
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<std::size_t> pieces = 0;
    std::size_t questions = 0;
    const auto piece = [&](std::size_t) {
        ++pieces;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    };
    EXPECT_EQ(failureOf(workers.get(), 100'000, piece,
                        [&] {
                            EXPECT_EQ(std::this_thread::get_id(), caller);
                            if (++questions == 3)
                                throw std::runtime_error("stop");
                        }),
              "stop");
    EXPECT_EQ(questions, 3U);
    EXPECT_LT(pieces, 100'000U);
}

} // namespace
