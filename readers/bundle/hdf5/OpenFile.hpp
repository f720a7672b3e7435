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

/// An HDF5 file that is read through a descriptor, without any file lock. Objects refer to the file, so it has to
/// outlive them.
class OpenFile {
public:
    /// Reads the first of some files, which stay open meanwhile. Throws Anchor::FormatError when the library
    /// refuses: the file is damaged, cut off or no HDF5 file at all.
    explicit OpenFile(const SourceFiles& files);

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// The path as it was given.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// Bytes of the file when it was opened.
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

    /// The root group.
    [[nodiscard]] Object root() const;

    /// The object of an absolute path inside the file; each link on the way is checked.
    [[nodiscard]] Object open(const std::string& path) const;

    /// Fills a block with bytes of the file from an address on; false when they are not all there. Throws
    /// Anchor::FileError when the system cannot read.
    [[nodiscard]] bool fetch(std::uint64_t address, std::span<unsigned char> target) const;

    /// To be called after a call of the library that failed, within its LibraryCall. Throws Anchor::FileError when
    /// the system could not read, Anchor::LimitError when the library was out of memory; else there is something
    /// wrong with the file.
    void throwUnlessDamaged() const;

private:
    /// Refuses files of a build that this project does not read.
    void requireParameters() const;

    std::string path_;
    int descriptor_;
    std::uint64_t size_;
    mutable FileFailure failure_;
    FileHandle handle_; // after the failure, which the driver uses until the file is closed
};

} // namespace Tidewatch::Hdf5
