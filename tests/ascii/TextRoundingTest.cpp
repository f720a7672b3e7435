// SPDX-License-Identifier: Apache-2.0
#include "ascii/TextRounding.hpp"

#include "sheaf/ElementTypes.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

template <class T>
double roundingOf(std::vector<T> elements, unsigned int decimals) {
    ExportLib::TextRounding<T> rounding(decimals);
    for (const T& element : elements)
        rounding.add(element);
    EXPECT_EQ(rounding.count() == 0, rounding.worst() == 0);
    return rounding.worst();
}

TEST(TextRounding, NumbersWithFewDecimalsLoseNothing) {
    EXPECT_EQ(roundingOf<double>({0, 0.1, -2.5, 0.1 + 0.2, 123456.789, 1e300}, 6), 0);
    EXPECT_EQ(roundingOf<float>({0.1F, 406.68F, -1e30F, 16777216.0F}, 6), 0);
    EXPECT_EQ(roundingOf<long double>({0.1L, 1e4000L}, 6), 0);
    EXPECT_EQ(roundingOf<double>({}, 6), 0);
}

TEST(TextRounding, WorstLossOfAllIsTold) {
    EXPECT_NEAR(roundingOf<double>({0.5, 0.12345649, 1.0000002}, 6), 4.9e-7, 1e-15);
    EXPECT_NEAR(roundingOf<double>({1e-9}, 6), 1e-9, 1e-20);
    EXPECT_NEAR(roundingOf<double>({2.345}, 2), 0.005, 1e-12);
    EXPECT_NEAR(roundingOf<float>({0.00012345678F}, 6), 4.6e-7, 1e-8);
    EXPECT_NEAR(roundingOf<long double>({1.00000025L}, 6), 2.5e-7, 1e-15);
}

TEST(TextRounding, EveryNumberThatChangesIsCounted) {
    ExportLib::TextRounding<double> rounding(2);
    for (const double value : {0.5, 0.125, 1.25, 7.0001, -0.001})
        rounding.add(value);
    EXPECT_EQ(rounding.count(), 3U);
}

TEST(TextRounding, NumbersOfEverySizeAreRoundedToTheNearest) {
    for (int exponent = 0; exponent < 60; ++exponent) {
        const double value = std::ldexp(1 + 0x1p-40, exponent);
        const double loss = std::fabs(std::nearbyint(value) - value);
        EXPECT_EQ(roundingOf<double>({value}, 0), loss) << exponent;
    }
}

TEST(TextRounding, NumbersThatAreNotFiniteLoseNothing) {
    using Limits = std::numeric_limits<double>;
    EXPECT_EQ(roundingOf<double>({Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity()}, 6), 0);
    EXPECT_EQ(roundingOf<double>({0.5}, std::numeric_limits<unsigned int>::max()), 0);
}

TEST(TextRounding, ComponentsCountAndIntegersAndColoursDoNot) {
    EXPECT_NEAR(roundingOf<Geom::PhysicalSpace::vector>({{1, 2, 0.00000025}}, 6), 2.5e-7, 1e-15);
    EXPECT_GT(roundingOf<Sheaf::Element::FloatBivector>({{0, 1e-7F, 0}}, 6), 0);
    EXPECT_EQ(roundingOf<int>({7}, 6), 0);
    EXPECT_EQ(roundingOf<Sheaf::Element::Color>({{1, 2, 3}}, 6), 0);
}

TEST(TextRounding, LossIsThatOfThePrintedText) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 20000; ++i) {
        const double value = std::uniform_real_distribution<double>(-100, 100)(random);
        char text[64];
        std::snprintf(text, sizeof text, "%.6f", value);
        const double loss = std::fabs(std::round(value * 1e6) / 1e6 - value);
        EXPECT_NEAR(roundingOf<double>({value}, 6), loss, 1e-13);
        EXPECT_LE(loss, 0.5e-6 + 1e-13);
    }
}

TEST(TextRounding, FloatsThatTheTextStatesExactlyLoseNothing) {
    std::mt19937 random(5);
    int exact = 0;
    for (int i = 0; i < 20000; ++i) {
        const float value = std::ldexp(std::uniform_real_distribution<float>(-1, 1)(random), i % 40 - 20);
        char text[64];
        std::snprintf(text, sizeof text, "%.6f", static_cast<double>(value));
        if (std::strtof(text, nullptr) != value)
            continue;
        ++exact;
        EXPECT_EQ(roundingOf<float>({value}, 6), 0) << text;
    }
    EXPECT_GT(exact, 5000);
}

} // namespace
