// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Handle.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Tidewatch::Hdf5 {

/// The first system error on a file below the HDF5 library; shared with the file driver.
struct FileFailure {
    /// The system's error number of the first failure; 0 while there is none.
    int number = 0;
    /// What failed: "cannot write".
    const char* what = "";

    [[nodiscard]] explicit operator bool() const noexcept { return number != 0; }
    /// "cannot write: No space left on device".
    [[nodiscard]] std::string text() const;
};

/// File-access properties that make the HDF5 library use this project's own file driver: files in the plain
/// HDF5 layout, without any file lock. It differs from the library's default driver in three ways.
///
/// Given a descriptor, which the caller owns and which has to outlive the file, it reads from that and opens
/// nothing, whatever name the library is given.
///
/// A read beyond the end of the file fails; the library's driver returns zeros, so that truncation of an open
/// file would go unnoticed.
///
/// A write that fails is recorded in `failure` and reported to the library as successful. The library cannot
/// close a file whose last blocks it failed to write: it tries again at the end of the process, and crashes.
/// What could not be written is kept in memory, so that the library reads back what it wrote. A writer
/// therefore has to check `failure` after each step and after closing the file.
///
/// `failure` must outlive the file. The handle is empty when the library refuses.
[[nodiscard]] PropertiesHandle fileAccess(FileFailure& failure, int descriptor = -1);

/// Registers the driver with the library.
void prepareDriver();

/// Reads bytes of a file from an address on; returns how many. Fewer than asked for: the file ends there or,
/// if `failure` is set, the system cannot read.
[[nodiscard]] std::size_t readFile(int descriptor, std::uint64_t address, std::span<unsigned char> target,
                                   FileFailure& failure);

} // namespace Tidewatch::Hdf5
