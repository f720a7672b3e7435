// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/MemArray.hpp"

#include <cstddef>
#include <typeinfo>

namespace Sheaf {

/// The memory-array types that loaded exporters have announced. Announcements are counted: a type is
/// registered from its first announcement until the last one has been withdrawn.
class TIDEWATCH_API TypeRegistry {
public:
    /// Creates an array with the given extents, all elements zero.
    using Factory = Anchor::StrongPtr<MemBase> (*)(const Extents& extents);

    TypeRegistry() = delete;

    /// Announces `MemArray<N, T>` as long as the object exists.
    template <std::size_t N, class T>
    class TIDEWATCH_API Announcement {
    public:
        Announcement();
        ~Announcement();
        Announcement(const Announcement&) = delete;
        Announcement& operator=(const Announcement&) = delete;
    };

    /// The factory for arrays of that rank and element type; null if nobody has announced the type.
    [[nodiscard]] static Factory find(std::size_t rank, const std::type_info& elementType);

    /// The number of types that are announced.
    [[nodiscard]] static std::size_t size();
};

#define TIDEWATCH_ANNOUNCEMENTS_OF(TYPE)                                                                     \
    extern template class TypeRegistry::Announcement<1, TYPE>;                                               \
    extern template class TypeRegistry::Announcement<2, TYPE>;                                               \
    extern template class TypeRegistry::Announcement<3, TYPE>;                                               \
    extern template class TypeRegistry::Announcement<4, TYPE>;
TIDEWATCH_ANNOUNCEMENTS_OF(double)
TIDEWATCH_ANNOUNCEMENTS_OF(Geom::PhysicalSpace::point)
TIDEWATCH_ANNOUNCEMENTS_OF(Element::FixedDoubles)
#undef TIDEWATCH_ANNOUNCEMENTS_OF

} // namespace Sheaf
