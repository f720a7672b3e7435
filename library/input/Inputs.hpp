// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/StrongPtr.hpp"
#include "convlib/InputReport.hpp"
#include "convlib/ReadOptions.hpp"
#include "library/Progress.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// What is to be read, and how.
struct InputOptions {
    std::vector<std::string> files;
    /// The time of inputs that do not state one.
    double sliceTime = ConvLib::ReadOptions().SliceTime;
    std::uint64_t fragmentPoints = ConvLib::ReadOptions().FragmentPoints;
    /// The limit of the memory cache in bytes; nothing leaves it as it is.
    std::optional<std::uint64_t> memoryLimit;
    /// The coordinate reference system of all grids, as `--crs` takes it: codes ("EPSG:25832+5783"), a file of well-known
    /// text, or "none"; nothing leaves each its own.
    std::optional<std::string> referenceSystem = {};
};

/// The input files as one bundle. Inputs that share a time share the slice.
class TIDEWATCH_API Inputs {
public:
    /// Reads the structure of all files; arrays follow on demand. `progress` is told while arrays are read, as long as
    /// they can be asked for; it may be null. Sets the limit of the memory cache. Throws Anchor::Error for a file that
    /// cannot be read, and for two grids of one name in one slice.
    explicit Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress = {});

    /// A bundle that a host has in memory; it is kept alive.
    explicit Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle);

    [[nodiscard]] const Anchor::StrongPtr<Sheaf::Bundle>& bundle() const noexcept { return bundle_; }

    /// What is to be said about the files, in their order.
    [[nodiscard]] std::span<const Anchor::StrongPtr<ConvLib::InputReport>> reports() const noexcept {
        return reports_;
    }

    /// The report of the file that became a grid; null for grids of files that are whole bundles.
    [[nodiscard]] Anchor::StrongPtr<ConvLib::InputReport> reportOf(const std::string& grid,
                                                                   const std::string& origin) const;

    /// What is to be said of reference systems that were replaced, one text each.
    [[nodiscard]] const std::vector<std::string>& notes() const noexcept { return notes_; }

    /// The files themselves, whatever their names.
    [[nodiscard]] const std::vector<Anchor::FileIdentity>& identities() const noexcept { return identities_; }

private:
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports_;
    std::vector<Anchor::FileIdentity> identities_;
    std::vector<std::string> notes_;
};

} // namespace Tidewatch
