// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Message.hpp"

#include <cstdint>
#include <string_view>

namespace Tidewatch::Apart {

/// Checks what a child says of the pieces of one array.
class PieceMessages {
public:
    /// A message about a piece, or NeedMemory with the `count` of bytes.
    struct Piece {
        MessageType type{};
        std::uint64_t begin = 0; ///< in the array
        std::uint64_t count = 0;
        std::uint64_t place = 0;     ///< of Filled, in the memory
        std::string_view bytes = {}; ///< of Data; those of the message
    };

    explicit PieceMessages(std::uint64_t arrayBytes) : arrayBytes_(arrayBytes), missing_(arrayBytes) {}

    /// Whether a message is one of Filled, Data and NeedMemory, which piece() then describes. `memoryBytes` is the size of
    /// the memory for pieces. Throws Anchor::FormatError for one that does not fit the array or the memory, or that is one
    /// piece too many.
    [[nodiscard]] bool accept(MessageType type, MessageReader& message, std::uint64_t memoryBytes);

    [[nodiscard]] const Piece& piece() const noexcept { return piece_; }

    /// Whether the pieces have as many bytes as the array.
    [[nodiscard]] bool isComplete() const noexcept { return missing_ == 0; }

private:
    std::uint64_t arrayBytes_;
    std::uint64_t missing_;
    Piece piece_;
};

} // namespace Tidewatch::Apart
