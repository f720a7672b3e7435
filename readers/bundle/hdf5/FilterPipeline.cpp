// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/FilterPipeline.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace Tidewatch::Hdf5 {

namespace {

constexpr std::size_t checksumSize = 4;

/// The checksum of HDF5's filter 3: Fletcher's sums over 16-bit numbers, high byte first, modulo 65535.
std::uint32_t fletcher32(std::span<const std::byte> data) {
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    const auto fold = [](std::uint32_t sum) { return (sum & 0xffff) + (sum >> 16); };
    // How many numbers can be added before the second sum may overflow.
    constexpr std::size_t block = 360;
    const std::size_t pairs = data.size() / 2;
    for (std::size_t start = 0; start < pairs; start += block) {
        const std::size_t end = std::min(pairs, start + block);
        for (std::size_t i = start; i < end; ++i) {
            first += std::to_integer<std::uint32_t>(data[2 * i]) << 8 |
                     std::to_integer<std::uint32_t>(data[2 * i + 1]);
            second += first;
        }
        first = fold(first);
        second = fold(second);
    }
    if (data.size() % 2 != 0) {
        first += std::to_integer<std::uint32_t>(data.back()) << 8;
        second += first;
        first = fold(first);
        second = fold(second);
    }
    return fold(second) << 16 | fold(first);
}

void removeChecksum(std::vector<std::byte>& data) {
    if (data.size() < checksumSize)
        throw Anchor::FormatError("is too short for its checksum");
    const std::size_t size = data.size() - checksumSize;
    std::uint32_t stored = 0;
    for (std::size_t i = 0; i < checksumSize; ++i)
        stored |= std::to_integer<std::uint32_t>(data[size + i]) << (8 * i);
    data.resize(size);
    const std::uint32_t computed = fletcher32(data);
    // HDF5 1.6.2 and earlier swapped the bytes within both halves on little-endian machines.
    const std::uint32_t swapped = (computed & 0x00ff00ff) << 8 | (computed >> 8 & 0x00ff00ff);
    if (stored != computed && stored != swapped)
        throw Anchor::FormatError("does not match its checksum");
}

/// Shuffled data has all first bytes of the elements first, then all second bytes, and so on.
template <std::size_t Size>
void unshuffleElements(const std::byte* source, std::byte* target, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t byte = 0; byte < Size; ++byte)
            target[i * Size + byte] = source[byte * count + i];
    }
}

} // namespace

std::span<const std::byte> FilterPipeline::decode(std::vector<std::byte>& stored, std::uint32_t skipped,
                                                  std::size_t size) {
    // Output of one filter that is input of another may be slightly longer than the chunk: with a checksum,
    // or compressed twice.
    const std::size_t most = steps_.size() > 1 ? size + size / 256 + 64 * steps_.size() : size;
    for (std::size_t i = steps_.size(); i-- > 0;) {
        if (i < 32 && (skipped >> i & 1) != 0)
            continue;
        switch (steps_[i].filter) {
        case Filter::Deflate:
            inflate(stored, most);
            break;
        case Filter::Shuffle:
            unshuffle(stored, steps_[i].elementSize);
            break;
        case Filter::Fletcher32:
            removeChecksum(stored);
            break;
        }
    }
    if (stored.size() != size)
        throw Anchor::FormatError("has " + std::to_string(stored.size()) + " bytes where " +
                                  std::to_string(size) + " are needed");
    return stored;
}

void FilterPipeline::inflate(std::vector<std::byte>& data, std::size_t most) {
    struct Stream : z_stream {
        Stream() : z_stream{} {
            if (inflateInit(this) != Z_OK)
                throw Anchor::LimitError("cannot be decompressed: there is not enough memory");
        }
        ~Stream() { inflateEnd(this); }
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;
    } stream;
    constexpr std::size_t maxAtOnce = std::numeric_limits<uInt>::max();
    spare_.clear();
    std::size_t read = 0;
    std::size_t written = 0;
    int state = Z_OK;
    while (state == Z_OK) {
        if (written == spare_.size()) {
            if (written > most)
                throw Anchor::FormatError("decompresses to more bytes than are needed");
            // Grows with the output, so that a false size costs no memory. One extra byte leaves room to
            // detect the end of the stream.
            spare_.resize(std::min(most + 1, std::max({data.size(), std::size_t{65536}, 2 * written})));
        }
        const std::size_t in = std::min(data.size() - read, maxAtOnce);
        const std::size_t out = std::min(spare_.size() - written, maxAtOnce);
        stream.next_in = reinterpret_cast<Bytef*>(data.data() + read);
        stream.avail_in = static_cast<uInt>(in);
        stream.next_out = reinterpret_cast<Bytef*>(spare_.data() + written);
        stream.avail_out = static_cast<uInt>(out);
        state = ::inflate(&stream, Z_NO_FLUSH);
        read += in - stream.avail_in;
        written += out - stream.avail_out;
    }
    if (state != Z_STREAM_END)
        throw Anchor::FormatError("cannot be decompressed");
    spare_.resize(written);
    data.swap(spare_);
}

void FilterPipeline::unshuffle(std::vector<std::byte>& data, std::size_t elementSize) {
    if (elementSize < 2)
        return;
    const std::size_t count = data.size() / elementSize;
    if (count < 2)
        return;
    spare_.resize(data.size());
    switch (elementSize) {
    case 2:
        unshuffleElements<2>(data.data(), spare_.data(), count);
        break;
    case 4:
        unshuffleElements<4>(data.data(), spare_.data(), count);
        break;
    case 8:
        unshuffleElements<8>(data.data(), spare_.data(), count);
        break;
    default:
        for (std::size_t byte = 0; byte < elementSize; ++byte) {
            for (std::size_t i = 0; i < count; ++i)
                spare_[i * elementSize + byte] = data[byte * count + i];
        }
    }
    const std::size_t whole = count * elementSize;
    std::copy(data.begin() + static_cast<std::ptrdiff_t>(whole), data.end(),
              spare_.begin() + static_cast<std::ptrdiff_t>(whole));
    data.swap(spare_);
}

} // namespace Tidewatch::Hdf5
