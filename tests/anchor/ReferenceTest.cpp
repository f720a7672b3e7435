// SPDX-License-Identifier: Apache-2.0
#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
#include "geom/BoundingBox.hpp"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

class Counted : public Anchor::ReferenceBase<Counted> {
public:
    explicit Counted(int& alive) : alive_(alive) { ++alive_; }
    Counted(const Counted& other) : Anchor::ReferenceBase<Counted>(other), alive_(other.alive_) { ++alive_; }
    Counted& operator=(const Counted&) = delete;
    ~Counted() override { --alive_; }

private:
    int& alive_;
};

class Derived final : public Counted {
public:
    using Counted::Counted;
};

TEST(StrongPtr, LastReferenceGoneEndsTheObject) {
    int alive = 0;
    auto first = Anchor::makeStrong<Counted>(alive);
    auto second = first;
    first.reset();
    EXPECT_EQ(alive, 1);
    second = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(StrongPtr, MadeFromPlainPointerSharesTheCount) {
    int alive = 0;
    const auto first = Anchor::makeStrong<Counted>(alive);
    { const Anchor::StrongPtr<Counted> second(first.get()); }
    EXPECT_EQ(alive, 1);
}

TEST(StrongPtr, AssignedToItselfKeepsTheObject) {
    int alive = 0;
    auto reference = Anchor::makeStrong<Counted>(alive);
    const auto& same = reference;
    reference = same;
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(reference);
}

TEST(StrongPtr, ConvertsToBaseAndBackByDynamicCast) {
    int alive = 0;
    const Anchor::StrongPtr<Counted> base = Anchor::makeStrong<Derived>(alive);
    EXPECT_TRUE(Anchor::dynamicCast<Derived>(base));
    const auto plain = Anchor::makeStrong<Counted>(alive);
    EXPECT_FALSE(Anchor::dynamicCast<Derived>(plain));
}

TEST(StrongPtr, CopyOfAnObjectHasCountsOfItsOwn) {
    int alive = 0;
    const auto original = Anchor::makeStrong<Counted>(alive);
    const auto more = original;
    auto copy = Anchor::makeStrong<Counted>(*original);
    EXPECT_EQ(alive, 2);
    copy.reset();
    EXPECT_EQ(alive, 1);
}

TEST(StrongPtr, RootInterfaceBaseCarriesABoundingBox) {
    using Reference = Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>;
    Anchor::WeakPtr<Geom::BoundingBox, Anchor::InterfaceBase> weak;
    {
        const Reference box(new Geom::BoundingBox({1, 2, 3}, {4, 5, 6}));
        weak = box;
        EXPECT_EQ(weak.lock()->upper().z, 6.0);
    }
    EXPECT_TRUE(weak.expired());
}

TEST(WeakPtr, ObjectGoneExpires) {
    int alive = 0;
    auto strong = Anchor::makeStrong<Counted>(alive);
    const Anchor::WeakPtr<Counted> weak = strong;
    EXPECT_EQ(weak.lock().get(), strong.get());
    strong.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(weak.lock());
}

TEST(WeakPtr, NullIsExpired) {
    const Anchor::WeakPtr<Counted> weak;
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(weak.lock());
}

TEST(WeakPtr, LockedReferenceKeepsTheObject) {
    int alive = 0;
    auto strong = Anchor::makeStrong<Counted>(alive);
    const Anchor::WeakPtr<Counted> weak = strong;
    const auto locked = weak.lock();
    strong.reset();
    EXPECT_EQ(alive, 1);
}

TEST(WeakPtr, ObjectNeverHeldReadsAsExpired) {
    int alive = 0;
    Counted local(alive);
    const Anchor::WeakPtr<Counted> weak(&local);
    EXPECT_TRUE(weak.expired());
}

TEST(References, TakenAndDroppedInManyThreadsEndTheObjectOnce) {
    int alive = 0;
    auto strong = Anchor::makeStrong<Counted>(alive);
    const Anchor::WeakPtr<Counted> weak = strong;
    std::atomic<long> locked{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([copy = strong, weak, &locked]() mutable {
            for (int round = 0; round < 20000; ++round) {
                const auto another = copy;
                if (const auto live = weak.lock())
                    ++locked;
            }
            copy.reset();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(locked, 4 * 20000);
    EXPECT_EQ(alive, 1);
    threads.clear();
    strong.reset();
    EXPECT_EQ(alive, 0);
    EXPECT_TRUE(weak.expired());
}

TEST(References, WeakReferencesRaceWithTheEndOfTheObjectSafely) {
    for (int round = 0; round < 2000; ++round) {
        int alive = 0;
        auto strong = Anchor::makeStrong<Counted>(alive);
        const Anchor::WeakPtr<Counted> weak = strong;
        std::thread other([weak] {
            while (weak.lock()) {
            }
        });
        strong.reset();
        other.join();
        EXPECT_EQ(alive, 0);
    }
}

} // namespace
