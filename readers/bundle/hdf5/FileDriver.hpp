// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Handle.hpp"

#include <cstddef>
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
/// HDF5 layout, without any file lock. It differs from the library's own driver in three points.
///
/// Given a descriptor, which stays the caller's and has to outlive the file, it reads that and opens nothing,
/// whatever the name that the library is told.
///
/// A read beyond the end of the file fails; the library's driver gives zeros, so that a file that is cut off
/// while it is open would pass for a good one.
///
/// A write that fails is noted in `failure` and reported to the library as done. The library cannot let go of
/// a file whose last blocks it failed to write: it tries again at the end of the process, and crashes. What
/// could not be written is kept in memory, so that the library reads back what it wrote. So whoever writes
/// asks `failure` after each step, and finally once the file has been closed.
///
/// `failure` must outlive the file. The handle is empty when the library refuses.
[[nodiscard]] PropertiesHandle fileAccess(FileFailure& failure, int descriptor = -1);

/// Makes the driver known to the library. Before that, nothing of a file is read.
void prepareDriver();

/// Fills a block with bytes of a file from an address on. Fewer than asked for: the file ends before, or, where
/// `failure` says so then, the system cannot read.
[[nodiscard]] std::size_t readFile(int descriptor, std::uint64_t address, std::span<unsigned char> target,
                                   FileFailure& failure);

} // namespace Tidewatch::Hdf5
