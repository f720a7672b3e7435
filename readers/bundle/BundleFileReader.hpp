// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"
#include "readers/registerReaders.hpp"

namespace Tidewatch {

/// Reads bundle files: whole bundles stored as HDF5 (docs/bundle-file.md describes the format), through a
/// BundleSource, apart or in this process.
///
/// A file adds its slices and grids to the bundle; slices of a time that the bundle has already are shared.
/// Arrays are read when they are asked for: see Input for how long the file stays open. A file that is written to
/// meanwhile is refused from then on. Arrays in chunks, and uniform positions, may rightly be larger than the file
/// and are bounded by ReadOptions::MaximumArrayBytes (Anchor::LimitError), when they are made.
class TIDEWATCH_API BundleFileReader final : public ConvLib::Reader {
public:
    explicit BundleFileReader(Reading reading = Reading::Apart) : reading_(reading) {}
    ~BundleFileReader() override;

    [[nodiscard]] std::string name() const override;
    /// By the HDF5 signature at the very beginning; whether it is a bundle file, read() finds out.
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;

private:
    Reading reading_;
};

} // namespace Tidewatch
