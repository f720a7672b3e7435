// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/exportPcd.hpp"

#include "convlib/NumberText.hpp"
#include "library/pcd/PcdRounding.hpp"
#include "library/pcd/PcdWalk.hpp"
#include "library/report/Wording.hpp"
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
    PcdRun(const PcdOptions& options, const ExportFormat::Context& context, const RunScope& scope)
        : walk_(Anchor::makeStrong<PcdWalk>(scope, context.inputs, context.selection, options.refinementLevel,
                                            context.progress)),
          exporter_() {
        exporter_.RefLevel = options.refinementLevel;
        exporter_.Precision = options.precision;
        exporter_.CellSize = options.cellSize;
        exporter_.ExactCounts = options.exactCounts;
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunRecorder& recorder() override { return *walk_; }

    std::string moreSettings() const override {
        return fmt::format("\nRefLevel: {} \nPrecision: {} \nCellSize: {} {}", exporter_.RefLevel,
                           exporter_.Precision, shortestText(exporter_.CellSize),
                           exporter_.ExactCounts ? "\nExactCounts " : "");
    }

    std::string whySkipped(const ExportedGrid& exported) const override {
        const PcdWalk::Grid* const grid = walk_->find(exported);
        return grid != nullptr && !grid->obstacle.empty() ? grid->obstacle
                                                          : "its positions are a uniform lattice, not points";
    }

    void findLosses(const ExportedGrid& exported, Losses& losses) const override;

private:
    void findCountLoss(const ExportedGrid& exported, const PcdWalk::Grid& grid, Losses& losses) const;
    void findIntensityLoss(const ExportedGrid& exported, const PcdWalk::Grid& grid, Losses& losses) const;
    void findRounding(const ExportedGrid& exported, const PcdWalk::Grid& grid, Losses& losses) const;

    Anchor::StrongPtr<PcdWalk> walk_;
    ExportLib::ExportPointCloudToPCD exporter_;
};

void PcdRun::findLosses(const ExportedGrid& exported, Losses& losses) const {
    const PcdWalk::Grid* const grid = walk_->find(exported);
    if (grid == nullptr)
        return;
    for (const std::string& field : grid->otherFields)
        losses.addField(field);
    findIntensityLoss(exported, *grid, losses);
    findRounding(exported, *grid, losses);
    findCountLoss(exported, *grid, losses);
}

void PcdRun::findIntensityLoss(const ExportedGrid& exported, const PcdWalk::Grid& grid,
                               Losses& losses) const {
    if (!grid.unfitIntensities.empty())
        losses.add("intensity",
                   fmt::format("{}: Intensity stored as {} is left out; PCD takes uint16",
                               gridAtTime(exported.name, exported.time),
                               joined({grid.unfitIntensities.begin(), grid.unfitIntensities.end()})));
    if (grid.intensities == 0)
        return;
    if (grid.intensities != grid.survey.points())
        losses.add("intensity",
                   fmt::format("{}: Intensity is left out; there are {} for {}",
                               gridAtTime(exported.name, exported.time), counted(grid.intensities, "value"),
                               counted(grid.survey.points(), "point")));
    else if (ConvLib::effectivePrecision(exporter_.Precision) < colorDigits)
        losses.add("color", fmt::format("{}: packed colours are rounded; --precision {} keeps them",
                                        gridAtTime(exported.name, exported.time), colorDigits));
}

void PcdRun::findRounding(const ExportedGrid& exported, const PcdWalk::Grid& grid, Losses& losses) const {
    const auto rounding = PcdRounding::of(grid.survey, grid.inputStep, exporter_.Precision);
    if (rounding)
        losses.add(
            "rounding",
            fmt::format("{}: coordinates are rounded by up to {:.2g}, more than the input's step of {:.2g} "
                        "allows; --precision {} keeps them",
                        gridAtTime(exported.name, exported.time), rounding->loss, rounding->step,
                        rounding->sufficientPrecision));
    const double shiftLoss = PcdRounding::ofShift(grid.survey, grid.inputStep);
    if (shiftLoss > 0)
        losses.add("rounding",
                   fmt::format("{}: the shift in the header, which leads back to the input's coordinates, "
                               "is rounded by up to {:.2g}; its digits are fixed",
                               gridAtTime(exported.name, exported.time), shiftLoss));
}

void PcdRun::findCountLoss(const ExportedGrid& exported, const PcdWalk::Grid& grid, Losses& losses) const {
    const std::uint64_t lines = exporter_.writtenFiles()[exported.endFile - 1].items;
    if (!exporter_.ExactCounts && lines != grid.survey.points())
        losses.add("count",
                   fmt::format("{}: the header states {} (before thinning to cells of {}), and {} follow; "
                               "--exact-counts states the lines",
                               gridAtTime(exported.name, exported.time),
                               counted(grid.survey.points(), "point"), shortestText(exporter_.CellSize),
                               counted(lines, "line")));
}

class PcdFormat final : public ExportFormat {
public:
    explicit PcdFormat(const PcdOptions& options) : options_(options) {}

    std::string_view name() const override { return "PCD"; }
    std::string_view extension() const override { return ".pcd"; }
    std::string_view unit() const override { return "points"; }

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<PcdRun>(options_, context, scope);
    }

private:
    PcdOptions options_;
};

} // namespace

PcdOptions::PcdOptions() {
    const ExportLib::ExportPointCloudToPCD defaults;
    refinementLevel = defaults.RefLevel;
    precision = defaults.Precision;
    cellSize = defaults.CellSize;
    exactCounts = defaults.ExactCounts;
}

std::unique_ptr<const ExportFormat> pcdFormat(const PcdOptions& options) {
    return std::make_unique<PcdFormat>(options);
}

ExportReport exportPcd(const Inputs& inputs, const PcdOptions& options,
                       const Anchor::StrongPtr<Progress>& progress) {
    Export job(inputs, options, pcdFormat(options), progress);
    job.write();
    return job.placeUnlessRefused();
}

} // namespace Tidewatch
