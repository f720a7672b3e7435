// SPDX-License-Identifier: Apache-2.0
#include "sheaf/CachedCreator.hpp"

namespace Sheaf {

CachedCreator::~CachedCreator() {
    Anchor::Cache::MemCache().forget(this);
}

Anchor::StrongPtr<Anchor::Cacheable> CachedCreator::create(bool anew) const {
    Anchor::Cache& cache = Anchor::Cache::MemCache();
    if (anew) {
        rememberBounds(nullptr);
        cache.forget(this);
    } else if (auto cached = cache.find(this)) {
        return cached;
    }
    cache.makeRoom(bytesToMake());
    const std::vector<Made> made = make();
    std::vector<Anchor::Cache::Entry> entries;
    entries.reserve(made.size());
    for (const Made& one : made)
        entries.push_back({one.creator, one.array});
    cache.publish(entries);
    return made.empty() ? nullptr : Anchor::StrongPtr<Anchor::Cacheable>(made.front().array);
}

Anchor::StrongPtr<Anchor::Cacheable> CachedCreator::available() const {
    return Anchor::Cache::MemCache().find(this);
}

} // namespace Sheaf
