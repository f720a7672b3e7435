// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cache.hpp"

#include "anchor/WeakPtr.hpp"

#include <array>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

class Block final : public Anchor::Cacheable {
public:
    explicit Block(std::uint64_t size) : size_(size) {}
    [[nodiscard]] std::uint64_t byteSize() const noexcept override { return size_; }

private:
    std::uint64_t size_;
};

using Data = Anchor::StrongPtr<Anchor::Cacheable>;

Data block(std::uint64_t size) {
    return Anchor::makeStrong<Block>(size);
}

const std::array<char, 16> keys{};

Anchor::Cache::Key key(std::size_t number) {
    return &keys.at(number);
}

void publish(Anchor::Cache& cache, std::size_t number, Data data) {
    const std::array entries{Anchor::Cache::Entry{key(number), std::move(data)}};
    cache.publish(entries);
}

TEST(Cache, CountsTheBytesThatItHolds) {
    Anchor::Cache cache;
    publish(cache, 0, block(100));
    publish(cache, 1, block(50));
    EXPECT_EQ(cache.bytesInUse(), 150U);
    cache.forget(key(0));
    EXPECT_EQ(cache.bytesInUse(), 50U);
    EXPECT_FALSE(cache.find(key(0)));
    EXPECT_TRUE(cache.find(key(1)));
}

TEST(Cache, NewCacheHasALimitOf512MiB) {
    EXPECT_EQ(Anchor::Cache().limit(), 536870912U);
}

TEST(Cache, OverTheLimitDropsTheLeastRecentlyUsed) {
    Anchor::Cache cache;
    cache.setLimit(100);
    publish(cache, 0, block(40));
    publish(cache, 1, block(40));
    EXPECT_TRUE(cache.find(key(0)));
    publish(cache, 2, block(40));
    EXPECT_TRUE(cache.find(key(0)));
    EXPECT_FALSE(cache.find(key(1)));
    EXPECT_TRUE(cache.find(key(2)));
    EXPECT_EQ(cache.bytesInUse(), 80U);
}

TEST(Cache, DataInUseStaysAndCounts) {
    Anchor::Cache cache;
    cache.setLimit(100);
    auto held = block(80);
    publish(cache, 0, held);
    publish(cache, 1, block(80));
    EXPECT_EQ(cache.bytesInUse(), 160U);
    EXPECT_EQ(cache.find(key(0)), held);
    held.reset();
    publish(cache, 2, block(10));
    EXPECT_LE(cache.bytesInUse(), 100U);
    EXPECT_TRUE(cache.find(key(2)));
}

TEST(Cache, WhatWasPublishedTogetherStaysTogetherBeyondTheLimit) {
    Anchor::Cache cache;
    cache.setLimit(0);
    const std::array group{Anchor::Cache::Entry{key(0), block(10)}, Anchor::Cache::Entry{key(1), block(20)},
                           Anchor::Cache::Entry{key(2), nullptr}};
    cache.publish(group);
    EXPECT_EQ(cache.bytesInUse(), 30U);
    EXPECT_FALSE(cache.find(key(2)));
}

TEST(Cache, NextPublicationDropsTheGroupBefore) {
    Anchor::Cache cache;
    cache.setLimit(0);
    publish(cache, 0, block(10));
    publish(cache, 1, block(20));
    EXPECT_FALSE(cache.find(key(0)));
    EXPECT_EQ(cache.bytesInUse(), 20U);
}

TEST(Cache, FirstOfAGroupReplacesAndTheOthersKeepWhatIsThere) {
    Anchor::Cache cache;
    const auto oldFirst = block(1);
    const auto oldSecond = block(2);
    publish(cache, 0, oldFirst);
    publish(cache, 1, oldSecond);
    const auto newFirst = block(10);
    const std::array group{Anchor::Cache::Entry{key(0), newFirst}, Anchor::Cache::Entry{key(1), block(20)}};
    cache.publish(group);
    EXPECT_EQ(cache.find(key(0)), newFirst);
    EXPECT_EQ(cache.find(key(1)), oldSecond);
    EXPECT_EQ(cache.bytesInUse(), 12U);
}

TEST(Cache, MakingRoomDropsBeforeAnythingIsAdded) {
    Anchor::Cache cache;
    cache.setLimit(100);
    publish(cache, 0, block(60));
    publish(cache, 1, block(30));
    cache.makeRoom(50);
    EXPECT_EQ(cache.bytesInUse(), 30U);
    cache.makeRoom(1000);
    EXPECT_EQ(cache.bytesInUse(), 0U);
}

TEST(Cache, LoweredLimitDropsAtOnce) {
    Anchor::Cache cache;
    publish(cache, 0, block(60));
    publish(cache, 1, block(30));
    cache.setLimit(30);
    EXPECT_EQ(cache.bytesInUse(), 30U);
}

TEST(Cache, DroppedDataIsReleased) {
    Anchor::Cache cache;
    auto data = block(60);
    const Anchor::WeakPtr<Anchor::Cacheable> watch = data;
    publish(cache, 0, std::move(data));
    EXPECT_FALSE(watch.expired());
    cache.setLimit(0);
    EXPECT_TRUE(watch.expired());
}

TEST(Cache, UsedFromSeveralThreadsKeepsItsBooks) {
    Anchor::Cache cache;
    cache.setLimit(500);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&cache, thread] {
            for (std::size_t round = 0; round < 5000; ++round) {
                const std::size_t number = (thread * 3 + round) % 8;
                if (!cache.find(key(number)))
                    publish(cache, number, block(100));
                if (round % 7 == 0)
                    cache.forget(key(number));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::uint64_t held = 0;
    for (std::size_t number = 0; number < 8; ++number)
        held += cache.find(key(number)) ? 100U : 0U;
    EXPECT_EQ(cache.bytesInUse(), held);
    EXPECT_LE(held, 500U);
}

} // namespace
