// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cacheable.hpp"
#include "anchor/StrongPtr.hpp"

#include <cstdint>
#include <list>
#include <mutex>
#include <span>
#include <unordered_map>
#include <vector>

namespace Anchor {

/// Holds data that can be created again, up to a limit in bytes.
///
/// Above the limit it drops the least recently used data that nobody else holds. Data in use stays and continues to
/// count, so traversing a bundle larger than the limit peaks at the limit plus what the traversal itself holds. All
/// operations are thread-safe.
class TIDEWATCH_API Cache {
public:
    /// 512 MiB.
    static constexpr std::uint64_t defaultLimit = std::uint64_t{512} << 20;

    /// Identifies the owner of an entry; the cache only compares it.
    using Key = const void*;

    /// Data to be put into the cache under its owner's key.
    struct Entry {
        Key key;
        StrongPtr<Cacheable> data;
    };

    Cache() = default;
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    /// The memory cache of this process.
    [[nodiscard]] static Cache& MemCache();

    /// The data of an owner, which thereby becomes the most recently used; null if the cache has none.
    [[nodiscard]] StrongPtr<Cacheable> find(Key key);

    /// Puts data that was created together into the cache, then drops other data while above the limit.
    ///
    /// The data just published stays even if it exceeds the limit by itself: a reader that decoded several arrays in
    /// one pass would otherwise have to decode again for each of them. The first entry replaces older data of its
    /// owner; for the others, existing data is kept. Null data is skipped.
    void publish(std::span<const Entry> entries);

    /// Drops data until `bytes` more fit below the limit, or nothing more can be dropped. Called before data is
    /// created, so that old and new data are not in memory together.
    void makeRoom(std::uint64_t bytes);

    /// Forgets the data of an owner; owners call it when they are destroyed.
    void forget(Key key) noexcept;

    [[nodiscard]] std::uint64_t bytesInUse() const;
    [[nodiscard]] std::uint64_t limit() const;

    /// Sets the limit in bytes and drops the excess. 0 keeps only data in use or published last.
    void setLimit(std::uint64_t bytes);

private:
    using Order = std::list<Entry>;
    using Dropped = std::vector<StrongPtr<Cacheable>>;

    void put(const Entry& entry, bool replace, Dropped& dropped);
    void trim(std::uint64_t target, std::span<const Entry> spared, Dropped& dropped);

    mutable std::mutex mutex_;
    Order order_; // most recently used first
    std::unordered_map<Key, Order::iterator> entries_;
    std::uint64_t bytesInUse_ = 0;
    std::uint64_t limit_ = defaultLimit;
};

} // namespace Anchor
