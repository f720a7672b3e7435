// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/RunObserver.hpp"
#include "las/LasPlan.hpp"
#include "library/Progress.hpp"
#include "library/export/RunRecorder.hpp"
#include "library/input/Inputs.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// The axes of one file, x first.
using LasAxes = std::array<ConvLib::StoredAxis, 3>;

/// Follows the LAS exporter: notes which fragments went into which file, moves the bar, and stops the run for
/// coordinates that LAS cannot hold.
class LasRecorder final : public RunRecorder {
public:
    struct File {
        LasAxes axes;
        /// The fragments whose points are in it, in order.
        std::vector<const ExportLib::LasPlan::Fragment*> fragments;
    };

    /// What is known of a grid.
    struct Grid {
        ExportLib::LasPlan plan;
        /// The step in which the input stores coordinates; 0 where it states none.
        Geom::PhysicalSpace::vector inputStep{};
        std::vector<File> files = {};
        /// The fragment that the exporter took up last, and whether it wrote its points; null before the first.
        const ExportLib::LasPlan::Fragment* last = nullptr;
        bool lastWasWritten = false;
    };

    /// `passes`: how often each point is read, checking included, for the bar. Everything outlives the recorder.
    LasRecorder(RunScope scope, const Inputs& inputs, Selection& selection,
                const ExportLib::LasSettings& settings, unsigned passes,
                Anchor::StrongPtr<Progress> progress);
    ~LasRecorder() override;

    /// The grid exported; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const;

    /// The grids that the run was to export, in its order.
    [[nodiscard]] std::vector<std::pair<double, std::string>> plannedGrids() const;

    /// The fields that the exporter may read.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// One pass over so many points begins.
    void beginPass(std::uint64_t points);

    void gridBegins(double time, const std::string& name) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t points) override;
    /// Throws Anchor::Error where the positions do not fit, so that nobody waits for the points before them.
    void fileBegins(const std::string& path, const LasAxes& axes) override;
    void valuesChanged(const ConvLib::ChangedValues& values) override;
    /// Throws Anchor::Error where valuesChanged() has told of coordinates that do not fit.
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override;

private:
    [[nodiscard]] Geom::BoundingBox boxOfOutliers(const LasAxes& axes) const;
    [[noreturn]] void refuse(std::size_t axis, double value, const LasAxes& axes) const;

    const ExportLib::LasSettings& settings_;
    unsigned passes_;
    double done_ = 0;
    std::map<std::pair<double, std::string>, Grid> grids_;
    Grid* current_ = nullptr;
    /// The next fragment of the current grid that the exporter will write.
    std::size_t next_ = 0;
    bool isReading_ = false;
    bool hasOutliers_ = false;
};

/// Where the exporter left the slice at a fragment that has no positions to write; null where it did not. To be
/// asked after the run.
[[nodiscard]] const ExportLib::LasPlan::Fragment* fragmentWithoutPositions(const LasRecorder::Grid& grid);

} // namespace Tidewatch
