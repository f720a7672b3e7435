// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Library.hpp"
#include "sheaf/ElementTypes.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <typeinfo>

namespace Tidewatch::Hdf5 {

/// The number type of a dataset: the scalar element type of its numbers, and their byte order in the file.
///
/// Supported are integers of 1, 2, 4 and 8 bytes that use all their bits, the IEEE types of 4 and 8 bytes,
/// and this machine's long double.
class NumberType {
public:
    /// The number type that a datatype of the library describes; nothing for any other datatype.
    /// Call within a LibraryCall.
    [[nodiscard]] static std::optional<NumberType> of(hid_t datatype);

    /// The scalar element type, one of those that Sheaf::visitElementType knows.
    [[nodiscard]] const std::type_info& type() const noexcept { return *type_; }
    [[nodiscard]] std::string_view name() const { return Sheaf::elementTypeName(*type_); }

    /// Bytes of one number.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

    /// The same type in this machine's byte order.
    [[nodiscard]] NumberType inMemory() const noexcept { return {*type_, size_, false}; }

    /// Whether every value of a scalar element type is a value of this type as well: uint16 numbers can be
    /// kept as int32 or float32, but not as int16.
    [[nodiscard]] bool holds(const std::type_info& elementType) const;

    /// Converts numbers as stored in the file to a scalar element type that this type holds. `source` and
    /// `target` have the same count. Fractions do not fit integers, and values out of range do not fit; a
    /// float64 rounds to the nearest float32. Returns the index of the first number that does not fit,
    /// nothing when all do.
    [[nodiscard]] std::optional<std::size_t> decode(std::span<const std::byte> source,
                                                    const std::type_info& elementType,
                                                    std::span<std::byte> target) const;

    friend bool operator==(const NumberType& a, const NumberType& b) noexcept {
        return *a.type_ == *b.type_ && a.isSwapped_ == b.isSwapped_;
    }

private:
    NumberType(const std::type_info& type, std::size_t size, bool isSwapped)
        : type_(&type),
          size_(size),
          isSwapped_(isSwapped) {}

    const std::type_info* type_;
    std::size_t size_;
    bool isSwapped_; // the byte order is not this machine's
};

/// The library's datatype for a scalar element type in this machine's memory. Call within a LibraryCall; the
/// library owns the identifier.
[[nodiscard]] hid_t memoryType(const std::type_info& elementType);

/// The datatype in which files store a scalar element type: little-endian, except for long double, which is
/// stored as on this machine. Call within a LibraryCall; the library owns the identifier.
[[nodiscard]] hid_t storedType(const std::type_info& elementType);

} // namespace Tidewatch::Hdf5
