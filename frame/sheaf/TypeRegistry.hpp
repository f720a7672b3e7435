// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/MemArray.hpp"

#include <cstddef>
#include <typeinfo>

namespace Sheaf {

/// The memory-array types that loaded exporters have announced. Announcements are counted: a type stands here
/// from its first announcement until the last one has been taken back.
class TIDEWATCH_API TypeRegistry {
public:
    /// Makes an array of the extents with zero elements.
    using Factory = Anchor::StrongPtr<MemBase> (*)(const Extents& extents);

    TypeRegistry() = delete;

    /// Announces `MemArray<N, T>` for as long as the object lives.
    template <std::size_t N, class T>
    class TIDEWATCH_API Announcement {
    public:
        Announcement();
        ~Announcement();
        Announcement(const Announcement&) = delete;
        Announcement& operator=(const Announcement&) = delete;
    };

    /// How to make an array of that rank and element type; null where nobody announced the type.
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
