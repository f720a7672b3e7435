// SPDX-License-Identifier: Apache-2.0
#include "convlib/NumberText.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

// A number is converted to text in three ways, each used only if the one before is not certain of the result.
//
// 1. In double arithmetic (general notation, up to 12 digits). With k = floor(log10(value)), the product of
//    the value and 10^(digits-1-k) is rounded to the nearest integer. The table's powers of ten are truncated and the
//    product is rounded, with an error below 10^digits * 2^-50 in any rounding mode; so the integer is certain if the
//    product is closer to it than one half minus that error.
//
// 2. In 128-bit integers. A finite value is M * 2^E with 2^63 <= M < 2^64, exactly. A power of ten is
//    10^q = G * 2^e with 2^63 <= G < 2^64, and the table holds g = floor(G). So
//
//        value * 10^q = M * G * 2^(E + e),  and with p = M * g:  p <= M * G < p + M.
//
//    With s = -(E + e), the wanted integer is M * G / 2^s rounded. Its whole part is taken from p, and the
//    low s bits of p, the fraction f, decide the rounding against the half h = 2^(s-1):
//      * for 0 <= q <= 27 the power fits 64 bits, so g = G, f is exact, and ties are seen as such;
//      * otherwise the true fraction lies strictly between f and f + M:
//          - from f >= h follows "above the half" (where f + M carries into the whole part, rounding up says
//            the same);
//          - from f + M <= h follows "below the half";
//          - h - M < f < h leaves it open: for 17 digits 1 value in 64 at most, for fewer far less.
//
// 3. By std::to_chars.
namespace ConvLib {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr int lowestPower = -324;
constexpr int highestPower = 341;
constexpr int lastExactPower = 27;
constexpr int maxDoubleDigits = 12;
constexpr int maxIntegerDigits = 17;
constexpr std::size_t maxFastDecimals = 16;

// floor(x * log10(2)) and floor(x * log2(10)) for the exponents in use; verified below against the table.
constexpr std::int64_t floorLog10OfPowerOf2(std::int64_t x) {
    return (x * 1262611) >> 22;
}
constexpr std::int64_t floorLog2OfPowerOf10(std::int64_t x) {
    return (x * 1741647) >> 19;
}

constexpr bool isExact(std::int64_t power) {
    return power >= 0 && power <= lastExactPower;
}

/// A table with one entry for each power of ten in a range.
template <class T, int lowest, int highest>
struct TableOfPowers {
    std::array<T, std::size_t{highest - lowest + 1}> entries{};

    constexpr const T& operator[](std::int64_t power) const {
        return entries[static_cast<std::size_t>(power - lowest)];
    }
    constexpr T& operator[](std::int64_t power) { return entries[static_cast<std::size_t>(power - lowest)]; }
};

/// The normalised mantissas of the powers of ten, truncated to 64 bits.
struct Mantissas : TableOfPowers<std::uint64_t, lowestPower, highestPower> {
    /// Whether every entry is floor(G) with the exponent that floorLog2OfPowerOf10 returns.
    bool sound = true;

    // Each power is computed from its neighbour: a normalised 128-bit mantissa is multiplied or divided by 10 and
    // truncated again, which loses at most three units in the last place, fewer than 2^10 over the 341 steps. So the
    // upper half is floor(G) unless the lower half is within 2^10 of its maximum.
    constexpr Mantissas() {
        Wide up = Wide{1} << 127;
        int upExponent = 0;
        for (int power = 0; power <= highestPower; ++power) {
            set(power, up, upExponent);
            // up * 10 = (up + up / 4) * 8; a sum below `up` has carried past the 128th bit.
            const Wide sum = up + (up >> 2);
            const bool carried = sum < up;
            up = carried ? (sum >> 1) | (Wide{1} << 127) : sum;
            upExponent += carried ? 4 : 3;
        }
        Wide down = Wide{1} << 127;
        int downExponent = 0;
        for (int power = -1; power >= lowestPower; --power) {
            // down / 10 = down / 5 / 2; the quotient is shifted up, together with the remainder, until its top bit is
            // set.
            const Wide quotient = down / 5;
            const Wide rest = down % 5;
            const int shift = (quotient >> 125) == 0 ? 3 : 2;
            down = (quotient << shift) + (rest << shift) / 5;
            downExponent -= shift + 1;
            set(power, down, downExponent);
        }
    }

private:
    constexpr void set(std::int64_t power, Wide value, std::int64_t exponent) {
        (*this)[power] = static_cast<std::uint64_t>(value >> 64);
        const auto low = static_cast<std::uint64_t>(value);
        sound = sound && (value >> 127) == 1 && (isExact(power) ? low == 0 : low < ~std::uint64_t{1023});
        sound = sound && exponent == floorLog2OfPowerOf10(power);
    }
};

constexpr Mantissas mantissas;
static_assert(mantissas.sound);

// 10^k <= 2^x < 10^(k + 1) for k = floorLog10OfPowerOf2(x), over all exponents of a double.
static_assert([] {
    for (int x = -1074; x <= 1023; ++x) {
        const std::int64_t k = floorLog10OfPowerOf2(x);
        const std::int64_t lower = floorLog2OfPowerOf10(k);
        if (lower > x || (lower == x && k != 0) || floorLog2OfPowerOf10(k + 1) < x)
            return false;
    }
    return true;
}());

// The mantissa of a double ends in 11 zero bits, and that of no power beyond the exact ones does: so a comparison with
// such an entry is equivalent to a comparison with the power itself.
static_assert([] {
    for (int power = lowestPower; power <= highestPower; ++power) {
        if (!isExact(power) && (mantissas[power] & 0x7ff) == 0) {
            return false;
        }
    }
    return true;
}());

/// The largest doubles not above the powers of ten.
constexpr auto doublePowers = [] {
    TableOfPowers<double, -300, 305> powers;
    for (int power = -300; power <= 305; ++power) {
        // The mantissa's own top bit adds one to the exponent.
        const auto exponent = static_cast<std::uint64_t>(floorLog2OfPowerOf10(power) + 1022);
        powers[power] = std::bit_cast<double>((exponent << 52) + (mantissas[power] >> 11));
    }
    return powers;
}();

constexpr std::array<std::uint64_t, 18> smallPowers = [] {
    std::array<std::uint64_t, 18> powers{};
    std::uint64_t power = 1;
    for (auto& entry : powers) {
        entry = power;
        power *= 10;
    }
    return powers;
}();

constexpr std::uint64_t smallPower(std::int64_t power) {
    return smallPowers[static_cast<std::size_t>(power)];
}

/// For the numbers below 10^4 their four digits as text, the first in the lowest byte.
constexpr std::array<std::uint32_t, 10000> fourDigits = [] {
    std::array<std::uint32_t, 10000> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i)
        table[i] = 0x30303030 + (i / 1000 | i / 100 % 10 << 8 | i / 10 % 10 << 16 | i % 10 << 24);
    return table;
}();

constexpr std::uint64_t eightZeros = 0x3030303030303030;

/// Eight decimal digits of a number below 10^8 as text, the first in the lowest byte.
std::uint64_t eightDigits(std::uint64_t number) {
    const std::uint64_t upper = number / 10000;
    return fourDigits[upper] | std::uint64_t{fourDigits[number - upper * 10000]} << 32;
}

/// The number of digits, out of eight, up to the last non-zero one; at least one.
std::int64_t significantDigits(std::uint64_t text) {
    return static_cast<std::int64_t>((std::bit_width((text ^ eightZeros) | 1) + 7) / 8);
}

/// Stores eight characters, the lowest byte first.
void store(char* out, std::uint64_t text) {
    static_assert(std::endian::native == std::endian::little, "Tidewatch runs on little-endian machines");
    std::memcpy(out, &text, sizeof text);
}

/// A value of magnitude mantissa * 2^exponent, the mantissa's top bit set.
struct Normalised {
    std::uint64_t mantissa;
    std::int64_t exponent;
};

constexpr std::uint64_t hiddenBit = std::uint64_t{1} << 52;

/// Splits the magnitude of a finite non-zero value into mantissa and exponent.
Normalised normalise(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto biased = static_cast<std::int64_t>((bits >> 52) & 0x7ff);
    const std::uint64_t fraction = bits & (hiddenBit - 1);
    if (biased != 0)
        return {(fraction | hiddenBit) << 11, biased - 1086};
    const int shift = std::countl_zero(fraction);
    return {fraction << shift, -1074 - shift};
}

/// The same for a type whose mantissa has at most 64 bits.
Normalised normalise(long double value) {
    static_assert(std::numeric_limits<long double>::digits <= 64);
    int exponent = 0;
    const long double fraction = std::frexp(std::fabs(value), &exponent);
    return {static_cast<std::uint64_t>(std::ldexp(fraction, 64)), exponent - 64};
}

struct Rounded {
    std::uint64_t number;
    bool certain;
};

/// Rounds value * 10^power, which must be below 2^63, to the nearest integer, ties to even.
Rounded roundScaled(Normalised value, std::int64_t power) {
    const Wide product = Wide{value.mantissa} * mantissas[power];
    const std::int64_t shift = -(value.exponent + floorLog2OfPowerOf10(power) - 63);
    if (shift > 128) {
        // Even M * G has no more than 128 bits: the scaled value is below one half.
        return {0, true};
    }
    // From here on 65 <= shift <= 128, so the whole part and the half bit are in the product's upper word.
    const auto upper = static_cast<std::uint64_t>(product >> 64);
    const auto lower = static_cast<std::uint64_t>(product);
    const std::int64_t halfBit = shift - 65;
    const std::uint64_t half = std::uint64_t{1} << halfBit;
    const std::uint64_t whole = (upper >> halfBit) >> 1;
    const std::uint64_t fraction = upper & (half | (half - 1));
    if (isExact(power)) {
        const bool tie = fraction == half && lower == 0;
        return {whole + (tie ? whole & 1 : fraction >> halfBit), true};
    }
    const bool open = fraction + 1 == half && lower > std::uint64_t{0} - value.mantissa;
    return {whole + (fraction >> halfBit), !open};
}

/// A value rounded to a number of significant digits: number * 10^(exponent + 1 - digits), the number having
/// exactly that many digits.
struct Decimal {
    std::uint64_t number;
    std::int64_t exponent;
};

/// Rounding may have made 10 of 9.99...
void carry(Decimal& decimal, std::int64_t digits) {
    if (decimal.number == smallPower(digits)) {
        decimal.number = smallPower(digits - 1);
        ++decimal.exponent;
    }
}

/// Constants that the first way needs for a number of digits.
struct Precision {
    std::int64_t digits;
    /// The smallest number with more digits.
    std::uint64_t end;
    /// The factor that extends numbers of up to eight digits to eight.
    std::uint64_t lift;
    /// The distance from the nearest integer up to which rounding is certain.
    double certain;

    explicit Precision(int count)
        : digits(count),
          end(smallPower(std::min(count, maxDoubleDigits))),
          lift(smallPower(std::max(8 - count, 0))),
          certain(0.5 - static_cast<double>(end) * 0x1p-50) {}
};

/// The first way, for up to maxDoubleDigits; false if it is not certain of the result.
inline bool roundByDouble(std::uint64_t magnitude, const Precision& precision, Decimal& decimal) {
    constexpr auto lowest = std::bit_cast<std::uint64_t>(1e-290);
    constexpr auto highest = std::bit_cast<std::uint64_t>(1e290);
    if (magnitude - lowest >= highest - lowest)
        return false;
    const auto value = std::bit_cast<double>(magnitude);
    std::int64_t exponent = floorLog10OfPowerOf2(static_cast<std::int64_t>(magnitude >> 52) - 1023);
    // If the table's power is truncated, a double just below the true power compares as equal to it; once rounded, it
    // is equal.
    exponent += value >= doublePowers[exponent + 1] ? 1 : 0;
    const double scaled = value * doublePowers[precision.digits - 1 - exponent];
    // Added to 2^52, a smaller number is rounded to an integer, which is then in the low bits.
    constexpr double shifter = 0x1p52;
    const double shifted = scaled + shifter;
    decimal = {std::bit_cast<std::uint64_t>(shifted) - std::bit_cast<std::uint64_t>(shifter), exponent};
    // The rare carry is left to the second way. So is everything if the host has set another rounding mode and the
    // integer is not the nearest.
    return std::fabs((shifted - shifter) - scaled) < precision.certain && decimal.number < precision.end;
}

/// The second way; false if it is not certain of the result.
bool roundByInteger(std::uint64_t magnitude, int digits, Decimal& decimal) {
    const Normalised value = normalise(std::bit_cast<double>(magnitude));
    const std::int64_t binary = value.exponent + 63;
    std::int64_t exponent = floorLog10OfPowerOf2(binary);
    if (floorLog2OfPowerOf10(exponent + 1) == binary && value.mantissa >= mantissas[exponent + 1])
        ++exponent;
    const Rounded rounded = roundScaled(value, digits - 1 - exponent);
    decimal = {rounded.number, exponent};
    carry(decimal, digits);
    return rounded.certain;
}

char* appendExponent(char* out, std::int64_t exponent) {
    const auto size = static_cast<std::uint64_t>(exponent < 0 ? -exponent : exponent);
    const std::uint64_t sign = exponent < 0 ? 'e' | '-' << 8 : 'e' | '+' << 8;
    // "0045" has two digits to skip, "0308" one.
    const bool three = size >= 100;
    store(out, sign | std::uint64_t{fourDigits[size]} >> (three ? 8 : 16) << 16);
    return out + (three ? 5 : 4);
}

/// The general notation of one to eight digits.
inline char* layOutShort(char* out, Decimal decimal, const Precision& precision) {
    const std::uint64_t text = eightDigits(decimal.number * precision.lift);
    const std::int64_t count = significantDigits(text);
    const std::int64_t exponent = decimal.exponent;
    if (exponent >= 0 && exponent < precision.digits) {
        const std::int64_t whole = exponent + 1;
        store(out, text);
        if (count <= whole)
            return out + whole;
        out[whole] = '.';
        store(out + whole + 1, text >> (8 * whole));
        return out + count + 1;
    }
    if (exponent < 0 && exponent >= -4) {
        std::memcpy(out, "0.000000", 8);
        store(out + 1 - exponent, text);
        return out + 1 - exponent + count;
    }
    store(out, text);
    if (count > 1) {
        out[1] = '.';
        store(out + 2, text >> 8);
        out += count;
    }
    return appendExponent(out + 1, exponent);
}

/// The general notation of nine to seventeen digits.
char* layOutLong(char* out, Decimal decimal, std::int64_t digits) {
    const std::uint64_t number = decimal.number * smallPower(maxIntegerDigits - digits);
    const std::uint64_t first = number / smallPower(16);
    const std::uint64_t others = number - first * smallPower(16);
    const std::uint64_t upper = eightDigits(others / smallPower(8));
    const std::uint64_t lower = eightDigits(others % smallPower(8));
    std::array<char, 40> text{};
    text[0] = static_cast<char>('0' + first);
    store(text.data() + 1, upper);
    store(text.data() + 9, lower);
    std::int64_t count = 1;
    if (lower != eightZeros)
        count = 9 + significantDigits(lower);
    else if (upper != eightZeros)
        count = 1 + significantDigits(upper);

    const std::int64_t exponent = decimal.exponent;
    if (exponent >= 0 && exponent < digits) {
        const std::int64_t whole = exponent + 1;
        std::memcpy(out, text.data(), 17);
        if (count <= whole)
            return out + whole;
        out[whole] = '.';
        std::memcpy(out + whole + 1, text.data() + whole, 16);
        return out + count + 1;
    }
    if (exponent < 0 && exponent >= -4) {
        std::memcpy(out, "0.000000", 8);
        std::memcpy(out + 1 - exponent, text.data(), 17);
        return out + 1 - exponent + count;
    }
    out[0] = text[0];
    if (count > 1) {
        out[1] = '.';
        std::memcpy(out + 2, text.data() + 1, 16);
        out += count;
    }
    return appendExponent(out + 1, exponent);
}

char* generalByToChars(char* out, double value, int digits) {
    return std::to_chars(out, out + generalTextSize(digits), value, std::chars_format::general, digits).ptr;
}

/// The second and the third way, and everything that does not need rounding.
char* appendCarefully(char* out, double value, int digits) {
    if (digits > maxIntegerDigits || !std::isfinite(value))
        return generalByToChars(out, value, digits);
    *out = '-';
    char* const begin = out + (std::signbit(value) ? 1 : 0);
    if (value == 0) {
        *begin = '0';
        return begin + 1;
    }
    Decimal decimal{};
    if (!roundByInteger(std::bit_cast<std::uint64_t>(std::fabs(value)), digits, decimal))
        return generalByToChars(out, value, digits);
    return digits <= 8 ? layOutShort(begin, decimal, Precision(digits)) : layOutLong(begin, decimal, digits);
}

enum class Length { upToEight, more };

/// One number, for up to maxDoubleDigits.
template <Length length>
char* appendDigits(char* out, double value, const Precision& precision) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    constexpr std::uint64_t signBit = std::uint64_t{1} << 63;
    Decimal decimal{};
    if (!roundByDouble(bits & ~signBit, precision, decimal))
        return appendCarefully(out, value, static_cast<int>(precision.digits));
    *out = '-';
    out += bits >> 63;
    if constexpr (length == Length::upToEight)
        return layOutShort(out, decimal, precision);
    else
        return layOutLong(out, decimal, precision.digits);
}

template <class Append>
char* appendRow(char* out, std::span<const double> values, Append append) {
    for (const double value : values) {
        out = append(out, value);
        *out++ = ' ';
    }
    return values.empty() ? out : out - 1;
}

template <class T>
char* fixedByToChars(char* out, T value, int decimals) {
    // After the place of the last bit all decimals are 0, which needs no arithmetic.
    constexpr int lastBit = std::numeric_limits<T>::digits - std::numeric_limits<T>::min_exponent;
    const int computed = std::min(decimals, lastBit);
    char* end =
        std::to_chars(out, out + fixedTextSize<T>(computed), value, std::chars_format::fixed, computed).ptr;
    if (computed < decimals && std::isfinite(value)) {
        const auto missing = static_cast<std::size_t>(decimals - computed);
        std::memset(end, '0', missing);
        end += missing;
    }
    return end;
}

template <class T>
char* fixedText(char* out, T value, int decimals) {
    const auto places = static_cast<std::size_t>(decimals < 0 ? 6 : decimals);
    // One bit is left for rounding, of this comparison and of the result. NaN takes the slow way, too.
    if (places > maxFastDecimals ||
        !(std::fabs(value) < static_cast<T>(0x1p62) / static_cast<T>(smallPowers[places])))
        return fixedByToChars(out, value, static_cast<int>(places));
    *out = '-';
    out += std::signbit(value) ? 1 : 0;
    // These powers of ten are exact, so the rounding is always certain.
    static_assert(maxFastDecimals <= lastExactPower);
    const std::uint64_t number =
        value == 0 ? 0 : roundScaled(normalise(value), static_cast<int>(places)).number;
    const std::uint64_t whole = number / smallPowers[places];
    std::uint64_t fraction = number - whole * smallPowers[places];
    out = appendInteger(out, whole);
    if (places == 0)
        return out;
    *out++ = '.';
    if (places <= 8) {
        store(out, eightDigits(fraction * smallPowers[8 - places]));
    } else {
        fraction *= smallPowers[16 - places];
        store(out, eightDigits(fraction / smallPower(8)));
        store(out + 8, eightDigits(fraction % smallPower(8)));
    }
    return out + places;
}

} // namespace

char* appendGeneral(char* out, double value, int precision) noexcept {
    return appendGeneralRow(out, {&value, 1}, precision);
}

char* appendGeneralRow(char* out, std::span<const double> values, int precision) noexcept {
    const int digits = effectivePrecision(precision);
    if (digits > maxDoubleDigits) {
        return appendRow(out, values,
                         [=](char* to, double value) { return appendCarefully(to, value, digits); });
    }
    const Precision constants(digits);
    if (digits > 8) {
        return appendRow(out, values, [=](char* to, double value) {
            return appendDigits<Length::more>(to, value, constants);
        });
    }
    return appendRow(out, values, [=](char* to, double value) {
        return appendDigits<Length::upToEight>(to, value, constants);
    });
}

char* appendFixed(char* out, double value, int decimals) noexcept {
    return fixedText(out, value, decimals);
}

char* appendFixed(char* out, long double value, int decimals) noexcept {
    return fixedText(out, value, decimals);
}

} // namespace ConvLib
