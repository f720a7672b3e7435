// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/ArithmeticModel.hpp"

#include <cstdint>
#include <string>

namespace Formats::Las {

/// Encodes symbols with the arithmetic coding of LAZ files (A. Said, 2004).
class ArithmeticEncoder {
public:
    void symbol(SymbolModel& model, std::uint32_t symbol) {
        const std::uint32_t whole = length_;
        const std::uint32_t unit = length_ >> SymbolModel::precision;
        const std::uint32_t lower = model.lowerBound(symbol) * unit;
        // The last symbol's part extends to the end of the interval, which absorbs rounding errors.
        const bool isLast = symbol + 1 == model.symbolCount();
        narrow(lower, (isLast ? whole : model.lowerBound(symbol + 1) * unit) - lower);
        model.count(symbol);
    }

    void bit(BitModel& model, bool one) {
        const std::uint32_t bound = model.oneBound() * (length_ >> BitModel::precision);
        if (one)
            narrow(bound, length_ - bound);
        else
            narrow(0, bound);
        model.count(one);
    }

    /// An unmodelled number of 1 to 32 bits.
    void bits(unsigned count, std::uint32_t number) {
        if (count > mostBitsAtOnce) {
            bits(halfWordBits, number & 0xFFFFU);
            bits(count - halfWordBits, number >> halfWordBits);
            return;
        }
        const std::uint32_t unit = length_ >> count;
        narrow(number * unit, unit);
    }

    /// Ends the stream, with as many bytes as a decoder reads.
    [[nodiscard]] std::string finish() {
        const bool isLong = length_ > 2 * shortestInterval;
        add(isLong ? shortestInterval : shortestInterval >> 1);
        length_ = isLong ? shortestInterval >> 1 : shortestInterval >> 9;
        renew();
        bytes_.append(isLong ? 3 : 2, '\0');
        return bytes_;
    }

private:
    /// Moves the interval up; a carry goes into the bytes that have left already.
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
        while (length_ < shortestInterval) {
            bytes_ += static_cast<char>(base_ >> 24);
            base_ <<= 8;
            length_ <<= 8;
        }
    }

    std::string bytes_;
    std::uint32_t base_ = 0;
    std::uint32_t length_ = 0xFFFFFFFF;
};

} // namespace Formats::Las
