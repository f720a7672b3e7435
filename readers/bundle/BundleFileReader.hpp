// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"

namespace Tidewatch {

/// Reads bundle files: whole bundles stored as HDF5 (docs/bundle-file.md describes the format).
///
/// A file adds its slices and grids to the bundle; slices of a time that the bundle has already are shared.
/// Arrays are read when they are asked for, so the file stays open, read-only and without any file lock, for
/// as long as something of it is in the bundle. A file that is written to meanwhile is refused from then on.
///
/// Files are taken for hostile. Hard links only: soft, external and user-defined links, external storage and
/// virtual datasets are refused, since they lead to other files. What lies in the file plainly is bounded by
/// the file's size before memory is taken for it; arrays in chunks, and uniform positions, may rightly be
/// larger than the file and are bounded by ReadOptions::MaximumArrayBytes (Anchor::LimitError), when they are
/// made. Everything that is wrong with a file is an Anchor::FormatError that names file, object and cause.
///
/// All calls of the HDF5 library that this project makes happen one at a time, whatever thread they come
/// from. A host that uses the library at the same time in threads of its own needs a thread-safe build of it.
class TIDEWATCH_API BundleFileReader final : public ConvLib::Reader {
public:
    BundleFileReader() = default;
    ~BundleFileReader() override;

    [[nodiscard]] std::string name() const override;
    /// By the HDF5 signature at the very beginning; whether it is a bundle file, read() finds out.
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;
};

} // namespace Tidewatch
