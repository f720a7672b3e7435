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
    const Made made = make();
    std::vector<Anchor::Cache::Entry> entries{{this, made.array}};
    entries.reserve(1 + made.siblings.size());
    for (const Sibling& sibling : made.siblings)
        entries.push_back({sibling.creator.get(), sibling.array});
    cache.publish(entries);
    return made.array;
}

Anchor::StrongPtr<Anchor::Cacheable> CachedCreator::available() const {
    return Anchor::Cache::MemCache().find(this);
}

} // namespace Sheaf
