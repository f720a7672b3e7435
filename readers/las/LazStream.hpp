// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/InputFile.hpp"

#include <cstdint>
#include <exception>
#include <istream>
#include <memory>
#include <streambuf>
#include <vector>

namespace Tidewatch::Las {

/// What the decompressor reads instead of the file: a generated head, followed by the file's bytes from some
/// offset on.
///
/// So the decompressor sees only checked data, except for the compressed points. It reads those byte by byte
/// without any bound of its own, hence two limits: reading ends at an offset that is set for each chunk, and
/// when the stack has grown too deep. (A switch of GPS time sequences makes the decompressor recurse; a
/// stream of nothing but switches would exhaust the stack, with up to 36 000 calls per byte.)
class LazStream final : public std::streambuf {
public:
    /// Provides `head`, then `file`, which must outlive this object, from `fileBegin` on.
    LazStream(const InputFile& file, std::vector<std::uint8_t> head, std::uint64_t fileBegin);
    ~LazStream() override;

    /// A stream on this buffer.
    [[nodiscard]] std::istream& stream() noexcept { return stream_; }

    /// The offset in the file of the next byte; not below `fileBegin`.
    [[nodiscard]] std::uint64_t filePosition() const noexcept;

    /// The offset in this stream of an offset in the file.
    [[nodiscard]] std::uint64_t toStream(std::uint64_t fileOffset) const noexcept {
        return fileOffset - fileBegin_ + head_.size();
    }

    /// Makes the stream end at this offset in the file.
    void setEnd(std::uint64_t fileOffset);

    /// Sets the current depth of the stack as the base for the limit; call before calling the decompressor.
    void markStack() noexcept;

    /// Throws the error that ended the stream early, if there was one: the file could not be read
    /// (Anchor::FileError).
    void rethrowFailure() const;

    /// Whether the stream ended because the stack had grown too deep.
    [[nodiscard]] bool stackExceeded() const noexcept { return stackExceeded_; }

protected:
    int_type underflow() override;
    int_type uflow() override;
    std::streamsize xsgetn(char* target, std::streamsize count) override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                     std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

private:
    [[nodiscard]] bool fill();

    const InputFile* file_;
    std::vector<std::uint8_t> head_;
    std::uint64_t fileBegin_;
    std::uint64_t end_; // in this stream
    std::uint64_t bufferBegin_ = 0;
    std::size_t cursor_ = 0; // in the buffer
    std::size_t filled_ = 0;
    std::vector<std::uint8_t> buffer_;
    std::uintptr_t stackMark_ = 0;
    bool stackExceeded_ = false;
    std::exception_ptr failure_;
    std::istream stream_;
};

} // namespace Tidewatch::Las
