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
    /// Refuses bundle files and rasters where the process that reads them cannot be locked: requireSandbox().
    bool requiresSandbox = false;
    /// Leaves out inputs that cannot be read, unless none can: see Inputs::failures().
    bool skipsUnreadable = false;
};

/// The input files as one bundle. Inputs that share a time share the slice.
class TIDEWATCH_API Inputs {
public:
    /// Reads the structure of all files; arrays follow on demand. `progress` is told while arrays are read, as long as
    /// they can be asked for; it may be null. Sets the limit of the memory cache. Throws Anchor::Error, once all files
    /// have been tried, for those that cannot be read, a line each, and for two grids of one name in one slice.
    explicit Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress = {});

    /// A bundle that a host has in memory; it is kept alive.
    explicit Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle);

    [[nodiscard]] const Anchor::StrongPtr<Sheaf::Bundle>& bundle() const noexcept { return bundle_; }

    /// What is to be said about the files, in their order.
    [[nodiscard]] std::span<const Anchor::StrongPtr<ConvLib::InputReport>> reports() const noexcept {
        return reports_;
    }

    /// What is wrong with the inputs that were left out.
    [[nodiscard]] const std::vector<std::string>& failures() const noexcept { return failures_; }

    /// The report of the file that became a grid; null for grids of files that are whole bundles.
    [[nodiscard]] Anchor::StrongPtr<ConvLib::InputReport> reportOf(const std::string& grid,
                                                                   const std::string& origin) const;

    /// The files themselves, whatever their names.
    [[nodiscard]] const std::vector<Anchor::FileIdentity>& identities() const noexcept { return identities_; }

private:
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports_;
    std::vector<Anchor::FileIdentity> identities_;
    std::vector<std::string> failures_;
};

} // namespace Tidewatch
