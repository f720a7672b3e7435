// SPDX-License-Identifier: Apache-2.0
#include "readers/las/ArithmeticDecoder.hpp"

#include "formats/las/ArithmeticEncoder.hpp"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Formats::Las::BitModel;
using Formats::Las::SymbolModel;
using Tidewatch::Las::ArithmeticDecoder;

ArithmeticDecoder::Source sourceOf(const std::string& bytes) {
    return [&bytes, next = std::size_t{0}]() mutable -> std::optional<std::uint8_t> {
        if (next == bytes.size())
            return std::nullopt;
        return static_cast<std::uint8_t>(bytes[next++]);
    };
}

TEST(SymbolModel, FreshModelSharesTheIntervalEqually) {
    const SymbolModel model(4);
    EXPECT_EQ(model.lowerBound(0), 0U);
    EXPECT_EQ(model.lowerBound(1), 1U << 13);
    EXPECT_EQ(model.lowerBound(3), 3U << 13);
}

TEST(SymbolModel, OneSymbolOverAndOverLeavesEveryOtherAPlace) {
    SymbolModel model(64);
    for (int i = 0; i < 500000; ++i)
        model.count(63);
    for (std::uint32_t symbol = 0; symbol < 63; ++symbol)
        EXPECT_LT(model.lowerBound(symbol), model.lowerBound(symbol + 1));
}

TEST(BitModel, BothBitsKeepAPlaceHoweverRareOneIs) {
    BitModel zeros;
    BitModel ones;
    for (int i = 0; i < 100000; ++i) {
        zeros.count(false);
        ones.count(true);
    }
    EXPECT_LT(zeros.oneBound(), 1U << BitModel::precision);
    EXPECT_GT(ones.oneBound(), 0U);
}

TEST(ArithmeticDecoder, GivesBackWhatWasEncodedForEveryKindOfSymbol) {
    std::mt19937 engine(7);
    const auto random = [&engine] { return static_cast<std::uint32_t>(engine()); };
    for (const std::uint32_t symbols : {2U, 3U, 16U, 17U, 33U, 64U, 256U, 516U}) {
        std::vector<std::uint32_t> sent;
        SymbolModel encodeModel(symbols);
        BitModel encodeBit;
        Formats::Las::ArithmeticEncoder encoder;
        for (int i = 0; i < 20000; ++i) {
            // Mostly one symbol, so that the counts are halved and the interval gets narrow.
            const std::uint32_t symbol = random() % 8 == 0 ? random() % symbols : symbols - 1;
            const bool bit = random() % 50 == 0;
            const unsigned width = 1 + random() % 32;
            const std::uint32_t number = random() & (width == 32 ? 0xFFFFFFFFU : (1U << width) - 1);
            sent.insert(sent.end(), {symbol, bit ? 1U : 0U, width, number});
            encoder.symbol(encodeModel, symbol);
            encoder.bit(encodeBit, bit);
            encoder.bits(width, number);
        }
        const std::string bytes = encoder.finish();
        ArithmeticDecoder decoder(sourceOf(bytes));
        SymbolModel model(symbols);
        BitModel bit;
        for (std::size_t i = 0; i < sent.size(); i += 4) {
            ASSERT_EQ(decoder.symbol(model), sent[i]) << symbols << " symbols, " << i / 4;
            ASSERT_EQ(decoder.bit(bit) ? 1U : 0U, sent[i + 1]);
            ASSERT_EQ(decoder.bits(static_cast<unsigned>(sent[i + 2])), sent[i + 3]);
        }
    }
}

TEST(ArithmeticDecoder, StreamThatEndsEarlyIsDamage) {
    SymbolModel encodeModel(256);
    Formats::Las::ArithmeticEncoder encoder;
    for (std::uint32_t symbol = 0; symbol < 200; ++symbol)
        encoder.symbol(encodeModel, symbol);
    const std::string bytes = encoder.finish();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const std::string start = bytes.substr(0, size);
        EXPECT_THROW(
            {
                ArithmeticDecoder decoder(sourceOf(start));
                SymbolModel model(256);
                for (int i = 0; i < 200; ++i)
                    static_cast<void>(decoder.symbol(model));
            },
            ArithmeticDecoder::Damage)
            << size;
    }
}

TEST(ArithmeticDecoder, ImpossibleStartIsDamage) {
    const std::string bytes(8, '\xFF');
    EXPECT_THROW(ArithmeticDecoder decoder(sourceOf(bytes)), ArithmeticDecoder::Damage);
    const std::string possible("\xFF\xFF\xFF\xFE", 4);
    EXPECT_NO_THROW(ArithmeticDecoder decoder(sourceOf(possible)));
}

TEST(ArithmeticDecoder, AnyBytesDecodeToSymbolsOrDamage) {
    std::mt19937 random(11);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(4 + random() % 60, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 4 == 0 ? 255 : random() % 256);
        int decoded = 0;
        try {
            ArithmeticDecoder decoder(sourceOf(bytes));
            SymbolModel model(33);
            BitModel bit;
            for (; decoded < 100000; ++decoded) {
                ASSERT_LT(decoder.symbol(model), 33U);
                static_cast<void>(decoder.bit(bit));
                ASSERT_LT(decoder.bits(5), 32U);
            }
        } catch (const ArithmeticDecoder::Damage&) {
        }
        // Five plain bits a turn: the bytes must have run out.
        ASSERT_LT(decoded, 200);
    }
}

} // namespace
