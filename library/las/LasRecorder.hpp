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

/// Observes the LAS exporter: records which fragments went into which file, reports progress, and stops the run for
/// coordinates that LAS cannot hold.
class LasRecorder final : public RunRecorder {
public:
    struct File {
        LasAxes axes;
        /// The fragments whose points are in it, in order.
        std::vector<const ExportLib::LasPlan::Fragment*> fragments;
    };

    /// The plan and the results of a grid.
    struct Grid {
        ExportLib::LasPlan plan;
        /// The step in which the input stores coordinates; 0 if it states none.
        Geom::PhysicalSpace::vector inputStep{};
        std::vector<File> files = {};
        /// The fragment that the exporter started last (null before the first), and whether it wrote its points.
        const ExportLib::LasPlan::Fragment* last = nullptr;
        bool lastWasWritten = false;
    };

    /// `passes`: how often each point is read, including checks, for the progress. Everything outlives the recorder.
    LasRecorder(RunScope scope, const Inputs& inputs, Selection& selection,
                const ExportLib::LasSettings& settings, unsigned passes,
                Anchor::StrongPtr<Progress> progress);
    ~LasRecorder() override;

    /// The exported grid; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const;

    /// The grids that the run was to export, in its order.
    [[nodiscard]] std::vector<std::pair<double, std::string>> plannedGrids() const;

    /// The fields that the exporter may read.
    [[nodiscard]] std::set<std::string> fieldsRead() const;

    /// A pass over a number of points starts.
    void beginPass(std::uint64_t points);

    void gridBegins(double time, const std::string& name) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t points) override;
    /// Throws Anchor::Error if the positions do not fit, before any point is written.
    void fileBegins(const std::string& path, const LasAxes& axes) override;
    void valuesChanged(const ConvLib::ChangedValues& values) override;
    /// Throws Anchor::Error if valuesChanged() has reported coordinates that do not fit.
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

/// After the run: the fragment without positions at which the exporter left the slice; null if it did not.
[[nodiscard]] const ExportLib::LasPlan::Fragment* fragmentWithoutPositions(const LasRecorder::Grid& grid);

} // namespace Tidewatch
