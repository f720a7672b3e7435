// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasWalk.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ExportLib::ExportPointCloudToLas;

constexpr char axisNames[] = {'x', 'y', 'z'};

} // namespace

LasAxes lasAxes(const Geom::BoundingBox& box) {
    return {ExportPointCloudToLas::AxisOf(box.lower().x, box.upper().x),
            ExportPointCloudToLas::AxisOf(box.lower().y, box.upper().y),
            ExportPointCloudToLas::AxisOf(box.lower().z, box.upper().z)};
}

/// Passes the exporter's report on to the walk.
class LasWalk::Reporter final : public Anchor::LoaderProgress {
public:
    explicit Reporter(LasWalk& walk) : walk_(walk) {}

    bool progress(const std::string& /*text*/, std::uint64_t current, std::uint64_t /*total*/) override {
        walk_.enterFragment(static_cast<std::size_t>(current) - 1);
        return true;
    }

private:
    LasWalk& walk_;
};

LasWalk::LasWalk(RunScope scope, const Inputs& inputs, Selection& selection, const LasSettings& settings,
                 unsigned passes, Anchor::StrongPtr<Progress> progress)
    : RunRecorder(std::move(scope), progress),
      settings_(settings),
      progress_(std::move(progress)),
      reporter_(Anchor::makeStrong<Reporter>(*this)),
      passes_(passes) {
    const auto useField = [&](const std::string& field) { return selection.UseThisField(field); };
    std::uint64_t points = 0;
    selection.forEachGrid(*inputs.bundle(),
                          [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                              if (!this->scope().admits(time) || !this->scope().admits(name))
                                  return;
                              Grid known{LasMapping::of(grid, settings_, useField), std::nullopt, {}, {}, {}};
                              if (const auto report = inputs.reportOf(name, grid.origin()))
                                  known.inputStep = report->coordinateStep();
                              points += known.mapping.points();
                              grids_.try_emplace({time, name}, std::move(known));
                          });
    progress_->begin("reading", static_cast<double>(points), "points");
}

LasWalk::~LasWalk() = default;

const LasWalk::Grid* LasWalk::find(const ExportedGrid& exported) const {
    const auto grid = grids_.find({exported.time, exported.name});
    return grid != grids_.end() ? &grid->second : nullptr;
}

std::vector<std::pair<double, std::string>> LasWalk::plannedGrids() const {
    std::vector<std::pair<double, std::string>> keys;
    for (const auto& [key, grid] : grids_)
        keys.push_back(key);
    return keys;
}

void LasWalk::beginPass(std::uint64_t points) {
    const double size = static_cast<double>(points) / passes_;
    progress_->piece(done_, size);
    done_ += size;
}

void LasWalk::gridBegins(double time, const std::string& name) {
    RunRecorder::gridBegins(time, name);
    leaveFragment();
    const ExportedGrid& exported = grids().back();
    const auto grid = grids_.find({exported.time, exported.name});
    current_ = grid != grids_.end() ? &grid->second : nullptr;
    if (current_ != nullptr)
        readBoxes();
}

void LasWalk::finish(std::span<const ConvLib::WrittenFile> record) {
    leaveFragment();
    RunRecorder::finish(record);
}

/// The exporter reads all positions of a grid for its box before anything else. Here the same is done
/// fragment by fragment, and it finds the boxes known.
void LasWalk::readBoxes() {
    progress_->say("reading " + grids().back().name);
    boxes_.clear();
    for (const LasMapping::Fragment& fragment : current_->mapping.fragments) {
        beginPass(fragment.points);
        const auto data = fragment.positions->create(false);
        Geom::BoundingBox box;
        Sheaf::ExpandBBox(box, *fragment.positions, true);
        current_->box.expand(box);
        const bool isLattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data) != nullptr;
        boxes_.push_back(isLattice ? std::nullopt : std::optional(box));
    }
    // Lattices are in the grid's box and yet in no file.
    Geom::BoundingBox points;
    for (const auto& box : boxes_) {
        if (!box)
            continue;
        points.expand(*box);
        if (settings_.tiles)
            checkLimits(*box);
    }
    if (!settings_.tiles)
        checkLimits(points);
}

/// Finds strays before a file is begun, so that nobody waits for the points before them.
void LasWalk::checkLimits(const Geom::BoundingBox& box) const {
    const LasAxes axes = axesOf(box);
    const double corners[][2] = {
        {box.lower().x, box.upper().x}, {box.lower().y, box.upper().y}, {box.lower().z, box.upper().z}};
    for (std::size_t axis = 0; axis < axes.size(); ++axis) {
        const auto [lower, upper] = corners[axis];
        if (lower > upper)
            continue;
        // An infinite coordinate leaves no limits for the others.
        for (const double corner : {lower, upper}) {
            if (std::isinf(corner))
                refuse({axis, corner}, axes);
        }
        if (!(upper <= axes[axis].highest()))
            refuse({axis, upper}, axes);
        if (!(lower >= axes[axis].lowest()))
            refuse({axis, lower}, axes);
    }
}

void LasWalk::enterFragment(std::size_t number) {
    leaveFragment();
    const std::string& grid = grids().back().name;
    if (current_ == nullptr || number >= boxes_.size())
        return;
    if (number == 0)
        progress_->say("writing " + grid);
    beginPass(current_->mapping.fragments[number].points);
    fragment_ = number;
}

void LasWalk::leaveFragment() {
    if (!fragment_)
        return;
    const std::size_t number = *std::exchange(fragment_, std::nullopt);
    const LasMapping::Fragment& fragment = current_->mapping.fragments[number];
    if (!boxes_[number])
        return;
    const Geom::BoundingBox& box = *boxes_[number];
    // The exporter has just used the arrays, so they are still in memory unless the host's limit is very low.
    const LasColumns columns = LasColumns::load(fragment.captures);
    current_->written.push_back({&fragment, box, columns.positions != nullptr});
    if (!columns.positions)
        return;
    const LasAxes axes = axesOf(box);
    LasFindings& findings = current_->findings;
    findings.look(columns, fragment.points, axes, current_->mapping, settings_);
    if (findings.stray)
        refuse(*findings.stray, axes);
}

LasAxes LasWalk::axesOf(const Geom::BoundingBox& fragmentBox) const {
    return lasAxes(settings_.tiles ? fragmentBox : current_->box);
}

void LasWalk::refuse(const LasFindings::Stray& stray, const LasAxes& axes) const {
    const ExportedGrid& exported = grids().back();
    std::string message = fmt::format("{}: {} = {} does not fit into a LAS file, whose coordinates are ",
                                      gridAtTime(exported.name, exported.time), axisNames[stray.axis],
                                      coordinateText(stray.value));
    const auto& axis = axes[stray.axis];
    if (!std::isfinite(stray.value)) {
        message += "finite numbers";
    } else {
        message += fmt::format("32-bit numbers of steps of {}", shortestText(axis.step));
        // Without limits the other points are too far apart already.
        if (std::isfinite(axis.offset))
            message += fmt::format(", here from {} to {}", coordinateText(axis.lowest()),
                                   coordinateText(axis.highest()));
        if (!settings_.tiles)
            message += "; --tiles gives each fragment limits of its own";
    }
    throw Anchor::Error(message);
}

} // namespace Tidewatch
