// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/ArithmeticModel.hpp"

#include <cstdint>
#include <string>

namespace Support {

/// The counterpart of Las::ArithmeticDecoder, for tests that forge streams. The models are the reader's; that
/// they are right shows in files written by LASzip.
class ArithmeticEncoder {
public:
    void symbol(Tidewatch::Las::SymbolModel& model, std::uint32_t symbol) {
        using Tidewatch::Las::SymbolModel;
        const std::uint32_t whole = length_;
        const std::uint32_t unit = length_ >> SymbolModel::precision;
        const std::uint32_t lower = model.lowerBound(symbol) * unit;
        const bool isLast = symbol + 1 == model.symbolCount();
        narrow(lower, (isLast ? whole : model.lowerBound(symbol + 1) * unit) - lower);
        model.count(symbol);
    }

    void bit(Tidewatch::Las::BitModel& model, bool one) {
        const std::uint32_t bound = model.oneBound() * (length_ >> Tidewatch::Las::BitModel::precision);
        if (one)
            narrow(bound, length_ - bound);
        else
            narrow(0, bound);
        model.count(one);
    }

    void bits(unsigned count, std::uint32_t number) {
        if (count > 19) {
            bits(16, number & 0xFFFFU);
            bits(count - 16, number >> 16);
            return;
        }
        const std::uint32_t unit = length_ >> count;
        narrow(number * unit, unit);
    }

    /// Ends the stream, with as many bytes as a decoder reads.
    [[nodiscard]] std::string finish() {
        constexpr std::uint32_t shortest = 1U << 24;
        const bool isLong = length_ > 2 * shortest;
        add(isLong ? shortest : shortest >> 1);
        length_ = isLong ? shortest >> 1 : shortest >> 9;
        renew();
        bytes_.append(isLong ? 3 : 2, '\0');
        return bytes_;
    }

private:
    void add(std::uint32_t amount) {
        const std::uint32_t before = base_;
        base_ += amount;
        if (base_ >= before)
            return;
        for (std::size_t i = bytes_.size(); i-- > 0;) {
            bytes_[i] = static_cast<char>(static_cast<unsigned char>(bytes_[i]) + 1);
            if (bytes_[i] != 0)
                return;
        }
    }

    void narrow(std::uint32_t lower, std::uint32_t length) {
        add(lower);
        length_ = length;
        renew();
    }

    void renew() {
        while (length_ < (1U << 24)) {
            bytes_ += static_cast<char>(base_ >> 24);
            base_ <<= 8;
            length_ <<= 8;
        }
    }

    std::string bytes_;
    std::uint32_t base_ = 0;
    std::uint32_t length_ = 0xFFFFFFFF;
};

} // namespace Support
