// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Handle.hpp"
#include "readers/bundle/hdf5/MetadataGuard.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace Tidewatch::Hdf5 {

/// What went wrong on a file below the HDF5 library; shared with the driver through which the file is
/// accessed.
struct FileFailure {
    /// The system's error number of the first failure; 0 while there is none.
    int number = 0;
    /// What was being done: "cannot write".
    const char* what = "";

    [[nodiscard]] explicit operator bool() const noexcept { return number != 0; }
    /// "cannot write: No space left on device".
    [[nodiscard]] std::string text() const;
};

/// File-access properties that make the HDF5 library use this project's own file driver: files in the plain
/// HDF5 layout, without any file lock. It differs from the library's own driver in two points.
///
/// A read beyond the end of the file fails; the library's driver gives zeros, so that a file that is cut off
/// while it is open would pass for a good one.
///
/// A write that fails is noted in `failure` and reported to the library as done. The library cannot let go of
/// a file whose last blocks it failed to write: it tries again at the end of the process, and crashes. What
/// could not be written is kept in memory, so that the library reads back what it wrote. So whoever writes
/// asks `failure` after each step, and finally once the file has been closed.
///
/// `failure`, and `guard` where there is one, must outlive the file. Each block of metadata has to pass the
/// guard before the library gets it. The handle is empty when the library refuses.
[[nodiscard]] PropertiesHandle fileAccess(FileFailure& failure, MetadataGuard* guard = nullptr);

/// Fills a block with bytes of a file from an address on; false when they are not all there.
[[nodiscard]] bool readExactly(int descriptor, std::uint64_t address, std::span<unsigned char> target);

} // namespace Tidewatch::Hdf5
