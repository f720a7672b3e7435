// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"
#include "anchor/Workers.hpp"
#include "convlib/NumberText.hpp"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <span>
#include <string_view>

namespace ConvLib {

/// Composes lines of text. A line starts with the first thing appended and ends with endLine(). All bytes are
/// independent of any locale.
///
/// Cost, besides that of formatting numbers: a comparison and a copy for each piece.
class TIDEWATCH_API LineText {
public:
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;

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

    /// Ends the line with a newline character.
    void endLine() {
        character('\n');
        ++lines_;
        if (handsOverEachLine_)
            lineEnded();
    }

    /// Lines ended so far.
    std::uint64_t lines() const noexcept { return lines_; }

protected:
    LineText(std::size_t capacity, bool handsOverEachLine);
    ~LineText();

    /// Makes room for so many bytes behind the end.
    virtual void makeRoom(std::size_t size) = 0;
    /// Called when a line has ended, if each is to be handed over.
    virtual void lineEnded() noexcept {}

    // The text that is here, from buffer_ to end_, and where the buffer ends.
    std::unique_ptr<char[]> buffer_;
    char* end_;
    char* limit_;
    std::uint64_t lines_ = 0;
    bool handsOverEachLine_;

private:
    template <class T>
    void appendFixedInPieces(T value, int decimals);
};

/// Composes lines of text and writes them to an output file stream.
///
/// With `flushEachLine` every line is
/// written and flushed when it ends, so that it is in the file at once, with one write to the system;
/// otherwise lines are written in blocks of blockSize. Only a line longer than a block is written in pieces.
/// This works with any buffer of the stream: data is either copied into the buffer and flushed, or larger
/// than the buffer and then written directly.
///
/// The stream belongs to the caller and must outlive the writer; the caller may write to it before the
/// writer's first line and after finish(). It is only used for unformatted output.
///
/// Failed output does not throw, even if the stream is set to throw: further writing has no effect, and
/// failed() returns true. Only the constructor, a very long reserve() and composeInBlocks() can throw std::bad_alloc.
class TIDEWATCH_API LineWriter final : public LineText {
public:
    /// Size of the blocks that are written: large enough to make system calls cheap, small enough for the
    /// processor's caches.
    static constexpr std::size_t blockSize = std::size_t{256} * 1024;

    LineWriter(std::ofstream& stream, bool flushEachLine);

    /// Writes the remaining data, as finish() does.
    ~LineWriter();

    /// Appends items 0 to count - 1, `block` at a time: `compose(text, begin, end)` appends those from `begin` on and
    /// below `end` to a text; with workers (they may be null) by several threads at once, each to a text of its own.
    /// `appended(begin, end)` is called on the calling thread, in order, when the text of a block is in its place; it
    /// may throw to stop. The bytes, and what is flushed when, do not depend on the workers. With them, up to four
    /// blocks of text a worker are in memory.
    using Compose = std::function<void(LineText& text, std::size_t begin, std::size_t end)>;
    using Appended = std::function<void(std::size_t begin, std::size_t end)>;
    void composeInBlocks(std::size_t count, std::size_t block, Anchor::Workers* workers,
                         const Compose& compose, const Appended& appended);

    /// Writes the remaining data and flushes the stream. More may be appended afterwards.
    void finish() noexcept;

    /// Bytes passed to the stream so far, whether or not it could write them.
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// Whether the stream has failed, before the first line or since.
    bool failed() const noexcept;

    /// The system's error number of the first piece that the stream could not take; 0 if there was none.
    int error() const noexcept { return error_; }

protected:
    void makeRoom(std::size_t size) override;
    void lineEnded() noexcept override { flushLine(); }

private:
    void flushLine() noexcept;
    void handOver() noexcept;
    void write(std::string_view text) noexcept;
    void append(std::string_view lines, std::uint64_t ended);
    void noteError() noexcept;

    std::ofstream& stream_;
    std::uint64_t bytes_ = 0;
    int error_ = 0;
};

} // namespace ConvLib
