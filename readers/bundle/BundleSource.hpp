// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/source/Source.hpp"

namespace Tidewatch {

/// A bundle file that is read through the HDF5 library.
///
/// Hard links only: soft, external and user-defined links, external storage and virtual datasets are refused,
/// since they lead to other files, and so are filters that the library does not have built in. What lies in the
/// file plainly is bounded by the file's size before memory is taken for it. Everything that is wrong with a file
/// is an Anchor::FormatError that names file, object and cause.
///
/// All calls of the HDF5 library that this project makes happen one at a time, whatever thread they come from. A
/// host that lets this class work in its own process, and uses the library at the same time in threads of its
/// own, needs a thread-safe build of it.
class BundleSource final : public Source {
public:
    /// Throws what Hdf5::OpenFile throws.
    explicit BundleSource(const SourceFiles& files) : file_(files) {}

    [[nodiscard]] Structure structure(const Tick& tick) override;
    [[nodiscard]] std::vector<std::string> read(const Structure::Array& array, std::span<std::byte> target,
                                                std::uint64_t most, const Tick& tick) override;

private:
    Hdf5::OpenFile file_;
};

} // namespace Tidewatch
