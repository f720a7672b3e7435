// SPDX-License-Identifier: Apache-2.0
//
// Takes arbitrary bytes for what a process that reads a file tells of it, and for what it is asked. Whatever they are,
// they become a bundle, or an Anchor::Error.
#include "anchor/Error.hpp"
#include "readers/apart/Message.hpp"
#include "readers/apart/PieceMessages.hpp"
#include "readers/source/fillBundle.hpp"
#include "support/MemoryFile.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

/// The host's side: what arrives is checked and becomes grids.
void takeStructure(std::string_view bytes) {
    static const Support::MemoryFile file("any");
    static const auto input = std::make_shared<Tidewatch::Input>(
        file.path(), ConvLib::ReadOptions(), Tidewatch::ModuleKind::Bundles, Tidewatch::Reading::Apart);
    Tidewatch::Apart::MessageReader reader(bytes);
    const Tidewatch::Structure structure = reader.structure();
    reader.finish();
    // What has been understood can be told again, in the same words.
    if (Tidewatch::Apart::MessageWriter().structure(structure).bytes().size() != bytes.size())
        std::abort();
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    static_cast<void>(Tidewatch::fillBundle(*bundle, structure, input));
}

/// The other side: a request for an array.
void takeRequest(std::string_view bytes) {
    Tidewatch::Apart::MessageReader reader(bytes);
    static_cast<void>(reader.array());
    static_cast<void>(reader.number64());
    static_cast<void>(reader.number64());
    static_cast<void>(reader.byte());
    reader.finish();
}

/// The host's side again: the pieces of an array, each with its type and its length before it.
void takePieces(std::string_view bytes) {
    constexpr std::uint64_t array = 1000;
    constexpr std::uint64_t memory = 300;
    Tidewatch::Apart::PieceMessages pieces(array);
    Tidewatch::Apart::MessageReader all(bytes);
    std::uint64_t sum = 0;
    while (!pieces.isComplete()) {
        const auto type = static_cast<Tidewatch::Apart::MessageType>(all.byte());
        const std::string message = all.text();
        Tidewatch::Apart::MessageReader reader(message);
        if (!pieces.accept(type, reader, memory) || type == Tidewatch::Apart::MessageType::NeedMemory)
            continue;
        const auto& piece = pieces.piece();
        sum += piece.count;
        const bool fits = piece.begin <= array && piece.count <= array - piece.begin && sum <= array &&
                          (type != Tidewatch::Apart::MessageType::Filled ||
                           (piece.place <= memory && piece.count <= memory - piece.place));
        if (!fits)
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (const auto take : {&takeStructure, &takeRequest, &takePieces}) {
        try {
            take(bytes);
        } catch (const Anchor::Error&) {
        }
    }
    return 0;
}
