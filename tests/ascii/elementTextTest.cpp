// SPDX-License-Identifier: Apache-2.0
#include "ascii/elementText.hpp"

#include "support/TemporaryFolder.hpp"

#include <cstdio>
#include <fstream>
#include <limits>
#include <string>

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

} // namespace
