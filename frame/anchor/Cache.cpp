// SPDX-License-Identifier: Apache-2.0
#include "anchor/Cache.hpp"

#include "anchor/NeverDestroyed.hpp"

#include <algorithm>

namespace Anchor {

// Dropped data is collected in a vector that is destroyed outside the lock: releasing hundreds of megabytes
// takes time, and a destructor may call the cache.

Cache& Cache::MemCache() {
    // Never destroyed: owners that die at the end of the process still come to forget their data.
    static NeverDestroyed<Cache> cache;
    return cache.get();
}

StrongPtr<Cacheable> Cache::find(Key key) {
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(key);
    if (found == entries_.end())
        return {};
    order_.splice(order_.begin(), order_, found->second);
    return found->second->data;
}

void Cache::publish(std::span<const Entry> entries) {
    Dropped dropped;
    const std::lock_guard lock(mutex_);
    bool replace = true;
    for (const Entry& entry : entries) {
        if (entry.data)
            put(entry, replace, dropped);
        replace = false;
    }
    trim(limit_, entries, dropped);
}

void Cache::put(const Entry& entry, bool replace, Dropped& dropped) {
    const auto [found, isNew] = entries_.try_emplace(entry.key);
    if (isNew) {
        try {
            order_.push_front(entry);
        } catch (...) {
            entries_.erase(found);
            throw;
        }
        found->second = order_.begin();
        bytesInUse_ += entry.data->byteSize();
        return;
    }
    order_.splice(order_.begin(), order_, found->second);
    if (replace) {
        bytesInUse_ += entry.data->byteSize();
        bytesInUse_ -= found->second->data->byteSize();
        dropped.push_back(found->second->data);
        found->second->data = entry.data;
    }
}

void Cache::trim(std::uint64_t target, std::span<const Entry> spared, Dropped& dropped) {
    for (auto entry = order_.end(); bytesInUse_ > target && entry != order_.begin();) {
        --entry;
        const bool isSpared = std::any_of(spared.begin(), spared.end(),
                                          [&](const Entry& one) { return one.key == entry->key; });
        // A count of one means that the cache alone holds the data; nobody can take another reference
        // meanwhile, because find() waits for the lock.
        if (isSpared || entry->data->references().strong.load(std::memory_order_acquire) > 1)
            continue;
        dropped.push_back(entry->data);
        bytesInUse_ -= entry->data->byteSize();
        entries_.erase(entry->key);
        entry = order_.erase(entry);
    }
}

void Cache::makeRoom(std::uint64_t bytes) {
    Dropped dropped;
    const std::lock_guard lock(mutex_);
    trim(limit_ > bytes ? limit_ - bytes : 0, {}, dropped);
}

void Cache::forget(Key key) noexcept {
    StrongPtr<Cacheable> dropped;
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(key);
    if (found == entries_.end())
        return;
    dropped.swap(found->second->data);
    bytesInUse_ -= dropped->byteSize();
    order_.erase(found->second);
    entries_.erase(found);
}

std::uint64_t Cache::bytesInUse() const {
    const std::lock_guard lock(mutex_);
    return bytesInUse_;
}

std::uint64_t Cache::limit() const {
    const std::lock_guard lock(mutex_);
    return limit_;
}

void Cache::setLimit(std::uint64_t bytes) {
    Dropped dropped;
    const std::lock_guard lock(mutex_);
    limit_ = bytes;
    trim(limit_, {}, dropped);
}

} // namespace Anchor
