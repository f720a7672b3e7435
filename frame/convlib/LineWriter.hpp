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

/// Puts lines of text together and hands them to an output file stream.
///
/// A line is begun by the first thing appended and ended by endLine(). With `flushEachLine` every line is
/// handed over and flushed as it ends, so that it is in the file at once, in one write to the system;
/// otherwise lines leave in blocks of blockSize. Only a line longer than a block leaves in pieces. The
/// stream's buffer needs no attention for this: what is handed over is either copied into it and flushed, or
/// larger than it and then passed by.
///
/// The stream is the caller's and must outlive the writer; the caller may write to it before the writer's
/// first line and after finish(). All bytes are independent of any locale: the stream is used for unformatted
/// output alone.
///
/// Nothing is thrown for output that fails, not even where the stream is set to throw: writing goes on to no
/// effect, and failed() tells. Only the construction and a very long reserve() can throw, std::bad_alloc.
///
/// Cost beyond the numbers' own: a comparison and a copy for each piece, and no call into the stream per line
/// unless each is flushed.
class TIDEWATCH_API LineWriter {
public:
    /// Bytes that gather before they are handed over: large against the cost of a system call, small against
    /// a cache.
    static constexpr std::size_t blockSize = std::size_t{256} * 1024;

    LineWriter(std::ofstream& stream, bool flushEachLine);
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// Hands over what is left, as finish() does.
    ~LineWriter();

    /// Gives room for `size` more bytes of the current line, valid until the next call; commit() takes what
    /// was written.
    [[nodiscard]] char* reserve(std::size_t size) {
        if (static_cast<std::size_t>(limit_ - end_) < size)
            makeRoom(size);
        return end_;
    }

    /// Takes the bytes from the last reserve() up to `end` into the line.
    void commit(char* end) noexcept { end_ = end; }

    /// Appends one character.
    void character(char c) {
        *reserve(1) = c;
        ++end_;
    }

    /// Appends text of any length.
    void text(std::string_view text);

    /// Appends an integer in decimal, of a character type as well.
    template <std::integral T>
    void integer(T value) {
        commit(appendInteger(reserve(integerTextSize), value));
    }

    /// Appends a value in general notation, see appendGeneral.
    void general(double value, int precision) {
        commit(appendGeneral(reserve(generalTextSize(precision)), value, precision));
    }

    /// Appends values in general notation with one blank between neighbours, see appendGeneralRow; some
    /// values at most, since room for all of them is made at once.
    void generalRow(std::span<const double> values, int precision) {
        commit(appendGeneralRow(reserve(values.size() * generalTextSize(precision)), values, precision));
    }

    /// Appends a value in fixed notation, see appendFixed; any number of decimals, in a bounded amount of
    /// memory.
    void fixed(double value, int decimals);
    void fixed(long double value, int decimals);
    void fixed(float value, int decimals) { fixed(static_cast<double>(value), decimals); }

    /// Ends the line with a newline character; hands it over and flushes it where each line is to be flushed.
    void endLine() {
        character('\n');
        ++lines_;
        if (flushEachLine_)
            flushLine();
    }

    /// Hands over what is left and flushes the stream. More may be appended afterwards.
    void finish() noexcept;

    /// Bytes handed over to the stream so far, whether or not it could write them.
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// Lines ended so far.
    std::uint64_t lines() const noexcept { return lines_; }

    /// Whether the stream has failed, be it before the first line or since.
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
