// SPDX-License-Identifier: Apache-2.0
#include "ascii/elementText.hpp"

#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <locale.h>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// What a writing function puts into a line.
template <class Write>
std::string textOf(Write&& write) {
    const Support::TemporaryFolder folder;
    {
        std::ofstream out(folder / "line");
        ConvLib::LineWriter line(out, false);
        write(line);
    }
    return Support::readBytes(folder / "line");
}

template <class T>
std::string toText(T value, unsigned int precision) {
    return textOf([&](ConvLib::LineWriter& line) { ExportLib::toText(line, value, precision); });
}

template <class T>
std::string elementText(const T& element) {
    return textOf([&](ConvLib::LineWriter& line) { ExportLib::elementText(line, element); });
}

TEST(ToText, FloatingPointNumbersHaveSixDecimalsWithoutAPrecision) {
    EXPECT_EQ(toText(1.25, 0), " 1.250000");
    EXPECT_EQ(toText(-0.1F, 0), " -0.100000");
    EXPECT_EQ(toText(16777217.5F, 0), " 16777218.000000");
    EXPECT_EQ(toText(0.1L, 0), " 0.100000");
    EXPECT_EQ(toText(-0.0, 0), " -0.000000");
}

TEST(ToText, LongDoubleKeepsDigitsThatADoubleHasNot) {
    EXPECT_EQ(toText(9007199254740993.5L, 0), " 9007199254740993.500000");
    EXPECT_EQ(toText(0.1L, 25), " 0.1000000000000000000013553");
}

TEST(ToText, PrecisionIsTheNumberOfDecimalsOfFloatingPointNumbers) {
    EXPECT_EQ(toText(1.25, 2), " 1.25");
    EXPECT_EQ(toText(1.25, 1), " 1.2");
    EXPECT_EQ(toText(1.75, 1), " 1.8");
    EXPECT_EQ(toText(0.1F, 20), " 0.10000000149011611938");
}

TEST(ToText, PrecisionBeyondThirtyOneBitsIsTakenForTheGreatestOne) {
    std::ofstream nowhere;
    ConvLib::LineWriter line(nowhere, false);
    ExportLib::toText(line, 1.0, 4294967295U);
    line.finish();
    EXPECT_EQ(line.bytes(), std::string(" 1.").size() + 2147483647U);
}

TEST(ToText, NotANumberAndInfinityAreWords) {
    EXPECT_EQ(toText(std::numeric_limits<double>::quiet_NaN(), 0), " nan");
    EXPECT_EQ(toText(-std::numeric_limits<float>::quiet_NaN(), 3), " -nan");
    EXPECT_EQ(toText(-std::numeric_limits<long double>::infinity(), 0), " -inf");
}

TEST(ToText, IntegersAreDecimalWhateverThePrecision) {
    for (const unsigned int precision : {0U, 1U, 6U}) {
        EXPECT_EQ(toText(std::numeric_limits<int>::min(), precision), " -2147483648");
        EXPECT_EQ(toText(std::numeric_limits<unsigned int>::max(), precision), " 4294967295");
        EXPECT_EQ(toText(std::numeric_limits<unsigned long long>::max(), precision), " 18446744073709551615");
        EXPECT_EQ(toText(std::numeric_limits<unsigned short>::max(), precision), " 65535");
    }
}

TEST(ToText, ByteIsANumberWithoutAPrecision) {
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(toText(static_cast<unsigned char>(byte), 0), std::string(" ").append(std::to_string(byte)));
}

TEST(ToText, ByteIsTheRawCharacterWithAPrecision) {
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(toText(static_cast<unsigned char>(byte), 2), std::string(" ") + static_cast<char>(byte));
}

TEST(ElementText, EveryComponentFollowsABlank) {
    EXPECT_EQ(elementText(Geom::PhysicalSpace::point{1.5, -2, 0}), " 1.500000 -2.000000 0.000000");
    EXPECT_EQ(elementText(Geom::PhysicalSpace::vector{1e6, 1e-7, -0.0}),
              " 1000000.000000 0.000000 -0.000000");
    EXPECT_EQ(elementText(Geom::PhysicalSpace::bivector{1, 2, 3}), " 1.000000 2.000000 3.000000");
    EXPECT_EQ(elementText(Sheaf::Element::FloatBivector{0.1F, 2, 3}), " 0.100000 2.000000 3.000000");
    EXPECT_EQ(elementText(Sheaf::Element::Color{{{255, 0, 7}}}), " 255 0 7");
}

TEST(ElementText, ScalarIsItsDefaultText) {
    EXPECT_EQ(elementText(2.5), " 2.500000");
    EXPECT_EQ(elementText(static_cast<unsigned char>(65)), " 65");
}

// A million numbers against printf, at once into one file.

/// What printf writes with six decimals in the C locale, behind a blank and before a line end.
template <class T>
class Printer {
public:
    void append(std::string& to, T value) {
        static const locale_t plain = newlocale(LC_ALL_MASK, "C", locale_t{});
        const locale_t before = uselocale(plain);
        int length = 0;
        if constexpr (std::is_same_v<T, long double>)
            length = std::snprintf(text_.data(), text_.size(), " %Lf\n", value);
        else
            length = std::snprintf(text_.data(), text_.size(), " %f\n", static_cast<double>(value));
        uselocale(before);
        to.append(text_.data(), static_cast<std::size_t>(length));
    }

private:
    std::vector<char> text_ = std::vector<char>(6000);
};

/// A number of any size, where every so manieth is made of random bits: subnormal, huge, or none at all.
template <class T>
T randomNumber(std::mt19937_64& random, int index) {
    if constexpr (std::is_same_v<T, long double>) {
        const auto digits = static_cast<long double>(random());
        if (index % 500 == 0)
            return std::ldexp(index % 1000 == 0 ? digits : -digits,
                              static_cast<int>(random() % 32900) - 16510);
        return digits / std::pow(10.0L, static_cast<long double>(random() % 25)) - 1;
    } else {
        using Bits = std::conditional_t<std::is_same_v<T, float>, std::uint32_t, std::uint64_t>;
        if (index % 20 == 0)
            return std::bit_cast<T>(static_cast<Bits>(random()));
        if (index % 20 == 1) // subnormal
            return std::bit_cast<T>(
                static_cast<Bits>(static_cast<Bits>(random()) >> (std::is_same_v<T, float> ? 9 : 12)));
        return static_cast<T>((static_cast<double>(random() >> 1) - 0x1p62) /
                              std::pow(10.0, static_cast<double>(random() % 22)));
    }
}

template <class T>
class ElementTextOfMany : public ::testing::Test {};
using FloatingTypes = ::testing::Types<float, double, long double>;
TYPED_TEST_SUITE(ElementTextOfMany, FloatingTypes);

TYPED_TEST(ElementTextOfMany, AMillionNumbersHaveTheTextOfPrintf) {
    using Limits = std::numeric_limits<TypeParam>;
    std::vector<TypeParam> numbers{0,
                                   -TypeParam(0),
                                   Limits::min(),
                                   Limits::max(),
                                   Limits::lowest(),
                                   Limits::denorm_min(),
                                   -Limits::denorm_min(),
                                   Limits::epsilon(),
                                   Limits::infinity(),
                                   -Limits::infinity(),
                                   Limits::quiet_NaN(),
                                   TypeParam(0.5),
                                   TypeParam(0.0000005),
                                   TypeParam(0.0000015)};
    std::mt19937_64 random(4);
    for (int index = 0; index < 1'000'000; ++index)
        numbers.push_back(randomNumber<TypeParam>(random, index));

    // Some at a time, since the long ones take thousands of digits.
    Printer<TypeParam> printer;
    constexpr std::size_t block = 50'000;
    for (std::size_t begin = 0; begin < numbers.size(); begin += block) {
        const std::size_t end = std::min(begin + block, numbers.size());
        std::string expected;
        for (std::size_t i = begin; i < end; ++i)
            printer.append(expected, numbers[i]);
        const std::string actual = textOf([&](ConvLib::LineWriter& line) {
            for (std::size_t i = begin; i < end; ++i) {
                ExportLib::elementText(line, numbers[i]);
                line.endLine();
            }
        });
        const auto [left, right] =
            std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
        ASSERT_TRUE(left == actual.end() && right == expected.end())
            << std::string(left, std::min(left + 40, actual.end())) << "instead of "
            << std::string(right, std::min(right + 40, expected.end()));
    }
}

} // namespace
