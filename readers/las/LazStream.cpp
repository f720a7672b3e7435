// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazStream.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <utility>

namespace Tidewatch::Las {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} << 10;

// The decompressor needs less than 2 KiB of stack for any valid point; beyond this limit, one more byte may
// cost another 1.7 MiB.
constexpr std::uintptr_t deepestStack = std::uintptr_t{128} << 10;

std::uintptr_t stackPlace() noexcept {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

} // namespace

LazStream::LazStream(const InputFile& file, std::vector<std::uint8_t> head, std::uint64_t fileBegin)
    : file_(&file),
      head_(std::move(head)),
      fileBegin_(fileBegin),
      end_(toStream(file.size())),
      buffer_(std::max<std::size_t>(head_.size(), std::min<std::uint64_t>(bufferSize, file.size()))),
      stream_(this) {
    std::copy(head_.begin(), head_.end(), buffer_.begin());
    filled_ = head_.size();
    markStack();
}

LazStream::~LazStream() = default;

std::uint64_t LazStream::filePosition() const noexcept {
    const std::uint64_t position = bufferBegin_ + cursor_;
    return fileBegin_ + (position > head_.size() ? position - head_.size() : 0);
}

void LazStream::setEnd(std::uint64_t fileOffset) {
    const std::uint64_t position = bufferBegin_ + cursor_;
    end_ = toStream(fileOffset);
    // The buffer may contain bytes beyond the new end, or lack some before it.
    filled_ = static_cast<std::size_t>(std::min<std::uint64_t>(filled_, end_ - std::min(end_, bufferBegin_)));
    cursor_ = std::min(cursor_, filled_);
    if (bufferBegin_ + cursor_ != position) {
        bufferBegin_ = position;
        cursor_ = filled_ = 0;
    }
}

void LazStream::markStack() noexcept {
    stackMark_ = stackPlace();
}

void LazStream::rethrowFailure() const {
    if (failure_)
        std::rethrow_exception(failure_);
}

bool LazStream::fill() {
    const std::uint64_t position = bufferBegin_ + cursor_;
    if (failure_ || position >= end_)
        return false;
    // Exceptions must not pass through the decompressor, which would take them for its own errors.
    try {
        const std::uint64_t wanted = std::min<std::uint64_t>(buffer_.size(), end_ - position);
        const auto target = std::span(buffer_).first(static_cast<std::size_t>(wanted));
        if (position < head_.size()) {
            filled_ = std::min<std::size_t>(target.size(), head_.size() - static_cast<std::size_t>(position));
            std::memcpy(target.data(), head_.data() + position, filled_);
        } else {
            filled_ = file_->readUpTo(fileBegin_ + (position - head_.size()), target);
        }
    } catch (...) {
        failure_ = std::current_exception();
        filled_ = 0;
    }
    bufferBegin_ = position;
    cursor_ = 0;
    return filled_ != 0;
}

LazStream::int_type LazStream::underflow() {
    if (cursor_ == filled_ && !fill())
        return traits_type::eof();
    return traits_type::to_int_type(static_cast<char>(buffer_[cursor_]));
}

LazStream::int_type LazStream::uflow() {
    // The stream has no get area, so that every byte is read through this function.
    const std::uintptr_t here = stackPlace();
    if ((here < stackMark_ ? stackMark_ - here : here - stackMark_) > deepestStack) {
        stackExceeded_ = true;
        return traits_type::eof();
    }
    if (cursor_ == filled_ && !fill())
        return traits_type::eof();
    return traits_type::to_int_type(static_cast<char>(buffer_[cursor_++]));
}

std::streamsize LazStream::xsgetn(char* target, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        if (cursor_ == filled_ && !fill())
            break;
        const std::size_t piece = std::min(filled_ - cursor_, static_cast<std::size_t>(count - done));
        std::memcpy(target + done, buffer_.data() + cursor_, piece);
        cursor_ += piece;
        done += static_cast<std::streamsize>(piece);
    }
    return done;
}

LazStream::pos_type LazStream::seekoff(off_type offset, std::ios_base::seekdir direction,
                                       std::ios_base::openmode which) {
    const std::uint64_t base = direction == std::ios_base::beg   ? 0
                               : direction == std::ios_base::cur ? bufferBegin_ + cursor_
                                                                 : end_;
    return seekpos(static_cast<off_type>(base) + offset, which);
}

LazStream::pos_type LazStream::seekpos(pos_type position, std::ios_base::openmode which) {
    const off_type place = position;
    if ((which & std::ios_base::in) == 0 || place < 0)
        return pos_type(off_type(-1));
    const auto target = static_cast<std::uint64_t>(place);
    if (target >= bufferBegin_ && target <= bufferBegin_ + filled_) {
        cursor_ = static_cast<std::size_t>(target - bufferBegin_);
    } else {
        bufferBegin_ = target;
        cursor_ = filled_ = 0;
    }
    return position;
}

} // namespace Tidewatch::Las
