// SPDX-License-Identifier: Apache-2.0
#include "convlib/LineWriter.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>

namespace ConvLib {

LineWriter::LineWriter(std::ofstream& stream, bool flushEachLine)
    : stream_(stream),
      buffer_(std::make_unique_for_overwrite<char[]>(blockSize)),
      end_(buffer_.get()),
      limit_(buffer_.get() + blockSize),
      flushEachLine_(flushEachLine) {}

LineWriter::~LineWriter() {
    finish();
}

void LineWriter::text(std::string_view text) {
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, blockSize);
        std::memcpy(reserve(piece.size()), piece.data(), piece.size());
        end_ += piece.size();
        text.remove_prefix(piece.size());
    }
}

void LineWriter::fixed(double value, int decimals) {
    appendFixedInPieces(value, decimals);
}

void LineWriter::fixed(long double value, int decimals) {
    appendFixedInPieces(value, decimals);
}

template <class T>
void LineWriter::appendFixedInPieces(T value, int decimals) {
    // After the place of the last bit all decimals are 0; a host may ask for two billion of them.
    constexpr int lastBit = std::numeric_limits<T>::digits - std::numeric_limits<T>::min_exponent;
    const int computed = std::min(decimals, lastBit);
    commit(appendFixed(reserve(fixedTextSize<T>(computed)), value, computed));
    if (computed == decimals || !std::isfinite(value))
        return;
    for (auto missing = static_cast<std::size_t>(decimals - computed); missing > 0;) {
        const std::size_t piece = std::min(missing, blockSize);
        std::memset(reserve(piece), '0', piece);
        end_ += piece;
        missing -= piece;
    }
}

void LineWriter::finish() noexcept {
    handOver();
    flushLine();
}

bool LineWriter::failed() const noexcept {
    return stream_.fail();
}

void LineWriter::makeRoom(std::size_t size) {
    handOver();
    const auto capacity = static_cast<std::size_t>(limit_ - buffer_.get());
    if (capacity < size) {
        buffer_ = std::make_unique_for_overwrite<char[]>(size);
        end_ = buffer_.get();
        limit_ = buffer_.get() + size;
    }
}

void LineWriter::flushLine() noexcept {
    handOver();
    try {
        errno = 0;
        stream_.flush();
    } catch (const std::exception&) {
        // The stream keeps its state, which failed() shows.
    }
    noteError();
}

void LineWriter::noteError() noexcept {
    if (error_ == 0 && stream_.fail())
        error_ = errno;
}

void LineWriter::handOver() noexcept {
    const auto size = end_ - buffer_.get();
    end_ = buffer_.get();
    if (size == 0)
        return;
    bytes_ += static_cast<std::uint64_t>(size);
    try {
        errno = 0;
        stream_.write(buffer_.get(), size);
    } catch (const std::exception&) {
        // The stream keeps its state, which failed() shows.
    }
    noteError();
}

} // namespace ConvLib
