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
    // Without O_NONBLOCK opening a pipe would wait for a writer.
    descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor_ < 0)
        throwSystemError(path_, "cannot open");
    try {
        state_ = look();
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

InputFile::InputFile(InputFile&& other) noexcept
    : path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      state_(other.state_) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(descriptor_, other.descriptor_);
    std::swap(state_, other.state_);
    return *this;
}

InputFile::~InputFile() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

Anchor::FileState InputFile::look() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0)
        throwSystemError(path_, "cannot get its status");
    if (!S_ISREG(status.st_mode))
        throw Anchor::FileError(path_ + ": is not a regular file");
    return Anchor::FileState(status);
}

void InputFile::requireUnchanged(const Anchor::FileState& since) const {
    if (look() != since)
        throw Anchor::FileError(path_ + ": has been changed since it was opened");
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
