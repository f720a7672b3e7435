// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A column of a page, encoded and deflated; docs/view-page.md specifies the format.
struct PackedColumn {
    enum class Kind { Integer, Float };

    Kind kind = Kind::Integer;
    /// Bytes of an encoded difference, or of a floating-point number.
    unsigned width = 0;
    /// For integers: the min and max value in units of 10^-decimals.
    std::int64_t min = 0;
    std::int64_t max = 0;
    unsigned decimals = 0;
    bool hasGaps = false;
    /// A zlib stream (RFC 1950); empty if all values are equal or there are none.
    std::string bytes;
};

/// Packs integers in units of 10^-decimals; nothing if their range is too wide (2^52 and beyond). A missing
/// value is a gap.
[[nodiscard]] std::optional<PackedColumn> packIntegers(std::span<const std::optional<std::int64_t>> values,
                                                       unsigned decimals);

/// Packs numbers with few decimals as integers, others bit by bit; NaN is a gap in the former. T is float or
/// double.
template <class T>
[[nodiscard]] PackedColumn packFloats(std::span<const T> values);

/// Packs coordinates. They are computed as scale * integer + offset with rounding, so they may differ from
/// the intended decimals in the last bits; within that tolerance, they are packed as these decimals.
[[nodiscard]] PackedColumn packCoordinates(std::span<const double> values);

/// Base64 (RFC 4648, section 4), padded, without line ends.
[[nodiscard]] std::string base64(std::string_view bytes);

} // namespace Tidewatch
