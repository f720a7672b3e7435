// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "geom/BoundingBox.hpp"
#include "library/Progress.hpp"
#include "library/export/RunRecorder.hpp"
#include "library/input/Inputs.hpp"
#include "library/las/LasFindings.hpp"
#include "library/las/LasMapping.hpp"
#include "library/las/LasSettings.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Follows the LAS exporter through the bundle: reads the boxes that it will ask for, shows how far the work
/// has come, looks at the points while they are in memory, and stops the run for coordinates that LAS cannot
/// hold.
class LasWalk final : public RunRecorder {
public:
    /// A fragment that went into a file.
    struct Written {
        const LasMapping::Fragment* fragment;
        Geom::BoundingBox box;
        /// False: the exporter found no positions and left the slice here.
        bool hasPositions;
    };

    /// What is known of a grid once it has been walked through.
    struct Grid {
        LasMapping mapping;
        /// The step in which the input stores coordinates.
        std::optional<Geom::PhysicalSpace::vector> inputStep;
        /// The box of all positions; the exporter's headers go by it unless fragments have files of their
        /// own.
        Geom::BoundingBox box;
        std::vector<Written> written;
        LasFindings findings;
    };

    /// `passes`: how often each point is read, checking included, for the bar. Everything outlives the walk.
    LasWalk(RunScope scope, const Inputs& inputs, Selection& selection, const LasSettings& settings,
            unsigned passes, Anchor::StrongPtr<Progress> progress);
    ~LasWalk() override;

    /// The grid exported; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const;

    /// The grids that the run was to exported, in its order.
    [[nodiscard]] std::vector<std::pair<double, std::string>> plannedGrids() const;

    /// What the exporter is to report its fragments to; it must not outlive the walk.
    [[nodiscard]] const Anchor::StrongPtr<Anchor::LoaderProgress>& reporter() const noexcept {
        return reporter_;
    }

    /// One pass over so many points begins.
    void beginPass(std::uint64_t points);

    void fragmentBegins(std::string_view, std::string_view, std::uint64_t) override {}
    void gridBegins(double time, const std::string& name) override;
    void finish(std::span<const ConvLib::WrittenFile> record) override;

private:
    class Reporter;

    void readBoxes();
    void checkLimits(const Geom::BoundingBox& box) const;
    void enterFragment(std::size_t number);
    void leaveFragment();
    [[nodiscard]] LasAxes axesOf(const Geom::BoundingBox& fragmentBox) const;
    [[noreturn]] void refuse(const LasFindings::Stray& stray, const LasAxes& axes) const;

    const LasSettings& settings_;
    Anchor::StrongPtr<Progress> progress_;
    Anchor::StrongPtr<Anchor::LoaderProgress> reporter_;
    unsigned passes_;
    double done_ = 0;
    std::map<std::pair<double, std::string>, Grid> grids_;
    Grid* current_ = nullptr;
    /// Boxes of the current grid's fragments; nothing for lattices, which the exporter passes by.
    std::vector<std::optional<Geom::BoundingBox>> boxes_;
    std::optional<std::size_t> fragment_;
};

/// The axes of a file with points in a box.
[[nodiscard]] LasAxes lasAxes(const Geom::BoundingBox& box);

} // namespace Tidewatch
