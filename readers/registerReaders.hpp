// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstdint>

namespace Tidewatch {

/// Where the libraries run that read bundle files (HDF5) and rasters (GDAL).
enum class Reading : std::uint8_t {
    /// In processes of their own, which open nothing and have given up whatever they do not need. A file that
    /// brings such a process down is an Anchor::FormatError.
    Apart,
    /// In the process of the host. They were not written for hostile files.
    InProcess
};

/// Registers the readers of this library with the process: LAS and LAZ files, then bundle files, then
/// rasters where the library was built with GDAL. Calling it again with the same argument changes nothing; with
/// another, files are read that way from then on.
TIDEWATCH_API void registerReaders(Reading reading = Reading::Apart);

/// What keeps a process that reads files apart from everything else, as it is in force on this machine.
struct Sandbox {
    /// System calls are filtered.
    bool seccomp = false;
    /// The version of Landlock that keeps files away; 0 where the kernel has none.
    std::uint32_t landlock = 0;
    /// Memory and the size of files are limited. (Not memory under AddressSanitizer.)
    bool limits = false;
};

/// Starts a process that reads nothing and tells what is in force. Throws Anchor::FileError where it cannot be
/// started.
[[nodiscard]] TIDEWATCH_API Sandbox probeSandbox();

/// Whether files are read apart only where both seccomp and limits are in force; otherwise they are then refused
/// (Anchor::FileError). Not required unless a host asks for it.
TIDEWATCH_API void requireSandbox(bool isRequired) noexcept;

} // namespace Tidewatch
