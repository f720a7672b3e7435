// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "readers/bundle/hdf5/FileDriver.hpp"
#include "readers/bundle/hdf5/Handle.hpp"
#include "readers/bundle/hdf5/Object.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace Tidewatch::Hdf5 {

/// An HDF5 file that is open for reading, without any file lock.
///
/// It keeps one file descriptor. Objects refer to the file, so it has to outlive them.
class OpenFile {
public:
    /// Opens the file. Throws Anchor::FileError when the system refuses, Anchor::FormatError when the library
    /// does: the file is damaged, cut off or no HDF5 file at all.
    explicit OpenFile(std::string path);

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// The path as it was given.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// Bytes of the file when it was opened.
    [[nodiscard]] std::uint64_t size() const noexcept { return state_.size; }

    /// The root group.
    [[nodiscard]] Object root() const;

    /// The object of an absolute path inside the file; each link on the way is checked.
    [[nodiscard]] Object open(const std::string& path) const;

    /// Fills a block with bytes of the file from an address on; false when they are not all there.
    [[nodiscard]] bool fetch(std::uint64_t address, std::span<unsigned char> target) const;

    /// Throws Anchor::FileError when the file has been written to since it was opened: what the library
    /// keeps of it in memory and what it reads from now on would not fit together.
    void requireUnchanged() const;

private:
    /// The system's number of the open file.
    [[nodiscard]] int descriptor() const;
    [[nodiscard]] Anchor::FileState look() const;
    /// Lets the guard know what the file says about its own build.
    void readParameters();

    std::string path_;
    FileFailure failure_;
    MetadataGuard guard_;
    FileHandle handle_; // after those two, which the driver uses until the file is closed
    Anchor::FileState state_;
};

} // namespace Tidewatch::Hdf5
