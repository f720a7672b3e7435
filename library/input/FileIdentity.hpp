// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <filesystem>
#include <optional>

#include <sys/stat.h>

namespace Tidewatch {

/// Which file it is, whatever its names: device and inode.
struct FileIdentity {
    dev_t device;
    ino_t inode;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;

    /// The file at a path, links followed; nothing where there is none.
    [[nodiscard]] static std::optional<FileIdentity> of(const std::filesystem::path& path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0)
            return std::nullopt;
        return FileIdentity{status.st_dev, status.st_ino};
    }
};

} // namespace Tidewatch
