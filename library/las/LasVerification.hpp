// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/Workers.hpp"
#include "las/LasPlan.hpp"
#include "library/las/LasRecorder.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tidewatch {

/// Compares LAS and LAZ files with the exported data, through the same readers that read inputs.
class LasVerification {
public:
    /// `settings` outlives the object.
    explicit LasVerification(const ExportLib::LasSettings& settings) : settings_(settings) {}

    /// Called while points are decoded; see ConvLib::ReadOptions.
    std::function<void(const std::string& file, double share)> tick;
    /// With whom points are decoded and compared; may be null.
    Anchor::StrongPtr<Anchor::Workers> workers;
    /// Called before a number of points are decoded.
    std::function<void(std::uint64_t points)> beginPass;

    /// A file at `path`, called `name` in messages.
    struct File {
        std::string path;
        std::string name;
        /// The number of points in the exporter's record.
        std::uint64_t points;
    };

    /// Compares the number of points with the header, and validates the header's records and the chunk table of a LAZ
    /// file. Decodes nothing. Throws Anchor::FormatError.
    void checkCount(const File& file) const;

    /// Decodes the whole file and compares every attribute of every point with the arrays of the fragments
    /// that went into it, and the header with the axes and the box that the exporter announced. The assignment of
    /// fields to attributes is the plan's; the expected values are computed independently. Returns messages about
    /// differences that are not errors: the counts by return in the header follow their own rules. Throws
    /// Anchor::FormatError for the first difference, and what creators and `tick` throw.
    [[nodiscard]] std::vector<std::string> compare(const File& file, const ExportLib::LasPlan& plan,
                                                   const LasRecorder::File& written) const;

private:
    const ExportLib::LasSettings& settings_;
};

} // namespace Tidewatch
