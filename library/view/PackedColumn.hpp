// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A column of a page, coded and deflated; docs/view-page.md is the statement of the format.
struct PackedColumn {
    enum class Kind { Integer, Float };

    Kind kind = Kind::Integer;
    /// Bytes of a coded difference, or of a floating-point number.
    unsigned width = 0;
    /// Of integers: the least and the largest value in units of 10^-decimals.
    std::int64_t min = 0;
    std::int64_t max = 0;
    unsigned decimals = 0;
    bool hasGaps = false;
    /// A zlib stream (RFC 1950); empty where there is nothing to say.
    std::string bytes;
};

/// Whole numbers of 10^-decimals; nothing where their range is too wide to be packed so (2^52 and beyond). A value without
/// one is a gap.
[[nodiscard]] std::optional<PackedColumn> packIntegers(std::span<const std::optional<std::int64_t>> values,
                                                       unsigned decimals);

/// Numbers with few decimals as whole numbers, others bit for bit; not-a-number is a gap in the former. T is float or
/// double.
template <class T>
[[nodiscard]] PackedColumn packFloats(std::span<const T> values);

/// Coordinates. They are sums of an offset and a multiple of a scale, each rounded, so that they stand beside the
/// decimals that the file means by some last bits: within these, they count as these decimals.
[[nodiscard]] PackedColumn packCoordinates(std::span<const double> values);

/// Base64 (RFC 4648, section 4), padded, without line ends.
[[nodiscard]] std::string base64(std::string_view bytes);

} // namespace Tidewatch
