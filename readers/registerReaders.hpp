// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstdint>

namespace Tidewatch {

/// Where HDF5, which reads bundle files, and GDAL, which reads rasters, run.
enum class Reading : std::uint8_t {
    /// In separate sandboxed processes, which cannot open files. A file that crashes such a process is an
    /// Anchor::FormatError.
    Apart,
    /// In the process of the host. Neither library was written for hostile files.
    InProcess
};

/// Registers the readers of this library with the process: LAS and LAZ files, then bundle files, then
/// rasters where the library was built with GDAL. Calling it again with the same argument changes nothing; with
/// another, files are read that way from then on.
TIDEWATCH_API void registerReaders(Reading reading = Reading::Apart);

/// The parts of the sandbox of the reading processes that are in force on this machine.
struct Sandbox {
    /// System calls are filtered.
    bool seccomp = false;
    /// The version of Landlock, which denies access to files; 0 where the kernel has none.
    std::uint32_t landlock = 0;
    /// Memory and the size of written files are limited. (Under AddressSanitizer, memory is not.)
    bool limits = false;
};

/// Starts a process that reads nothing and reports what is in force. Throws Anchor::FileError when it cannot
/// be started.
[[nodiscard]] TIDEWATCH_API Sandbox probeSandbox();

/// If required, files are read in separate processes only where both seccomp and limits are in force, and
/// refused (Anchor::FileError) elsewhere. The default is false.
TIDEWATCH_API void requireSandbox(bool isRequired) noexcept;

} // namespace Tidewatch
