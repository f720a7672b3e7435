// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/view/PackedColumn.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>
#include <zlib.h>

/// The plain reading of what docs/view-page.md says of columns.
namespace Tidewatch::Support {

inline std::string inflated(const std::string& bytes, std::size_t size) {
    std::string result(size, '\0');
    if (size == 0)
        return result;
    uLongf length = size;
    if (uncompress(reinterpret_cast<Bytef*>(result.data()), &length,
                   reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()) != Z_OK ||
        length != size)
        throw std::runtime_error("is no zlib stream of the size that it should have");
    return result;
}

/// The whole numbers of a column; nothing for gaps.
inline std::vector<std::optional<std::int64_t>> unpackedIntegers(const PackedColumn& column,
                                                                 std::size_t count) {
    const std::string planes = inflated(column.bytes, column.width * count);
    std::vector<std::optional<std::int64_t>> values(count);
    std::int64_t raw = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t code = 0;
        for (unsigned plane = column.width; plane-- > 0;)
            code = code << 8 | static_cast<unsigned char>(planes[plane * count + i]);
        raw += code % 2 == 0 ? static_cast<std::int64_t>(code / 2) : -static_cast<std::int64_t>(code / 2) - 1;
        if (!column.hasGaps)
            values[i] = column.min + raw;
        else if (raw != 0)
            values[i] = column.min + (raw - 1);
    }
    return values;
}

/// The values of a column as doubles; not-a-number for gaps.
inline std::vector<double> unpacked(const PackedColumn& column, std::size_t count) {
    std::vector<double> values(count);
    if (column.kind == PackedColumn::Kind::Integer) {
        const auto whole = unpackedIntegers(column, count);
        for (std::size_t i = 0; i < count; ++i)
            values[i] =
                whole[i] ? static_cast<double>(*whole[i]) / std::pow(10.0, column.decimals) : std::nan("");
        return values;
    }
    const std::string planes = inflated(column.bytes, column.width * count);
    for (std::size_t i = 0; i < count; ++i) {
        std::string bytes;
        for (unsigned plane = 0; plane < column.width; ++plane)
            bytes += planes[plane * count + i];
        if (column.width == 4) {
            float value = 0;
            std::memcpy(&value, bytes.data(), sizeof value);
            values[i] = static_cast<double>(value);
        } else {
            std::memcpy(&values[i], bytes.data(), sizeof values[i]);
        }
    }
    return values;
}

} // namespace Tidewatch::Support
