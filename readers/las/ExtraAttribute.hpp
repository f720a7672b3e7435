// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/layout.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch::Las {

/// The meaning of some of the extra bytes of a point: an entry of the extra-bytes record, or one component of
/// an entry of the deprecated types 11 to 30, which are pairs and triples (LAS 1.4 R15, "Extra Bytes", record
/// LASF_Spec / 4).
struct ExtraAttribute {
    /// The scalar types, by their numbers in the file.
    enum class Type : std::uint8_t {
        Undescribed = 0, ///< plain bytes
        UInt8 = 1,
        Int8 = 2,
        UInt16 = 3,
        Int16 = 4,
        UInt32 = 5,
        Int32 = 6,
        UInt64 = 7,
        Int64 = 8,
        Float = 9,
        Double = 10,
    };

    /// Bytes of one entry in the file.
    static constexpr std::size_t entrySize = Formats::Las::ExtraBytes::entrySize;

    std::string name;        ///< as in the file, without the trailing zeros; any bytes
    std::string description; ///< likewise
    std::size_t entry = 0;   ///< the number of the entry, from 0
    unsigned component = 0;  ///< from 1 in a pair or triple, else 0
    Type type = Type::Undescribed;
    std::uint16_t offset = 0;          ///< bytes from the beginning of the point's extra bytes
    std::uint16_t size = 0;            ///< bytes
    std::optional<double> scale;       ///< the value is stored * scale + offset; finite and not 0
    std::optional<double> shift;       ///< that offset; finite
    std::optional<long double> noData; ///< the stored number that means "no data"

    [[nodiscard]] bool isScalar() const noexcept { return type != Type::Undescribed; }

    /// Parses the entries of a record's payload and appends them to `attributes`, whose bytes precede theirs.
    /// All must fit in the `available` extra bytes of a point. Throws Anchor::FormatError naming `path`.
    static void parse(std::span<const std::uint8_t> payload, std::uint16_t available, std::string_view path,
                      std::vector<ExtraAttribute>& attributes);
};

} // namespace Tidewatch::Las
