// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/source/Source.hpp"

namespace Tidewatch {

/// A bundle file that is read through the HDF5 library.
///
/// Only hard links are followed. Soft, external and user-defined links, external storage and virtual datasets
/// are refused, since they can refer to other files, and so are filters that are not built into the library.
/// Sizes of data stored without chunks are checked against the file's size before memory is allocated.
/// Everything that is wrong with a file is an Anchor::FormatError that names file, object and cause.
///
/// This project's calls of the HDF5 library are serialized across threads. A host that uses this class in its
/// own process, and calls the library from other threads at the same time, needs a thread-safe build of the
/// library.
class BundleSource final : public Source {
public:
    /// Throws what Hdf5::OpenFile throws.
    explicit BundleSource(const SourceFiles& files) : file_(files) {}

    [[nodiscard]] Structure structure(const Tick& tick) override;
    [[nodiscard]] std::vector<std::string> read(const Structure::Array& array, ArrayMemory& target,
                                                std::uint64_t most, const Tick& tick) override;

private:
    Hdf5::OpenFile file_;
};

} // namespace Tidewatch
