// SPDX-License-Identifier: Apache-2.0
#include "library/output/ScratchFile.hpp"

#include "anchor/Error.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& name, std::string_view what, int error) {
    throw Anchor::FileError(fmt::format("{}: {}: {}", name, what, std::generic_category().message(error)));
}

fs::path existing(fs::path folder) {
    std::error_code error;
    while (!folder.empty() && !fs::is_directory(folder, error))
        folder = folder.parent_path();
    return folder.empty() ? "." : folder;
}

Descriptor openNameless(const std::string& folder) {
    Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    // Some file systems do not have them.
    if (file.isOpen() || (errno != EOPNOTSUPP && errno != EISDIR))
        return file;
    std::string name = folder + "/tidewatch-scratch-XXXXXX";
    file = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (file.isOpen())
        ::unlink(name.c_str());
    return file;
}

} // namespace

ScratchFile::ScratchFile(const fs::path& folder)
    : name_(fmt::format("scratch file in {}", existing(folder).string())),
      file_(openNameless(existing(folder).string())) {
    if (!file_.isOpen())
        fail(name_, "cannot be made", errno);
}

std::uint64_t ScratchFile::append(std::span<const std::byte> bytes) {
    const std::uint64_t begin = size_;
    while (!bytes.empty()) {
        const ssize_t written =
            ::pwrite(file_.number(), bytes.data(), bytes.size(), static_cast<off_t>(size_));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            fail(name_, "writing failed", written < 0 ? errno : ENOSPC);
        size_ += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return begin;
}

void ScratchFile::read(std::uint64_t offset, std::span<std::byte> bytes) const {
    while (!bytes.empty()) {
        const ssize_t got = ::pread(file_.number(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            fail(name_, "cannot be read", got < 0 ? errno : EIO);
        offset += static_cast<std::uint64_t>(got);
        bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
}

} // namespace Tidewatch
