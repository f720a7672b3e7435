// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/PieceMessages.hpp"

#include "anchor/Error.hpp"

namespace Tidewatch::Apart {

bool PieceMessages::accept(MessageType type, MessageReader& message, std::uint64_t memoryBytes) {
    Piece piece{type};
    switch (type) {
    case MessageType::NeedMemory:
        piece.count = message.number64();
        if (piece.count > arrayBytes_)
            throw Anchor::FormatError("asks for more memory than the array has");
        message.finish();
        piece_ = piece;
        return true;
    case MessageType::Filled:
        piece.begin = message.number64();
        piece.count = message.number64();
        piece.place = message.number64();
        message.finish();
        if (piece.place > memoryBytes || piece.count > memoryBytes - piece.place)
            throw Anchor::FormatError("names a place outside the memory");
        break;
    case MessageType::Data:
        piece.begin = message.number64();
        piece.bytes = message.rest();
        piece.count = piece.bytes.size();
        break;
    default:
        return false;
    }
    if (piece.begin > arrayBytes_ || piece.count > arrayBytes_ - piece.begin || piece.count > missing_)
        throw Anchor::FormatError("names bytes outside the array");
    missing_ -= piece.count;
    piece_ = piece;
    return true;
}

} // namespace Tidewatch::Apart
