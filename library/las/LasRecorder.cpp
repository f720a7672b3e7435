// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasRecorder.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ExportLib::LasPlan;
using Geom::PhysicalSpace;

constexpr char axisNames[] = {'x', 'y', 'z'};
constexpr double PhysicalSpace::point::*coordinates[] = {&PhysicalSpace::point::x, &PhysicalSpace::point::y,
                                                         &PhysicalSpace::point::z};

struct Outlier {
    std::size_t axis;
    double value;
};

/// A corner of a box that is outside the axes of a file.
std::optional<Outlier> outlierOf(const LasAxes& axes, const PhysicalSpace::point& lower,
                                 const PhysicalSpace::point& upper) {
    for (std::size_t axis = 0; axis < axes.size(); ++axis) {
        const double low = lower.*coordinates[axis];
        const double high = upper.*coordinates[axis];
        if (low > high)
            continue;
        // If a coordinate is infinite, the axis has no limits for the others.
        for (const double corner : {low, high}) {
            if (std::isinf(corner))
                return Outlier{axis, corner};
        }
        if (!(high <= axes[axis].highest))
            return Outlier{axis, high};
        if (!(low >= axes[axis].lowest))
            return Outlier{axis, low};
    }
    return std::nullopt;
}

bool isLattice(const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    return Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data) != nullptr;
}

} // namespace

LasRecorder::LasRecorder(RunScope scope, const Inputs& inputs, Selection& selection,
                         const ExportLib::LasSettings& settings, unsigned passes,
                         Anchor::StrongPtr<Progress> progress)
    : RunRecorder(std::move(scope), std::move(progress)),
      settings_(settings),
      passes_(passes) {
    const auto useField = [&](const std::string& field) { return selection.UseThisField(field); };
    std::uint64_t points = 0;
    selection.forEachGrid(
        *this->scope().bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
            Grid known{LasPlan::of(grid, settings_, useField)};
            if (const auto report = inputs.reportOf(name, grid.origin()))
                known.inputStep = report->coordinateStep().value_or(PhysicalSpace::vector{});
            points += known.plan.points();
            grids_.try_emplace({time, name}, std::move(known));
        });
    this->progress().begin("reading", static_cast<double>(points), "points");
}

LasRecorder::~LasRecorder() = default;

const LasRecorder::Grid* LasRecorder::find(const ExportedGrid& exported) const {
    const auto grid = grids_.find({exported.time, exported.name});
    return grid != grids_.end() ? &grid->second : nullptr;
}

std::vector<std::pair<double, std::string>> LasRecorder::plannedGrids() const {
    std::vector<std::pair<double, std::string>> keys;
    for (const auto& [key, grid] : grids_)
        keys.push_back(key);
    return keys;
}

std::set<std::string> LasRecorder::fieldsRead() const {
    std::set<std::string> fields;
    for (const auto& [key, grid] : grids_)
        fields.merge(grid.plan.fieldsRead());
    return fields;
}

void LasRecorder::beginPass(std::uint64_t points) {
    const double size = static_cast<double>(points) / passes_;
    progress().piece(done_, size);
    done_ += size;
}

void LasRecorder::gridBegins(double time, const std::string& name) {
    RunRecorder::gridBegins(time, name);
    const auto grid = grids_.find({time, name});
    current_ = grid != grids_.end() ? &grid->second : nullptr;
    next_ = 0;
    isReading_ = false;
}

void LasRecorder::fragmentBegins(std::string_view field, std::string_view /*fragment*/,
                                 std::uint64_t points) {
    // The exporter reads all positions for their box before anything else.
    if (const bool isReading = !field.empty(); isReading != isReading_) {
        progress().say((isReading ? "reading " : "writing ") + grids().back().name);
        isReading_ = isReading;
    }
    beginPass(points);
    if (!isReading_ && current_ != nullptr && next_ < current_->plan.fragments.size()) {
        current_->last = &current_->plan.fragments[next_++];
        current_->lastWasWritten = false;
    }
}

void LasRecorder::fileBegins(const std::string& /*path*/, const LasAxes& axes) {
    if (current_ == nullptr)
        return;
    const PhysicalSpace::point lower{axes[0].lower, axes[1].lower, axes[2].lower};
    const PhysicalSpace::point upper{axes[0].upper, axes[1].upper, axes[2].upper};
    if (outlierOf(axes, lower, upper)) {
        const Geom::BoundingBox box = boxOfOutliers(axes);
        if (const auto outlier = outlierOf(axes, box.lower(), box.upper()))
            refuse(outlier->axis, outlier->value, axes);
    }
    current_->files.push_back({axes, {}});
}

/// The box of those fragments of points of the next file that reach beyond its axes. Lattices count in the box of a
/// file but are not written.
Geom::BoundingBox LasRecorder::boxOfOutliers(const LasAxes& axes) const {
    Geom::BoundingBox outliers;
    bool hasPoints = false;
    for (const LasPlan::Fragment& fragment : current_->plan.fragments) {
        if (settings_.tiles && &fragment != current_->last)
            continue;
        const auto box = Sheaf::boundsOf(*fragment.positions, true, [this] { progress().check(); });
        // One fragment of points is enough to refuse the file; others need not be read again for the message.
        if (box && outlierOf(axes, box->lower(), box->upper()) &&
            !isLattice(hasPoints ? fragment.positions->available() : fragment.positions->create(false))) {
            outliers.expand(*box);
            hasPoints = true;
        }
    }
    return outliers;
}

void LasRecorder::valuesChanged(const ConvLib::ChangedValues& values) {
    RunRecorder::valuesChanged(values);
    hasOutliers_ =
        hasOutliers_ || (values.attribute == "Positions" && values.change == ConvLib::ValueChange::Wrapped);
}

void LasRecorder::positionsWritten(std::span<const PhysicalSpace::point> positions) {
    if (current_ == nullptr || current_->files.empty())
        return;
    File& file = current_->files.back();
    if (hasOutliers_) {
        for (std::size_t axis = 0; axis < file.axes.size(); ++axis) {
            for (const PhysicalSpace::point& point : positions) {
                const double value = point.*coordinates[axis];
                // False for NaN, too.
                if (!(value >= file.axes[axis].lowest && value <= file.axes[axis].highest))
                    refuse(axis, value, file.axes);
            }
        }
    }
    if (current_->last != nullptr)
        file.fragments.push_back(current_->last);
    current_->lastWasWritten = true;
    // The coordinates need to be surveyed only if the input does not state their step.
    const PhysicalSpace::vector& step = current_->inputStep;
    if (!(step.x > 0 && step.y > 0 && step.z > 0))
        RunRecorder::positionsWritten(positions);
}

void LasRecorder::refuse(std::size_t axis, double value, const LasAxes& axes) const {
    const ExportedGrid& exported = grids().back();
    std::string message =
        fmt::format("{}: {} = {} does not fit into a LAS file, whose coordinates are ",
                    gridAtTime(exported.name, exported.time), axisNames[axis], coordinateText(value));
    const ConvLib::StoredAxis& stored = axes[axis];
    if (!std::isfinite(value)) {
        message += "finite numbers";
    } else {
        message += fmt::format("32-bit numbers of steps of {}", shortestText(stored.step));
        // Without limits the other points by themselves are too far apart.
        if (std::isfinite(stored.offset))
            message += fmt::format(", here from {} to {}", coordinateText(stored.lowest),
                                   coordinateText(stored.highest));
        if (!settings_.tiles)
            message += "; --tiles gives each fragment its own limits";
    }
    throw Anchor::Error(message);
}

const LasPlan::Fragment* fragmentWithoutPositions(const LasRecorder::Grid& grid) {
    // A lattice is started and skipped, too.
    return grid.last != nullptr && !grid.lastWasWritten && !isLattice(grid.last->positions->create(false))
               ? grid.last
               : nullptr;
}

} // namespace Tidewatch
