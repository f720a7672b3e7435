// SPDX-License-Identifier: Apache-2.0
#include "readers/InputFile.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace Tidewatch {

namespace {

[[noreturn]] void throwSystemError(const std::string& path, const char* what) {
    throw Anchor::FileError(fmt::format("{}: {}: {}", path, what, std::generic_category().message(errno)));
}

} // namespace

InputFile::InputFile(std::string path) : path_(std::move(path)) {
    // Without O_NONBLOCK opening a pipe would wait for somebody who writes into it.
    descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor_ < 0)
        throwSystemError(path_, "cannot open");
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) {
        const int reason = errno;
        ::close(descriptor_);
        errno = reason;
        throwSystemError(path_, "cannot look at");
    }
    if (!S_ISREG(status.st_mode)) {
        ::close(descriptor_);
        throw Anchor::FileError(path_ + ": is not a regular file");
    }
    stamp_ = {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
              static_cast<std::uint64_t>(status.st_size), static_cast<std::int64_t>(status.st_mtim.tv_sec),
              static_cast<std::int64_t>(status.st_mtim.tv_nsec)};
}

InputFile::InputFile(InputFile&& other) noexcept
    : path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      stamp_(other.stamp_) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(descriptor_, other.descriptor_);
    std::swap(stamp_, other.stamp_);
    return *this;
}

InputFile::~InputFile() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

void InputFile::read(std::uint64_t offset, std::span<std::uint8_t> bytes, std::string_view object) const {
    if (readUpTo(offset, bytes) != bytes.size()) {
        throw Anchor::FormatError(fmt::format("{}: {}: the file ends too early ({} bytes at {} of {} bytes)",
                                              path_, object, bytes.size(), offset, size()));
    }
}

std::size_t InputFile::readUpTo(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const std::uint64_t place = offset + filled;
        if (place > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
            break;
        const ssize_t got =
            ::pread(descriptor_, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(place));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throwSystemError(path_, "cannot read");
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

} // namespace Tidewatch
