// SPDX-License-Identifier: Apache-2.0
#include "sheaf/TypeRegistry.hpp"

#include "anchor/NeverDestroyed.hpp"

#include <map>
#include <mutex>
#include <typeindex>
#include <utility>

namespace Sheaf {

namespace {

struct Announced {
    TypeRegistry::Factory factory = nullptr;
    std::size_t count = 0;
};

struct Registered {
    std::mutex mutex;
    std::map<std::pair<std::size_t, std::type_index>, Announced> types;
};

Registered& registered() {
    // Never destroyed: libraries may be unloaded at the very end of the process.
    static Anchor::NeverDestroyed<Registered> types;
    return types.get();
}

template <std::size_t N, class T>
Anchor::StrongPtr<MemBase> makeZeroArray(const Extents& extents) {
    const auto count = extents.elementCount();
    if (extents.rank() != N || !count)
        throw Anchor::ModelError("extents that do not fit the array type asked for");
    return makeArray(extents, std::vector<T>(*count));
}

} // namespace

template <std::size_t N, class T>
TypeRegistry::Announcement<N, T>::Announcement() {
    Registered& all = registered();
    const std::lock_guard lock(all.mutex);
    Announced& type = all.types[{N, typeid(T)}];
    if (!MemArray<N, T>::TypeIsRegistered) {
        type.factory = &makeZeroArray<N, T>;
        MemArray<N, T>::TypeIsRegistered = true;
    }
    ++type.count;
}

template <std::size_t N, class T>
TypeRegistry::Announcement<N, T>::Announcement::~Announcement() { // the class twice: clang looks for it there
    Registered& all = registered();
    const std::lock_guard lock(all.mutex);
    const auto found = all.types.find({N, typeid(T)});
    if (--found->second.count == 0) {
        MemArray<N, T>::TypeIsRegistered = false;
        all.types.erase(found);
    }
}

TypeRegistry::Factory TypeRegistry::find(std::size_t rank, const std::type_info& elementType) {
    Registered& all = registered();
    const std::lock_guard lock(all.mutex);
    const auto found = all.types.find({rank, elementType});
    return found != all.types.end() ? found->second.factory : nullptr;
}

std::size_t TypeRegistry::size() {
    Registered& all = registered();
    const std::lock_guard lock(all.mutex);
    return all.types.size();
}

#define TIDEWATCH_ANNOUNCEMENTS_OF(TYPE)                                                                     \
    template class TypeRegistry::Announcement<1, TYPE>;                                                      \
    template class TypeRegistry::Announcement<2, TYPE>;                                                      \
    template class TypeRegistry::Announcement<3, TYPE>;                                                      \
    template class TypeRegistry::Announcement<4, TYPE>;
TIDEWATCH_ANNOUNCEMENTS_OF(double)
TIDEWATCH_ANNOUNCEMENTS_OF(Geom::PhysicalSpace::point)
TIDEWATCH_ANNOUNCEMENTS_OF(Element::FixedDoubles)
#undef TIDEWATCH_ANNOUNCEMENTS_OF

} // namespace Sheaf
