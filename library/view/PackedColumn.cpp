// SPDX-License-Identifier: Apache-2.0
#include "library/view/PackedColumn.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <type_traits>
#include <zlib.h>

namespace Tidewatch {

namespace {

/// Differences of values in this range, doubled for the sign, are exact in double precision.
constexpr std::uint64_t widestRange = std::uint64_t{1} << 52;

constexpr unsigned finestDecimal = 9;
constexpr double powersOfTen[finestDecimal + 1] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

/// Up to here all integers are exact in double precision.
constexpr double largestExactInteger = 0x1p53;

std::string deflated(const std::vector<unsigned char>& bytes) {
    if (bytes.empty())
        return {};
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string result(size, '\0');
    const int status = compress2(reinterpret_cast<Bytef*>(result.data()), &size, bytes.data(),
                                 static_cast<uLong>(bytes.size()), Z_DEFAULT_COMPRESSION);
    if (status != Z_OK)
        throw Anchor::LimitError("there is not enough memory to compress a column of the page");
    result.resize(size);
    return result;
}

template <class T>
bool isDecimal(T value, unsigned decimals) {
    const double whole = std::nearbyint(static_cast<double>(value) * powersOfTen[decimals]);
    return std::abs(whole) < largestExactInteger && static_cast<T>(whole / powersOfTen[decimals]) == value;
}

template <class T>
PackedColumn packBits(std::span<const T> values) {
    using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
    PackedColumn column;
    column.kind = PackedColumn::Kind::Float;
    column.width = sizeof(T);
    std::vector<unsigned char> planes(sizeof(T) * values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto bits = std::bit_cast<Bits>(values[i]);
        for (std::size_t plane = 0; plane < sizeof(T); ++plane)
            planes[plane * values.size() + i] = static_cast<unsigned char>(bits >> (8 * plane) & 0xFF);
    }
    column.bytes = deflated(planes);
    return column;
}

} // namespace

std::optional<PackedColumn> packIntegers(std::span<const std::optional<std::int64_t>> values,
                                         unsigned decimals) {
    PackedColumn column;
    column.decimals = decimals;
    bool isFirst = true;
    for (const auto& value : values) {
        if (!value) {
            column.hasGaps = true;
            continue;
        }
        column.min = isFirst ? *value : std::min(column.min, *value);
        column.max = isFirst ? *value : std::max(column.max, *value);
        isFirst = false;
    }
    // Unsigned: the difference of two signed numbers may be too large for a signed one.
    const auto least = static_cast<std::uint64_t>(column.min);
    const std::uint64_t shift = column.hasGaps ? 1 : 0;
    if (static_cast<std::uint64_t>(column.max) - least + shift >= widestRange)
        return std::nullopt;

    std::vector<std::uint64_t> codes(values.size());
    std::uint64_t last = 0;
    std::uint64_t most = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::uint64_t raw = values[i] ? static_cast<std::uint64_t>(*values[i]) - least + shift : 0;
        codes[i] = raw >= last ? 2 * (raw - last) : 2 * (last - raw) - 1;
        last = raw;
        most = std::max(most, codes[i]);
    }
    while (most != 0) {
        most >>= 8;
        ++column.width;
    }
    std::vector<unsigned char> planes(column.width * values.size());
    for (unsigned plane = 0; plane < column.width; ++plane) {
        unsigned char* const out = planes.data() + plane * values.size();
        for (std::size_t i = 0; i < values.size(); ++i)
            out[i] = static_cast<unsigned char>(codes[i] >> (8 * plane) & 0xFF);
    }
    column.bytes = deflated(planes);
    return column;
}

template <class T>
PackedColumn packFloats(std::span<const T> values) {
    // Every float can be written with nine digits, so only few decimals indicate decimal input.
    constexpr unsigned finest = sizeof(T) == sizeof(float) ? 6 : finestDecimal;
    unsigned decimals = 0;
    for (const T value : values) {
        if (std::isnan(value))
            continue;
        // An integer cannot represent a negative zero.
        if (!std::isfinite(value) || (value == 0 && std::signbit(value)))
            return packBits(values);
        while (!isDecimal(value, decimals)) {
            if (++decimals > finest)
                return packBits(values);
        }
    }
    std::vector<std::optional<std::int64_t>> whole(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (std::isnan(values[i]))
            continue;
        // With more decimals than a value needs, it may exceed the range of exact integers.
        if (!isDecimal(values[i], decimals))
            return packBits(values);
        whole[i] =
            static_cast<std::int64_t>(std::nearbyint(static_cast<double>(values[i]) * powersOfTen[decimals]));
    }
    auto column = packIntegers(whole, decimals);
    return column ? std::move(*column) : packBits(values);
}

template PackedColumn packFloats<float>(std::span<const float>);
template PackedColumn packFloats<double>(std::span<const double>);

PackedColumn packCoordinates(std::span<const double> values) {
    double farthest = 0;
    for (const double value : values) {
        if (!std::isfinite(value))
            return packBits(values);
        farthest = std::max(farthest, std::abs(value));
    }
    const double tolerance = 4 * std::numeric_limits<double>::epsilon() * farthest;
    // Unless the tolerance is a small part of the step, every value is near a multiple of the step.
    const auto tellsApart = [&](unsigned digits) { return tolerance * powersOfTen[digits] <= 0.05; };
    if (!tellsApart(0))
        return packFloats(values);
    unsigned decimals = 0;
    std::vector<std::optional<std::int64_t>> whole(values.size());
    const auto isNear = [&](double value) {
        const double units = std::nearbyint(value * powersOfTen[decimals]);
        return std::abs(units) < largestExactInteger &&
               std::abs(value - units / powersOfTen[decimals]) <= tolerance;
    };
    for (const double value : values) {
        while (!isNear(value)) {
            if (++decimals > finestDecimal || !tellsApart(decimals))
                return packFloats(values);
        }
    }
    for (std::size_t i = 0; i < values.size(); ++i)
        whole[i] = static_cast<std::int64_t>(std::nearbyint(values[i] * powersOfTen[decimals]));
    auto column = packIntegers(whole, decimals);
    return column ? std::move(*column) : packBits(values);
}

std::string base64(std::string_view bytes) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byte = [&](std::size_t at) -> unsigned {
        return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U;
    };
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const unsigned word = byte(at) << 16 | byte(at + 1) << 8 | byte(at + 2);
        for (unsigned digit = 0; digit < 4; ++digit)
            text += at + digit > bytes.size() ? '=' : alphabet[word >> (18 - 6 * digit) & 63];
    }
    return text;
}

} // namespace Tidewatch
