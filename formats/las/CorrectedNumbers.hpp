// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/ArithmeticModel.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Formats::Las {

/// How the chunk table of LAZ files stores 32-bit numbers: as corrections of predicted ones. A correction is coded as
/// the number of its bits, with a model for each context, and then its index among the corrections of that many bits:
/// the upper eight bits with a model, the others without. Corrections of k bits are -(2^k - 1) to -2^(k-1) and
/// 2^(k-1) + 1 to 2^k; all arithmetic is modulo 2^32.
class CorrectedNumbers {
public:
    /// The contexts of the table: points of a chunk (only where chunks vary in size), and its bytes.
    static constexpr std::size_t points = 0;
    static constexpr std::size_t bytes = 1;

    CorrectedNumbers() {
        for (unsigned count = 1; count <= wordBits; ++count)
            upperBits_.emplace_back(1U << std::min(count, modelledBits));
    }

    template <class Decoder>
    [[nodiscard]] std::uint32_t read(Decoder& decoder, std::uint32_t predicted, std::size_t context) {
        return predicted + correction(decoder, bitCounts_[context]);
    }

    template <class Encoder>
    void write(Encoder& encoder, std::uint32_t predicted, std::uint32_t number, std::size_t context) {
        const auto correction = static_cast<std::int64_t>(static_cast<std::int32_t>(number - predicted));
        const auto magnitude = static_cast<std::uint64_t>(correction <= 0 ? -correction : correction - 1);
        const auto count = static_cast<unsigned>(std::bit_width(magnitude));
        encoder.symbol(bitCounts_[context], count);
        if (count == 0) {
            encoder.bit(zeroOrOne_, correction == 1);
            return;
        }
        if (count == wordBits)
            return;
        const auto place = static_cast<std::uint32_t>(
            correction < 0 ? correction + (std::int64_t{1} << count) - 1 : correction - 1);
        const unsigned plain = count - std::min(count, modelledBits);
        encoder.symbol(upperBits_[count - 1], place >> plain);
        if (plain != 0)
            encoder.bits(plain, place & ((1U << plain) - 1));
    }

private:
    static constexpr unsigned wordBits = 32;
    static constexpr unsigned modelledBits = 8;

    template <class Decoder>
    std::uint32_t correction(Decoder& decoder, SymbolModel& bitCounts) {
        const unsigned count = decoder.symbol(bitCounts);
        if (count == 0)
            return decoder.bit(zeroOrOne_) ? 1 : 0;
        if (count == wordBits)
            return 0x80000000U;
        std::uint32_t place = decoder.symbol(upperBits_[count - 1]);
        if (count > modelledBits)
            place = (place << (count - modelledBits)) | decoder.bits(count - modelledBits);
        const std::uint32_t half = 1U << (count - 1);
        return place >= half ? place + 1 : place - (2 * half - 1);
    }

    std::array<SymbolModel, 2> bitCounts_{SymbolModel(wordBits + 1), SymbolModel(wordBits + 1)};
    BitModel zeroOrOne_;
    std::vector<SymbolModel> upperBits_;
};

} // namespace Formats::Las
