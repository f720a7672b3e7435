// SPDX-License-Identifier: Apache-2.0
#include "anchor/FileState.hpp"

namespace Anchor {

FileState::FileState(const struct stat& status) noexcept
    : identity{status.st_dev, status.st_ino},
      size(static_cast<std::uint64_t>(status.st_size)),
      seconds(status.st_mtim.tv_sec),
      nanoseconds(status.st_mtim.tv_nsec) {}

std::optional<FileIdentity> FileIdentity::of(const std::filesystem::path& path) {
    const auto state = FileState::of(path);
    return state ? std::optional(state->identity) : std::nullopt;
}

std::optional<FileState> FileState::of(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return FileState(status);
}

} // namespace Anchor
