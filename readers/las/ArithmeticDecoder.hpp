// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "formats/las/ArithmeticModel.hpp"

#include <cstdint>
#include <functional>
#include <optional>

namespace Tidewatch::Las {

/// Decodes the arithmetic coding of LAZ files; used only for the chunk table, which is checked before the
/// decompressor sees it. (A 32-bit interval, renormalized bytewise: A. Said, 2004.)
///
/// Throws Damage for a stream that ends early or is invalid.
class ArithmeticDecoder {
public:
    using SymbolModel = Formats::Las::SymbolModel;
    using BitModel = Formats::Las::BitModel;

    /// Returns the next byte, or nothing at the end.
    using Source = std::function<std::optional<std::uint8_t>()>;

    /// Thrown where the stream ends early or no encoder can have written it.
    struct Damage {
        const char* what;
    };

    /// A code that begins with four bytes of 255 lies outside the initial interval. Decoders that do not
    /// check for it read past the end of their tables.
    static constexpr std::uint32_t impossibleStart = 0xFFFFFFFF;

    /// Reads the first four bytes.
    explicit ArithmeticDecoder(Source source);

    [[nodiscard]] std::uint32_t symbol(SymbolModel& model);
    [[nodiscard]] bool bit(BitModel& model);

    /// An unmodelled number of 1 to 32 bits.
    [[nodiscard]] std::uint32_t bits(unsigned count);

private:
    [[nodiscard]] std::uint32_t nextByte();
    void renew();

    Source source_;
    std::uint32_t length_ = 0xFFFFFFFF;
    std::uint32_t value_ = 0;
};

} // namespace Tidewatch::Las
