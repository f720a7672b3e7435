// SPDX-License-Identifier: Apache-2.0
#include "convlib/NumberText.hpp"

#include <algorithm>
#include <bit>
#include <cfenv>
#include <charconv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ConvLib::appendFixed;
using ConvLib::appendGeneral;
using ConvLib::appendInteger;

/// A buffer whose bytes behind the promised room are watched.
class Room {
public:
    explicit Room(std::size_t size) : bytes_(size + guard, '#'), size_(size) {}
    char* data() { return bytes_.data(); }
    std::string_view upTo(const char* end) const {
        return {bytes_.data(), static_cast<std::size_t>(end - bytes_.data())};
    }
    bool untouchedBehind() const { return bytes_.find_first_not_of('#', size_) == std::string::npos; }

private:
    static constexpr std::size_t guard = 32;
    std::string bytes_;
    std::size_t size_;
};

/// What printf writes in the C locale; the suite is also run with another one set.
class Printer {
public:
    std::string_view general(double value, int precision) {
        return printed([&] { return std::snprintf(text_.data(), text_.size(), "%.*g", precision, value); });
    }
    std::string_view fixed(double value, int decimals) {
        return printed([&] { return std::snprintf(text_.data(), text_.size(), "%.*f", decimals, value); });
    }
    std::string_view fixed(long double value, int decimals) {
        return printed([&] { return std::snprintf(text_.data(), text_.size(), "%.*Lf", decimals, value); });
    }

private:
    template <class Print>
    std::string_view printed(Print print) {
        static const locale_t plain = newlocale(LC_ALL_MASK, "C", locale_t{});
        const locale_t before = uselocale(plain);
        const int length = print();
        uselocale(before);
        return {text_.data(), static_cast<std::size_t>(length)};
    }

    std::vector<char> text_ = std::vector<char>(24000);
};

std::string bitsOf(double value) {
    return std::to_string(std::bit_cast<std::uint64_t>(value));
}

double parsed(const std::string& text) {
    double value = 0;
    EXPECT_EQ(std::from_chars(text.data(), text.data() + text.size(), value).ec, std::errc{}) << text;
    return value;
}

/// Compares appendGeneral with printf over values and precisions; stops at the first difference.
class GeneralChecker {
public:
    explicit GeneralChecker(int precision)
        : precision_(precision),
          printfPrecision_(precision < 0 ? 6 : std::min(precision, 2000)),
          room_(ConvLib::generalTextSize(precision)) {}

    [[nodiscard]] bool agrees(double value) {
        const char* end = appendGeneral(room_.data(), value, precision_);
        const auto text = room_.upTo(end);
        const auto wanted = printer_.general(value, printfPrecision_);
        ++compared_;
        if (text == wanted && room_.untouchedBehind())
            return true;
        ADD_FAILURE() << "precision " << precision_ << ", bits " << bitsOf(value) << ": \"" << text
                      << "\" instead of \"" << wanted << "\"";
        return false;
    }

    long compared() const { return compared_; }

private:
    int precision_;
    int printfPrecision_;
    Room room_;
    Printer printer_;
    long compared_ = 0;
};

template <class T>
class FixedChecker {
public:
    explicit FixedChecker(int decimals) : decimals_(decimals), room_(ConvLib::fixedTextSize<T>(decimals)) {}

    [[nodiscard]] bool agrees(T value) {
        const char* end = appendFixed(room_.data(), value, decimals_);
        const auto text = room_.upTo(end);
        const auto wanted = printer_.fixed(
            static_cast<std::conditional_t<std::is_same_v<T, float>, double, T>>(value), decimals_);
        ++compared_;
        if (text == wanted && room_.untouchedBehind())
            return true;
        ADD_FAILURE() << decimals_ << " decimals: \"" << text << "\" instead of \"" << wanted << "\"";
        return false;
    }

    long compared() const { return compared_; }

private:
    int decimals_;
    Room room_;
    Printer printer_;
    long compared_ = 0;
};

std::string general(double value, int precision) {
    Room room(ConvLib::generalTextSize(precision));
    return std::string(room.upTo(appendGeneral(room.data(), value, precision)));
}

template <class T>
std::string fixed(T value, int decimals) {
    Room room(ConvLib::fixedTextSize<T>(decimals));
    return std::string(room.upTo(appendFixed(room.data(), value, decimals)));
}

template <class T>
std::string integer(T value) {
    Room room(ConvLib::integerTextSize);
    return std::string(room.upTo(appendInteger(room.data(), value)));
}

/// A precision as part of a test's name.
std::string nameOf(int precision) {
    std::string name = std::to_string(precision);
    if (precision < 0)
        name.replace(0, 1, "minus");
    return name;
}

double anyBits(std::mt19937_64& random) {
    return std::bit_cast<double>(random());
}

/// k * 10^-n with up to `digits` digits: what surveyed coordinates look like.
double decimalLike(std::mt19937_64& random, int digits) {
    const auto bound = static_cast<std::uint64_t>(
        std::pow(10.0, 1 + static_cast<int>(random() % static_cast<unsigned>(digits))));
    const auto k = static_cast<double>(random() % bound);
    return (random() % 2 != 0 ? k : -k) / std::pow(10.0, static_cast<double>(random() % 12));
}

/// k / 2^n: values that end in 5 in decimal and so produce ties.
double binaryFraction(std::mt19937_64& random) {
    return std::ldexp(static_cast<double>(random() % (std::uint64_t{1} << (1 + random() % 40))),
                      -static_cast<int>(random() % 24));
}

/// The double nearest to a number of that many digits and one half: as hard to round as a double can be.
double nearTie(std::mt19937_64& random, int digits) {
    std::string text = std::to_string(1 + random() % 9);
    for (int i = 1; i < std::clamp(digits, 1, 17); ++i)
        text += static_cast<char>('0' + random() % 10);
    return parsed(text + "5e" + std::to_string(static_cast<int>(random() % 580) - 305));
}

const std::vector<double>& specialValues() {
    static const std::vector<double> values = [] {
        using Limits = std::numeric_limits<double>;
        std::vector<double> list{0.0,
                                 0.5,
                                 1.5,
                                 2.5,
                                 0.125,
                                 0.375,
                                 0.0625,
                                 9.5,
                                 99.5,
                                 999.5,
                                 999999.5,
                                 9999995,
                                 99999999.5,
                                 0.99999995,
                                 9.99999995,
                                 9.9999999e22,
                                 0.0001,
                                 0.00009999,
                                 0.00099999,
                                 123456789,
                                 12345678.5,
                                 1e15,
                                 4503599627370496.5,
                                 9007199254740993.0,
                                 Limits::max(),
                                 Limits::min(),
                                 Limits::denorm_min(),
                                 Limits::epsilon(),
                                 Limits::infinity(),
                                 Limits::quiet_NaN(),
                                 0x1.fffffffffffffp-1023,
                                 5e-324,
                                 1e23,
                                 8.41e21,
                                 9.5367431640625e-07,
                                 0x1p62,
                                 0x1p63,
                                 0x1p64,
                                 9223372036854775807.0};
        for (int power = -323; power <= 308; ++power) {
            const double exact = parsed("1e" + std::to_string(power));
            list.push_back(exact);
            list.push_back(std::nextafter(exact, 0.0));
            list.push_back(std::nextafter(exact, Limits::infinity()));
            list.push_back(parsed("9.9999999999999999e" + std::to_string(power - 1)));
            list.push_back(parsed("9.9999995e" + std::to_string(power - 1)));
            list.push_back(parsed("4.5e" + std::to_string(power - 1)));
        }
        for (int power = -1074; power <= 1023; ++power)
            list.push_back(std::ldexp(1.0, power));
        const std::size_t positive = list.size();
        for (std::size_t i = 0; i < positive; ++i)
            list.push_back(-list[i]);
        return list;
    }();
    return values;
}

class GeneralPrecision : public testing::TestWithParam<int> {};

TEST_P(GeneralPrecision, TextIsThatOfPrintf) {
    const int precision = GetParam();
    GeneralChecker checker(precision);
    std::mt19937_64 random(static_cast<std::uint64_t>(precision) + 17);
    // Hundreds of digits cost printf microseconds each.
    const int rounds = precision > 20 ? 1000 : 20000;
    for (const double value : specialValues())
        ASSERT_TRUE(checker.agrees(value));
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(checker.agrees(anyBits(random)));
        ASSERT_TRUE(checker.agrees(decimalLike(random, 17)));
        ASSERT_TRUE(checker.agrees(binaryFraction(random)));
        ASSERT_TRUE(checker.agrees(nearTie(random, precision)));
        const auto singleBits = static_cast<std::uint32_t>(random());
        ASSERT_TRUE(checker.agrees(static_cast<double>(std::bit_cast<float>(singleBits))));
        ASSERT_TRUE(checker.agrees(static_cast<double>(std::bit_cast<float>(singleBits & 0xffffffu))));
        ASSERT_TRUE(checker.agrees(std::bit_cast<double>(random() & ((std::uint64_t{1} << 52) - 1))));
    }
    EXPECT_EQ(checker.compared(), static_cast<long>(specialValues().size()) + 7L * rounds);
}

INSTANTIATE_TEST_SUITE_P(NumberText, GeneralPrecision,
                         testing::Values(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                                         20, 50, 767, 800, -1, -7, INT_MAX, INT_MIN),
                         [](const auto& instance) { return nameOf(instance.param); });

TEST(NumberText, GeneralPrecisionEightAgreesWithPrintfOnAMillionSurveyedValues) {
    GeneralChecker checker(8);
    std::mt19937_64 random(8);
    for (int i = 0; i < 500000; ++i) {
        ASSERT_TRUE(checker.agrees(static_cast<double>(random() % 2000000000) * 0.001 - 1000000.0));
        ASSERT_TRUE(
            checker.agrees(static_cast<double>(static_cast<float>(random() % 65536) * (1.0F / 65535.0F))));
    }
}

TEST(NumberText, GeneralRowHasOneBlankBetweenValuesAndNoneBehind) {
    const std::vector<double> values{1.5, -0.0, 1e300, 1e-310, 0.25};
    Room room(values.size() * ConvLib::generalTextSize(8));
    EXPECT_EQ(room.upTo(ConvLib::appendGeneralRow(room.data(), values, 8)), "1.5 -0 1e+300 1e-310 0.25");
    EXPECT_EQ(room.upTo(ConvLib::appendGeneralRow(room.data(), std::span(values).first(1), 8)), "1.5");
    EXPECT_EQ(room.upTo(ConvLib::appendGeneralRow(room.data(), {}, 8)), "");
    EXPECT_TRUE(room.untouchedBehind());
}

TEST(NumberText, GeneralPrecisionZeroWritesOneDigit) {
    EXPECT_EQ(general(1234.5, 0), "1e+03");
    EXPECT_EQ(general(0.96, 0), "1");
    EXPECT_EQ(general(2.5, 0), "2");
    EXPECT_EQ(general(3.5, 0), "4");
}

TEST(NumberText, GeneralNegativePrecisionWritesSixDigits) {
    EXPECT_EQ(general(1234.56789, -1), "1234.57");
    EXPECT_EQ(general(1234.56789, INT_MIN), "1234.57");
}

TEST(NumberText, GeneralExponentFormBeginsAtThePrecisionAndBelowMinusFour) {
    EXPECT_EQ(general(12345678, 8), "12345678");
    EXPECT_EQ(general(123456789, 8), "1.2345679e+08");
    EXPECT_EQ(general(99999999.6, 8), "1e+08");
    EXPECT_EQ(general(0.0001, 8), "0.0001");
    EXPECT_EQ(general(0.00009, 8), "9e-05");
    EXPECT_EQ(general(0.000099999999999, 8), "0.0001");
    EXPECT_EQ(general(1e100, 8), "1e+100");
    EXPECT_EQ(general(-4.9e-324, 8), "-4.9406565e-324");
}

TEST(NumberText, GeneralHugePrecisionWritesEveryDigitOfTheValue) {
    EXPECT_EQ(general(0.1, INT_MAX), "0.1000000000000000055511151231257827021181583404541015625");
    const double longest = 0x1.fffffffffffffp-1022;
    EXPECT_EQ(general(longest, INT_MAX).size(), std::string("2.e-308").size() + 766);
}

TEST(NumberText, InfinitiesAndNaNAreWrittenAsPrintfWritesThem) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(general(infinity, 8), "inf");
    EXPECT_EQ(general(-infinity, 8), "-inf");
    EXPECT_EQ(general(nan, 8), "nan");
    EXPECT_EQ(general(std::copysign(nan, -1.0), 8), "-nan");
    EXPECT_EQ(fixed(infinity, 6), "inf");
    EXPECT_EQ(fixed(-infinity, 6), "-inf");
    EXPECT_EQ(fixed(nan, 2000), "nan");
    EXPECT_EQ(fixed(std::copysign(nan, -1.0), 6), "-nan");
    EXPECT_EQ(fixed(std::numeric_limits<long double>::infinity(), 6), "inf");
    EXPECT_EQ(fixed(-std::numeric_limits<long double>::quiet_NaN(), 6), "-nan");
}

TEST(NumberText, ZerosKeepTheirSign) {
    EXPECT_EQ(general(0.0, 8), "0");
    EXPECT_EQ(general(-0.0, 8), "-0");
    EXPECT_EQ(fixed(-0.0, 2), "-0.00");
    EXPECT_EQ(fixed(-0.001, 2), "-0.00");
    EXPECT_EQ(fixed(-0.0, 0), "-0");
}

class FixedDecimals : public testing::TestWithParam<int> {};

TEST_P(FixedDecimals, TextIsThatOfPrintf) {
    const int decimals = GetParam();
    FixedChecker<double> checker(decimals);
    FixedChecker<float> singleChecker(decimals);
    std::mt19937_64 random(static_cast<std::uint64_t>(decimals) + 29);
    const int rounds = decimals > 20 ? 500 : 15000;
    const auto& values = specialValues();
    for (std::size_t i = 0; i<values.size(); i += decimals> 20 ? 11 : 1)
        ASSERT_TRUE(checker.agrees(values[i]));
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(checker.agrees(decimalLike(random, 17)));
        ASSERT_TRUE(checker.agrees(binaryFraction(random)));
        ASSERT_TRUE(checker.agrees(static_cast<double>(random()) *
                                   std::pow(10.0, -static_cast<double>(random() % 22))));
        ASSERT_TRUE(singleChecker.agrees(std::bit_cast<float>(static_cast<std::uint32_t>(random()))));
        if (i % 10 == 0) {
            ASSERT_TRUE(checker.agrees(anyBits(random)));
        }
    }
    EXPECT_GE(checker.compared(), 3L * rounds);
}

TEST_P(FixedDecimals, TextOfLongDoubleIsThatOfPrintf) {
    const int decimals = GetParam();
    FixedChecker<long double> checker(decimals);
    std::mt19937_64 random(static_cast<std::uint64_t>(decimals) + 31);
    using Limits = std::numeric_limits<long double>;
    for (const long double value :
         {0.0L, -0.0L, 0.5L, 1.5L, 2.5L, 0.1L, 1e18L, 0x1p62L, 0x1p63L, 0x1p64L, Limits::max(),
          Limits::lowest(), Limits::min(), Limits::denorm_min(), Limits::epsilon()}) {
        ASSERT_TRUE(checker.agrees(value));
        ASSERT_TRUE(checker.agrees(std::nextafter(value, Limits::infinity())));
        ASSERT_TRUE(checker.agrees(std::nextafter(value, -Limits::infinity())));
    }
    const int rounds = decimals > 20 ? 200 : 5000;
    for (int i = 0; i < rounds; ++i) {
        const auto k = static_cast<long double>(random());
        ASSERT_TRUE(checker.agrees(k * std::pow(10.0L, -static_cast<long double>(random() % 25))));
        ASSERT_TRUE(checker.agrees(-k / static_cast<long double>(std::uint64_t{1} << (random() % 64))));
        if (i % 50 == 0) {
            ASSERT_TRUE(checker.agrees(std::ldexp(k, static_cast<int>(random() % 32000) - 16400)));
        }
    }
    EXPECT_GE(checker.compared(), 2L * rounds);
}

INSTANTIATE_TEST_SUITE_P(NumberText, FixedDecimals,
                         testing::Values(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15, 16, 17, 20, 400, 1100,
                                         17000),
                         [](const auto& instance) { return nameOf(instance.param); });

TEST(NumberText, FixedNegativeDecimalsCountAsSix) {
    EXPECT_EQ(fixed(1.25, -1), "1.250000");
    EXPECT_EQ(fixed(1.25L, INT_MIN), "1.250000");
}

TEST(NumberText, FixedTiesGoToTheEvenDigit) {
    EXPECT_EQ(fixed(0.5, 0), "0");
    EXPECT_EQ(fixed(1.5, 0), "2");
    EXPECT_EQ(fixed(0.125, 2), "0.12");
    EXPECT_EQ(fixed(0.375, 2), "0.38");
    EXPECT_EQ(fixed(0.375F, 2), "0.38");
    EXPECT_EQ(fixed(1.005, 2), "1.00");
}

TEST(NumberText, RoundingModeOfTheHostChangesNothing) {
    std::mt19937_64 random(41);
    std::vector<double> values;
    for (int i = 0; i < 20000; ++i) {
        values.push_back(decimalLike(random, 17));
        values.push_back(nearTie(random, 8));
        values.push_back(anyBits(random));
    }
    const auto texts = [&values] {
        std::string all;
        for (const double value : values) {
            all += general(value, 8);
            all += ' ';
            all += general(value, 17);
            all += ' ';
            all += fixed(value, 3);
            all += '\n';
        }
        return all;
    };
    const std::string expected = texts();
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        const std::string actual = texts();
        std::fesetround(FE_TONEAREST);
        EXPECT_TRUE(actual == expected) << "mode " << mode;
    }
}

TEST(NumberText, IntegersOfEveryTypeAreWrittenAsNumbers) {
    EXPECT_EQ(integer(true), "1");
    EXPECT_EQ(integer('A'), "65");
    EXPECT_EQ(integer(static_cast<signed char>(-128)), "-128");
    EXPECT_EQ(integer(static_cast<unsigned char>(255)), "255");
    EXPECT_EQ(integer(static_cast<short>(SHRT_MIN)), "-32768");
    EXPECT_EQ(integer(static_cast<unsigned short>(USHRT_MAX)), "65535");
    EXPECT_EQ(integer(INT_MIN), "-2147483648");
    EXPECT_EQ(integer(UINT_MAX), "4294967295");
    EXPECT_EQ(integer(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(integer(ULLONG_MAX), "18446744073709551615");
}

} // namespace
