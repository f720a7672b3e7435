// SPDX-License-Identifier: Apache-2.0
#include "readers/las/ArithmeticDecoder.hpp"

#include <utility>

namespace Tidewatch::Las {

using Formats::Las::halfWordBits;

ArithmeticDecoder::ArithmeticDecoder(Source source) : source_(std::move(source)) {
    for (int i = 0; i < 4; ++i)
        value_ = (value_ << 8) | nextByte();
    if (value_ == impossibleStart)
        throw Damage{"the compressed stream begins with an impossible code"};
}

std::uint32_t ArithmeticDecoder::nextByte() {
    const auto byte = source_();
    if (!byte)
        throw Damage{"the compressed stream ends too early"};
    return *byte;
}

void ArithmeticDecoder::renew() {
    while (length_ < Formats::Las::shortestInterval) {
        value_ = (value_ << 8) | nextByte();
        length_ <<= 8;
    }
}

std::uint32_t ArithmeticDecoder::symbol(SymbolModel& model) {
    const std::uint32_t unit = length_ >> SymbolModel::precision;
    std::uint32_t found = 0;
    std::uint32_t beyond = model.symbolCount();
    while (beyond - found > 1) {
        const std::uint32_t middle = found + (beyond - found) / 2;
        if (model.lowerBound(middle) * unit > value_)
            beyond = middle;
        else
            found = middle;
    }
    const std::uint32_t lower = model.lowerBound(found) * unit;
    // The last symbol's part extends to the end of the interval, which absorbs rounding errors.
    const std::uint32_t upper = beyond == model.symbolCount() ? length_ : model.lowerBound(beyond) * unit;
    value_ -= lower;
    length_ = upper - lower;
    renew();
    model.count(found);
    return found;
}

bool ArithmeticDecoder::bit(BitModel& model) {
    const std::uint32_t bound = model.oneBound() * (length_ >> BitModel::precision);
    const bool one = value_ >= bound;
    if (one) {
        value_ -= bound;
        length_ -= bound;
    } else {
        length_ = bound;
    }
    renew();
    model.count(one);
    return one;
}

std::uint32_t ArithmeticDecoder::bits(unsigned count) {
    if (count > Formats::Las::mostBitsAtOnce) {
        const std::uint32_t low = bits(halfWordBits);
        return low | (bits(count - halfWordBits) << halfWordBits);
    }
    length_ >>= count;
    const std::uint32_t number = value_ / length_;
    if (number >> count != 0)
        throw Damage{"the compressed stream is invalid"};
    value_ -= number * length_;
    renew();
    return number;
}

} // namespace Tidewatch::Las
