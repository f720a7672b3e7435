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

/// What the decompressor is given to read in place of the file: a head that was made for it, followed by the
/// file's bytes from some place on.
///
/// So the decompressor sees nothing of the file that has not been checked, but the compressed points. Those
/// it reads byte by byte and without any bound of its own, hence two fences: reading ends at a place that is
/// set chunk by chunk, and when the stack has grown too deep. (A switch of GPS time sequences makes the
/// decompressor call itself; a stream of nothing but switches would use up the stack, at up to 36 000 calls
/// for a byte.)
class LazStream final : public std::streambuf {
public:
    /// Reads from `file`, which must outlive this object, from `fileBegin` on behind `head`.
    LazStream(const InputFile& file, std::vector<std::uint8_t> head, std::uint64_t fileBegin);
    ~LazStream() override;

    /// A stream on this buffer.
    [[nodiscard]] std::istream& stream() noexcept { return stream_; }

    /// The place in the file of the next byte; not below `fileBegin`.
    [[nodiscard]] std::uint64_t filePosition() const noexcept;

    /// The place in this stream of a place in the file.
    [[nodiscard]] std::uint64_t toStream(std::uint64_t fileOffset) const noexcept {
        return fileOffset - fileBegin_ + head_.size();
    }

    /// From now on the stream ends at this place in the file.
    void setEnd(std::uint64_t fileOffset);

    /// Takes the present depth of the stack as the one to measure from; called by whoever calls the
    /// decompressor.
    void markStack() noexcept;

    /// Throws the error that ended the stream before its time, if there was one: the file could not be read
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
