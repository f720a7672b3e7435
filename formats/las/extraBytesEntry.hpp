// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string_view>
#include <typeinfo>

/// Entries of the extra-bytes record (LAS 1.4 R15, "Extra Bytes").
///
/// `Encoding` has the members name, description (texts), type (a std::type_info*), scale, offset (optional doubles) and
/// noData (an optional long double).
namespace Formats::Las {

/// The scalar types of extra bytes, in the order of their numbers, which count from 1.
inline constexpr std::array<const std::type_info*, 10> extraBytesTypes{
    &typeid(unsigned char), &typeid(signed char), &typeid(unsigned short),     &typeid(short),
    &typeid(unsigned int),  &typeid(int),         &typeid(unsigned long long), &typeid(long long),
    &typeid(float),         &typeid(double)};
inline constexpr std::array<std::uint16_t, 10> extraBytesSizes{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};

/// The number of a type; 0 for one that extra bytes do not have.
[[nodiscard]] inline std::uint8_t extraBytesTypeOf(const std::type_info& type) noexcept {
    for (std::size_t i = 0; i < extraBytesTypes.size(); ++i) {
        if (*extraBytesTypes[i] == type)
            return static_cast<std::uint8_t>(i + 1);
    }
    return 0;
}

/// Whether the values of "no data", which have eight bytes each, are floating-point numbers or signed ones.
constexpr bool isFloatingExtraBytesType(unsigned type) noexcept {
    return type >= 9;
}
constexpr bool isSignedExtraBytesType(unsigned type) noexcept {
    return type % 2 == 0;
}

/// Decodes the eight bytes of "no data".
[[nodiscard]] inline long double noDataOf(const std::uint8_t* bytes, unsigned type) noexcept {
    if (isFloatingExtraBytesType(type))
        return static_cast<long double>(loadLittleEndian<double>(bytes));
    if (isSignedExtraBytesType(type))
        return static_cast<long double>(loadLittleEndian<std::int64_t>(bytes));
    return static_cast<long double>(loadLittleEndian<std::uint64_t>(bytes));
}

/// Stores a number as "no data"; false, without storing, for one that the type cannot hold.
[[nodiscard]] inline bool storeNoData(std::uint8_t* bytes, unsigned type, long double number) noexcept {
    const auto fits = [&](auto lowest, auto highest) {
        return number >= static_cast<long double>(lowest) && number <= static_cast<long double>(highest);
    };
    if (isFloatingExtraBytesType(type))
        storeLittleEndian(bytes, static_cast<double>(number));
    else if (isSignedExtraBytesType(type) &&
             fits(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()))
        storeLittleEndian(bytes, static_cast<std::int64_t>(number));
    else if (!isSignedExtraBytesType(type) && fits(0, std::numeric_limits<std::uint64_t>::max()))
        storeLittleEndian(bytes, static_cast<std::uint64_t>(number));
    else
        return false;
    return true;
}

/// The entry of a scalar. Texts are cut at their 32 bytes. The encoding's type is one of extraBytesTypes.
template <class Encoding>
[[nodiscard]] std::array<std::uint8_t, ExtraBytes::entrySize>
encodeExtraBytesEntry(const Encoding& encoding) {
    std::array<std::uint8_t, ExtraBytes::entrySize> entry{};
    const auto putText = [&](std::size_t place, std::string_view text) {
        std::copy_n(text.begin(), std::min(text.size(), textSize),
                    std::next(entry.begin(), static_cast<std::ptrdiff_t>(place)));
    };
    const std::uint8_t type = extraBytesTypeOf(*encoding.type);
    unsigned options = 0;
    if (encoding.noData && storeNoData(entry.data() + ExtraBytes::noData, type, *encoding.noData))
        options |= ExtraBytes::optionNoData;
    if (encoding.scale) {
        options |= ExtraBytes::optionScale;
        storeLittleEndian(entry.data() + ExtraBytes::scale, *encoding.scale);
    }
    if (encoding.offset) {
        options |= ExtraBytes::optionOffset;
        storeLittleEndian(entry.data() + ExtraBytes::offset, *encoding.offset);
    }
    entry[ExtraBytes::type] = type;
    entry[ExtraBytes::options] = static_cast<std::uint8_t>(options);
    putText(ExtraBytes::name, encoding.name);
    putText(ExtraBytes::description, encoding.description);
    return entry;
}

/// Whether an entry describes a scalar.
[[nodiscard]] inline bool isScalarEntry(std::span<const std::uint8_t, ExtraBytes::entrySize> entry) noexcept {
    return entry[ExtraBytes::type] >= 1 && entry[ExtraBytes::type] <= extraBytesTypes.size();
}

/// Decodes an entry of a scalar; for other entries, only name and description are set. Scale and offset are
/// not checked.
template <class Encoding>
[[nodiscard]] Encoding decodeExtraBytesEntry(std::span<const std::uint8_t, ExtraBytes::entrySize> entry) {
    const auto text = [&](std::size_t place) {
        const auto field = entry.subspan(place, textSize);
        return std::string(field.begin(), std::find(field.begin(), field.end(), std::uint8_t{0}));
    };
    Encoding encoding;
    encoding.name = text(ExtraBytes::name);
    encoding.description = text(ExtraBytes::description);
    if (!isScalarEntry(entry))
        return encoding;
    const unsigned type = entry[ExtraBytes::type];
    encoding.type = extraBytesTypes[type - 1];
    const unsigned options = entry[ExtraBytes::options];
    if ((options & ExtraBytes::optionNoData) != 0)
        encoding.noData = noDataOf(entry.data() + ExtraBytes::noData, type);
    if ((options & ExtraBytes::optionScale) != 0)
        encoding.scale = loadLittleEndian<double>(entry.data() + ExtraBytes::scale);
    if ((options & ExtraBytes::optionOffset) != 0)
        encoding.offset = loadLittleEndian<double>(entry.data() + ExtraBytes::offset);
    return encoding;
}

} // namespace Formats::Las
