// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"
#include "readers/registerReaders.hpp"

namespace Tidewatch {

/// Reads bundle files: whole bundles stored as HDF5 (docs/bundle-file.md describes the format), through a
/// BundleSource, in a separate process or in this one.
///
/// A file adds its slices and grids to the bundle; a slice whose time the bundle already has is shared.
/// Arrays are read on demand: see Input for how long the file stays open. A file that is modified meanwhile
/// is refused from then on. Arrays in chunks, and uniform positions, may legitimately be larger than the
/// file; ReadOptions::MaximumArrayBytes limits them (Anchor::LimitError) when they are created.
class TIDEWATCH_API BundleFileReader final : public ConvLib::Reader {
public:
    explicit BundleFileReader(Reading reading = Reading::Apart) : reading_(reading) {}
    ~BundleFileReader() override;

    [[nodiscard]] std::string name() const override;
    /// By the HDF5 signature at offset 0; read() finds out whether it is a bundle file.
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;

private:
    Reading reading_;
};

} // namespace Tidewatch
