// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/NumberType.hpp"

#include <array>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace Tidewatch::Hdf5 {

namespace {

/// A scalar element type and the library's datatypes for it. They are looked up each time, since the
/// library's names for them are macros that call functions.
struct Row {
    const std::type_info* type;
    std::size_t size;
    hid_t memory;
    hid_t stored;
    hid_t swapped;
};

std::array<Row, 11> rows() {
    return {{
        {&typeid(signed char), 1, H5T_NATIVE_SCHAR, H5T_STD_I8LE, H5T_STD_I8BE},
        {&typeid(unsigned char), 1, H5T_NATIVE_UCHAR, H5T_STD_U8LE, H5T_STD_U8BE},
        {&typeid(short), 2, H5T_NATIVE_SHORT, H5T_STD_I16LE, H5T_STD_I16BE},
        {&typeid(unsigned short), 2, H5T_NATIVE_USHORT, H5T_STD_U16LE, H5T_STD_U16BE},
        {&typeid(int), 4, H5T_NATIVE_INT, H5T_STD_I32LE, H5T_STD_I32BE},
        {&typeid(unsigned int), 4, H5T_NATIVE_UINT, H5T_STD_U32LE, H5T_STD_U32BE},
        {&typeid(long long), 8, H5T_NATIVE_LLONG, H5T_STD_I64LE, H5T_STD_I64BE},
        {&typeid(unsigned long long), 8, H5T_NATIVE_ULLONG, H5T_STD_U64LE, H5T_STD_U64BE},
        {&typeid(float), 4, H5T_NATIVE_FLOAT, H5T_IEEE_F32LE, H5T_IEEE_F32BE},
        {&typeid(double), 8, H5T_NATIVE_DOUBLE, H5T_IEEE_F64LE, H5T_IEEE_F64BE},
        {&typeid(long double), sizeof(long double), H5T_NATIVE_LDOUBLE, H5T_NATIVE_LDOUBLE,
         H5T_NATIVE_LDOUBLE},
    }};
}
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the table above assumes a little-endian machine");

Row rowOf(const std::type_info& elementType) {
    for (const Row& row : rows()) {
        if (*row.type == elementType)
            return row;
    }
    return {};
}

/// Whether every value of type Narrow is a value of type Wide.
template <class Wide, class Narrow>
consteval bool holdsAll() {
    using W = std::numeric_limits<Wide>;
    using N = std::numeric_limits<Narrow>;
    if constexpr (std::integral<Wide> && std::integral<Narrow>)
        return std::cmp_less_equal(W::min(), N::min()) && std::cmp_greater_equal(W::max(), N::max());
    else if constexpr (std::integral<Wide>)
        return false;
    else if constexpr (std::integral<Narrow>)
        return W::digits >= N::digits;
    else
        return W::digits >= N::digits && W::max_exponent >= N::max_exponent;
}

/// Converts a number of a type that holds all values of Narrow; false if this value is not one of them.
template <class Wide, class Narrow>
bool narrow(Wide value, Narrow& result) {
    using N = std::numeric_limits<Narrow>;
    if constexpr (std::is_same_v<Wide, Narrow>) {
        result = value;
        return true;
    } else if constexpr (std::integral<Wide>) {
        if (!std::in_range<Narrow>(value))
            return false;
    } else if constexpr (std::integral<Narrow>) {
        // Both bounds are values of Wide, so the comparisons are exact; a NaN fails them.
        if (!(value >= static_cast<Wide>(N::min()) && value <= static_cast<Wide>(N::max())) ||
            std::trunc(value) != value)
            return false;
    } else {
        if (std::isfinite(value) &&
            (value > static_cast<Wide>(N::max()) || value < static_cast<Wide>(N::lowest())))
            return false;
    }
    result = static_cast<Narrow>(value);
    return true;
}

template <class Wide, class Narrow>
std::optional<std::size_t> decodeAll(std::span<const std::byte> source, bool isSwapped,
                                     std::span<std::byte> target) {
    const std::size_t count = target.size() / sizeof(Narrow);
    if (std::is_same_v<Wide, Narrow> && !isSwapped) {
        if (count != 0)
            std::memcpy(target.data(), source.data(), count * sizeof(Narrow));
        return std::nullopt;
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::array<std::byte, sizeof(Wide)> bytes;
        std::memcpy(bytes.data(), source.data() + i * sizeof(Wide), sizeof(Wide));
        if (isSwapped) {
            for (std::size_t low = 0, high = sizeof(Wide) - 1; low < high; ++low, --high)
                std::swap(bytes[low], bytes[high]);
        }
        Wide value;
        std::memcpy(&value, bytes.data(), sizeof(Wide));
        Narrow result{};
        if (!narrow(value, result))
            return i;
        std::memcpy(target.data() + i * sizeof(Narrow), &result, sizeof(Narrow));
    }
    return std::nullopt;
}

/// Calls visitor(TypeTag<T>()) for an element type that is a plain number.
template <class Visitor>
void visitNumber(const std::type_info& type, Visitor&& visitor) {
    Sheaf::visitElementType(type, [&](auto tag) {
        if constexpr (std::is_arithmetic_v<typename decltype(tag)::type>)
            visitor(tag);
    });
}

} // namespace

std::optional<NumberType> NumberType::of(hid_t datatype) {
    // H5Tequal compares all properties of a datatype, so whatever equals a row is safe to decode.
    for (const Row& row : rows()) {
        if (H5Tequal(datatype, row.stored) > 0)
            return NumberType(*row.type, row.size, false);
        if (H5Tequal(datatype, row.swapped) > 0)
            return NumberType(*row.type, row.size, true);
    }
    return std::nullopt;
}

bool NumberType::holds(const std::type_info& elementType) const {
    bool result = false;
    visitNumber(*type_, [&](auto wide) {
        visitNumber(elementType, [&](auto narrow) {
            result = holdsAll<typename decltype(wide)::type, typename decltype(narrow)::type>();
        });
    });
    return result;
}

std::optional<std::size_t> NumberType::decode(std::span<const std::byte> source,
                                              const std::type_info& elementType,
                                              std::span<std::byte> target) const {
    std::optional<std::size_t> misfit = 0;
    visitNumber(*type_, [&](auto wide) {
        visitNumber(elementType, [&](auto narrow) {
            using Wide = typename decltype(wide)::type;
            using Narrow = typename decltype(narrow)::type;
            if constexpr (holdsAll<Wide, Narrow>())
                misfit = decodeAll<Wide, Narrow>(source, isSwapped_, target);
        });
    });
    return misfit;
}

hid_t memoryType(const std::type_info& elementType) {
    return rowOf(elementType).memory;
}

hid_t storedType(const std::type_info& elementType) {
    return rowOf(elementType).stored;
}

} // namespace Tidewatch::Hdf5
