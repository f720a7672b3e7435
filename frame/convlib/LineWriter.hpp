// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "convlib/NumberText.hpp"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <string_view>

namespace ConvLib {

/// Composes lines of text and writes them to an output file stream.
///
/// A line starts with the first thing appended and ends with endLine(). With `flushEachLine` every line is
/// written and flushed when it ends, so that it is in the file at once, with one write to the system;
/// otherwise lines are written in blocks of blockSize. Only a line longer than a block is written in pieces.
/// This works with any buffer of the stream: data is either copied into the buffer and flushed, or larger
/// than the buffer and then written directly.
///
/// The stream belongs to the caller and must outlive the writer; the caller may write to it before the
/// writer's first line and after finish(). All bytes are independent of any locale: the stream is only used
/// for unformatted output.
///
/// Failed output does not throw, even if the stream is set to throw: further writing has no effect, and
/// failed() returns true. Only the constructor and a very long reserve() can throw std::bad_alloc.
///
/// Cost, besides that of formatting numbers: a comparison and a copy for each piece, and no stream call per
/// line unless each line is flushed.
class TIDEWATCH_API LineWriter {
public:
    /// Size of the blocks that are written: large enough to make system calls cheap, small enough for the
    /// processor's caches.
    static constexpr std::size_t blockSize = std::size_t{256} * 1024;

    LineWriter(std::ofstream& stream, bool flushEachLine);
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// Writes the remaining data, as finish() does.
    ~LineWriter();

    /// Returns space for `size` more bytes of the current line, valid until the next call; commit() adds what
    /// was written there.
    [[nodiscard]] char* reserve(std::size_t size) {
        if (static_cast<std::size_t>(limit_ - end_) < size)
            makeRoom(size);
        return end_;
    }

    /// Adds the bytes from the last reserve() up to `end` to the line.
    void commit(char* end) noexcept { end_ = end; }

    /// Appends one character.
    void character(char c) {
        *reserve(1) = c;
        ++end_;
    }

    /// Appends text of any length.
    void text(std::string_view text);

    /// Appends an integer in decimal; character types, too, are written as numbers.
    template <std::integral T>
    void integer(T value) {
        commit(appendInteger(reserve(integerTextSize), value));
    }

    /// Appends a value in general notation, see appendGeneral.
    void general(double value, int precision) {
        commit(appendGeneral(reserve(generalTextSize(precision)), value, precision));
    }

    /// Appends values in general notation with one blank between neighbours, see appendGeneralRow; meant for
    /// a few values, because space for all of them is reserved at once.
    void generalRow(std::span<const double> values, int precision) {
        commit(appendGeneralRow(reserve(values.size() * generalTextSize(precision)), values, precision));
    }

    /// Appends a value in fixed notation, see appendFixed; any number of decimals, in a bounded amount of
    /// memory.
    void fixed(double value, int decimals);
    void fixed(long double value, int decimals);
    void fixed(float value, int decimals) { fixed(static_cast<double>(value), decimals); }

    /// Ends the line with a newline character; writes and flushes it if each line is to be flushed.
    void endLine() {
        character('\n');
        ++lines_;
        if (flushEachLine_)
            flushLine();
    }

    /// Writes the remaining data and flushes the stream. More may be appended afterwards.
    void finish() noexcept;

    /// Bytes passed to the stream so far, whether or not it could write them.
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// Lines ended so far.
    std::uint64_t lines() const noexcept { return lines_; }

    /// Whether the stream has failed, before the first line or since.
    bool failed() const noexcept;

    /// The system's error number of the first piece that the stream could not take; 0 if there was none.
    int error() const noexcept { return error_; }

private:
    void makeRoom(std::size_t size);
    void flushLine() noexcept;
    void handOver() noexcept;
    void noteError() noexcept;

    template <class T>
    void appendFixedInPieces(T value, int decimals);

    std::ofstream& stream_;
    std::unique_ptr<char[]> buffer_;
    char* end_;
    char* limit_;
    std::uint64_t bytes_ = 0;
    std::uint64_t lines_ = 0;
    bool flushEachLine_;
    int error_ = 0;
};

} // namespace ConvLib
