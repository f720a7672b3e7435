// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

#include <cstddef>
#include <memory>
#include <streambuf>

/// A file being written through one block of memory. Code that writes records packs them straight into the
/// block; the compressor uses the same block as a stream buffer.
///
/// Errors are kept, not told: after one nothing more is written, but positions go on as though it were. The
/// compressor thereby always sees a healthy stream and never meets its own ways of failing half-way.
class OutputFile final : public std::streambuf {
public:
    /// Makes the file, or empties it.
    explicit OutputFile(const char* name);
    /// Closes the file.
    ~OutputFile() override;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] bool failed() const noexcept { return failed_; }

    /// Room for a piece of at most `pieceLimit` bytes at the present position; advance() then says how many
    /// there are.
    [[nodiscard]] char* reserve(std::size_t bytes) {
        if (static_cast<std::size_t>(epptr() - pptr()) < bytes)
            makeRoom();
        return pptr();
    }
    void advance(std::size_t bytes) noexcept { pbump(static_cast<int>(bytes)); }
    static constexpr std::size_t pieceLimit = 65536;

    [[nodiscard]] U64 position() const noexcept { return blockBegin_ + static_cast<U64>(pptr() - pbase()); }
    void seek(U64 position);
    /// Goes behind the last byte.
    void seekEnd();

    /// Closes the file; false where it failed now or before. A second call only answers.
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
