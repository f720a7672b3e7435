// SPDX-License-Identifier: Apache-2.0
#include "host/pcd/PcdCommand.hpp"

#include "convlib/NumberText.hpp"
#include "host/export/Guarded.hpp"
#include "host/pcd/PcdRounding.hpp"
#include "host/pcd/PcdWalk.hpp"
#include "host/report/Wording.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

/// A packed colour is a 24-bit number that stands in the file as the float of the same bits; so many digits
/// bring each of them back.
constexpr int colorDigits = 8;

class PcdRun final : public ExportRun {
public:
    PcdRun(const PcdRequest& request, const ExportCommand::Context& context, const RunScope& scope)
        : walk_(scope, context.inputs, context.selection, request.refinementLevel, context.bar),
          exporter_(walk_) {
        exporter_.RefLevel = request.refinementLevel;
        exporter_.Precision = request.precision;
        exporter_.CellSize = request.cellSize;
        exporter_.ExactCounts = request.exactCounts;
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunWatch& watch() override { return walk_; }

    std::string moreSettings() const override {
        return fmt::format("\nRefLevel: {} \nPrecision: {} \nCellSize: {} {}", exporter_.RefLevel,
                           exporter_.Precision, shortestText(exporter_.CellSize),
                           exporter_.ExactCounts ? "\nExactCounts " : "");
    }

    std::string whySkipped(const RunWatch::Visit& visit) const override {
        const PcdWalk::Grid* const grid = walk_.find(visit);
        return grid != nullptr && !grid->obstacle.empty() ? grid->obstacle
                                                          : "its positions are a uniform lattice, not points";
    }

    void findLosses(const RunWatch::Visit& visit, Losses& losses) const override;

private:
    void findCountLoss(const RunWatch::Visit& visit, const PcdWalk::Grid& grid, Losses& losses) const;
    void findIntensityLoss(const RunWatch::Visit& visit, const PcdWalk::Grid& grid, Losses& losses) const;
    void findRounding(const RunWatch::Visit& visit, const PcdWalk::Grid& grid, Losses& losses) const;

    PcdWalk walk_;
    Guarded<ExportLib::ExportPointCloudToPCD> exporter_;
};

void PcdRun::findLosses(const RunWatch::Visit& visit, Losses& losses) const {
    const PcdWalk::Grid* const grid = walk_.find(visit);
    if (grid == nullptr)
        return;
    for (const std::string& field : grid->otherFields)
        losses.addField(field);
    findIntensityLoss(visit, *grid, losses);
    findRounding(visit, *grid, losses);
    findCountLoss(visit, *grid, losses);
}

void PcdRun::findIntensityLoss(const RunWatch::Visit& visit, const PcdWalk::Grid& grid,
                               Losses& losses) const {
    if (!grid.unfitIntensities.empty())
        losses.add("intensity",
                   fmt::format("{}: Intensity stored as {} is left out; PCD takes uint16",
                               gridAtTime(visit.grid, visit.time),
                               joined({grid.unfitIntensities.begin(), grid.unfitIntensities.end()})));
    if (grid.intensities == 0)
        return;
    if (grid.intensities != grid.survey.points())
        losses.add("intensity",
                   fmt::format("{}: Intensity is left out; there are {} for {}",
                               gridAtTime(visit.grid, visit.time), counted(grid.intensities, "value"),
                               counted(grid.survey.points(), "point")));
    else if (ConvLib::effectivePrecision(exporter_.Precision) < colorDigits)
        losses.add("color", fmt::format("{}: packed colours are rounded; --precision {} keeps them",
                                        gridAtTime(visit.grid, visit.time), colorDigits));
}

void PcdRun::findRounding(const RunWatch::Visit& visit, const PcdWalk::Grid& grid, Losses& losses) const {
    const auto rounding = PcdRounding::of(grid.survey, grid.inputStep, exporter_.Precision);
    if (rounding)
        losses.add(
            "rounding",
            fmt::format("{}: coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} "
                        "allows; --precision {} keeps them",
                        gridAtTime(visit.grid, visit.time), rounding->loss, rounding->step,
                        rounding->sufficientPrecision));
    const double shiftLoss = PcdRounding::ofShift(grid.survey, grid.inputStep);
    if (shiftLoss > 0)
        losses.add("rounding",
                   fmt::format("{}: the shift in the header, which leads back to the input's coordinates, "
                               "is rounded by up to {:.2g}; its digits are fixed",
                               gridAtTime(visit.grid, visit.time), shiftLoss));
}

void PcdRun::findCountLoss(const RunWatch::Visit& visit, const PcdWalk::Grid& grid, Losses& losses) const {
    const std::uint64_t lines = exporter_.writtenFiles()[visit.endFile - 1].items;
    if (!exporter_.ExactCounts && lines != grid.survey.points())
        losses.add("count",
                   fmt::format("{}: the header states {} (before thinning to cells of {}), and {} follow; "
                               "--exact-counts states the lines",
                               gridAtTime(visit.grid, visit.time), counted(grid.survey.points(), "point"),
                               shortestText(exporter_.CellSize), counted(lines, "line")));
}

class PcdCommand final : public ExportCommand {
public:
    explicit PcdCommand(const PcdRequest& request) : request_(request) {}

    std::string_view name() const override { return "pcd"; }
    std::string_view format() const override { return "PCD"; }
    std::string_view extension() const override { return ".pcd"; }
    std::string_view unit() const override { return "points"; }

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<PcdRun>(request_, context, scope);
    }

private:
    const PcdRequest& request_;
};

} // namespace

PcdRequest::PcdRequest() {
    const ExportLib::ExportPointCloudToPCD defaults;
    refinementLevel = defaults.RefLevel;
    precision = defaults.Precision;
    cellSize = defaults.CellSize;
    exactCounts = defaults.ExactCounts;
}

int PcdRequest::run() const {
    return runExport(common, PcdCommand(*this));
}

} // namespace Tidewatch
