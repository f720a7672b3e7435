// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/FileDriver.hpp"
#include "readers/bundle/hdf5/Handle.hpp"
#include "readers/bundle/hdf5/Object.hpp"
#include "readers/source/Source.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace Tidewatch::Hdf5 {

/// An HDF5 file that is read through a descriptor, without file locks. It has to outlive its objects.
class OpenFile {
public:
    /// Opens the first of the files, which have to stay open meanwhile. Throws Anchor::FormatError when the
    /// library refuses it: the file is damaged, truncated or not an HDF5 file.
    explicit OpenFile(const SourceFiles& files);

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// The path as given.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The size of the file in bytes when it was opened.
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

    [[nodiscard]] Object root() const;

    /// The object at an absolute path inside the file; each link on the way is checked.
    [[nodiscard]] Object open(const std::string& path) const;

    /// Fills `target` with bytes of the file from an address on; false if the file ends before. Throws
    /// Anchor::FileError when the system cannot read.
    [[nodiscard]] bool fetch(std::uint64_t address, std::span<unsigned char> target) const;

    /// Call after a failed call of the library, within its LibraryCall. Throws Anchor::FileError when the
    /// system could not read, Anchor::LimitError when the library was out of memory; if it returns, the file
    /// is damaged.
    void throwUnlessDamaged() const;

private:
    /// Refuses files with parameters that this project does not support.
    void requireParameters() const;

    std::string path_;
    int descriptor_;
    std::uint64_t size_;
    mutable FileFailure failure_;
    FileHandle handle_; // after the failure, which the driver uses until the file is closed
};

} // namespace Tidewatch::Hdf5
