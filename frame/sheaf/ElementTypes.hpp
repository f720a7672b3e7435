// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/Color.hpp"
#include "geom/FixedArray.hpp"
#include "geom/PhysicalSpace.hpp"

#include <cstddef>
#include <string_view>
#include <type_traits>
#include <typeinfo>

namespace Sheaf {

/// Represents a type in a call: `visitor(TypeTag<double>())`.
template <class T>
struct TypeTag {
    using type = T;
};

/// Properties of an element type: its name in files and messages, the number type of its components, and the number of
/// components.
template <class T>
struct ElementTraits;

namespace Element {
using Point = Geom::PhysicalSpace::point;
using Vector = Geom::PhysicalSpace::vector;
using Bivector = Geom::PhysicalSpace::bivector;
using FixedDoubles = Geom::FixedArray<double, 3>;
using FloatBivector = Geom::Coordinates<Geom::Cartesian3D, float>::bivector;
using Color = Geom::RGB<unsigned char>;
} // namespace Element

/// The table of element types: type, name in files, number type of its components, number of components.
/// Everything in frame/ that depends on the element type is generated from it, so a new type is a new row.
///
/// The 64-bit integers are "long long", not std::int64_t: on Linux the latter is "long", which is a different type for
/// typeid.
#define TIDEWATCH_ELEMENT_TYPES(ROW)                                                                         \
    ROW(Sheaf::Element::Point, "point", double, 3)                                                           \
    ROW(Sheaf::Element::Vector, "vector", double, 3)                                                         \
    ROW(Sheaf::Element::FixedDoubles, "fixed3d", double, 3)                                                  \
    ROW(Sheaf::Element::Bivector, "bivector3d", double, 3)                                                   \
    ROW(Sheaf::Element::FloatBivector, "bivector3f", float, 3)                                               \
    ROW(Sheaf::Element::Color, "rgb8", unsigned char, 3)                                                     \
    ROW(float, "float32", float, 1)                                                                          \
    ROW(double, "float64", double, 1)                                                                        \
    ROW(long double, "float80", long double, 1)                                                              \
    ROW(signed char, "int8", signed char, 1)                                                                 \
    ROW(unsigned char, "uint8", unsigned char, 1)                                                            \
    ROW(short, "int16", short, 1)                                                                            \
    ROW(unsigned short, "uint16", unsigned short, 1)                                                         \
    ROW(int, "int32", int, 1)                                                                                \
    ROW(unsigned int, "uint32", unsigned int, 1)                                                             \
    ROW(long long, "int64", long long, 1)                                                                    \
    ROW(unsigned long long, "uint64", unsigned long long, 1)

#define TIDEWATCH_TRAITS(TYPE, NAME, COMPONENT, COUNT)                                                       \
    template <>                                                                                              \
    struct ElementTraits<TYPE> {                                                                             \
        static constexpr std::string_view name = NAME;                                                       \
        using Component = COMPONENT;                                                                         \
        static constexpr std::size_t componentCount = COUNT;                                                 \
        static_assert(sizeof(TYPE) == COUNT * sizeof(COMPONENT) && std::is_trivially_copyable_v<TYPE>);      \
    };
TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_TRAITS)
#undef TIDEWATCH_TRAITS

/// A type that the elements of a bundle's arrays may have.
template <class T>
concept ElementType = requires {
    ElementTraits<T>::componentCount;
};

template <class... T>
struct TypeList {
    /// Calls visitor(TypeTag<T>()) for the first type with predicate(TypeTag<T>()); false if there is none.
    template <class Predicate, class Visitor>
    static bool visitFirst(Predicate&& predicate, Visitor&& visitor) {
        return ((predicate(TypeTag<T>()) && (visitor(TypeTag<T>()), true)) || ...);
    }
};

/// Every row starts with a comma, so something must precede the first.
template <class First, class... T>
using TypeListAfterFirst = TypeList<T...>;

#define TIDEWATCH_NEXT_TYPE(TYPE, NAME, COMPONENT, COUNT) , TYPE
/// Every element type that arrays of a bundle may have, in the order of the table.
using ElementTypes = TypeListAfterFirst<void TIDEWATCH_ELEMENT_TYPES(TIDEWATCH_NEXT_TYPE)>;
#undef TIDEWATCH_NEXT_TYPE

/// Calls visitor(TypeTag<T>()) once with the element type that `type` describes; false (and no call) for a type that is
/// not an element type. This is the only place where a type known at run time is mapped to one known at compile time.
template <class Visitor>
bool visitElementType(const std::type_info& type, Visitor&& visitor) {
    return ElementTypes::visitFirst([&](auto tag) { return type == typeid(typename decltype(tag)::type); },
                                    visitor);
}

/// The same by the element type's name in files, such as "float32".
template <class Visitor>
bool visitElementName(std::string_view name, Visitor&& visitor) {
    return ElementTypes::visitFirst(
        [&](auto tag) { return name == ElementTraits<typename decltype(tag)::type>::name; }, visitor);
}

/// The name of an element type; empty for any other type.
[[nodiscard]] inline std::string_view elementTypeName(const std::type_info& type) {
    std::string_view name;
    visitElementType(type, [&](auto tag) { name = ElementTraits<typename decltype(tag)::type>::name; });
    return name;
}

} // namespace Sheaf
