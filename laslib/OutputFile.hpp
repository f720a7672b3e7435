// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

#include <cstddef>
#include <memory>
#include <streambuf>

/// An output file with one block of memory as its buffer. Code that writes records packs them directly into
/// the block; the compressor uses the same block as a stream buffer.
///
/// Errors are remembered, not reported: after an error nothing more is written, but positions advance as if
/// it were. So the compressor always sees a working stream, and never runs its own error handling in the
/// middle of a file.
class OutputFile final : public std::streambuf {
public:
    /// Creates or truncates the file.
    explicit OutputFile(const char* name);
    /// Closes the file.
    ~OutputFile() override;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] bool failed() const noexcept { return failed_; }

    /// Space for at most `pieceLimit` bytes at the current position; advance() then states how many were
    /// written there.
    [[nodiscard]] char* reserve(std::size_t bytes) {
        if (static_cast<std::size_t>(epptr() - pptr()) < bytes)
            makeRoom();
        return pptr();
    }
    void advance(std::size_t bytes) noexcept { pbump(static_cast<int>(bytes)); }
    static constexpr std::size_t pieceLimit = 65536;

    [[nodiscard]] U64 position() const noexcept { return blockBegin_ + static_cast<U64>(pptr() - pbase()); }
    void seek(U64 position);
    /// Seeks to the end of the file.
    void seekEnd();

    /// Closes the file; false if this or anything before failed. A second call only returns the result.
    bool close();

protected:
    int_type overflow(int_type character) override;
    int sync() override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

private:
    void flush();
    void makeRoom();
    void writeFront(std::size_t bytes);

    std::unique_ptr<char[]> block_;
    U64 blockBegin_ = 0; // the position in the file of the block's first byte
    U64 end_ = 0;        // the file's size, as far as blocks have been written
    int descriptor_;
    bool failed_ = false;
};
