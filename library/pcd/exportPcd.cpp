// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/exportPcd.hpp"

#include "anchor/Error.hpp"
#include "convlib/NumberText.hpp"
#include "library/export/PlannedGrids.hpp"
#include "library/export/propertyLosses.hpp"
#include "library/pcd/PcdRecorder.hpp"
#include "library/pcd/PcdRounding.hpp"
#include "library/points/cellsAsPoints.hpp"
#include "library/report/Wording.hpp"
#include "pcd/ExportPointCloudToPCD.hpp"
#include "pcd/PcdPlan.hpp"
#include "pcd/PcdPrecision.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using ConvLib::ValueChange;
using ExportLib::PcdPlan;
using Fragment = PcdPlan::Fragment;
using PlannedPcds = PlannedGrids<PcdPlan>;

PcdPlan planOf(const Sheaf::Grid& grid, const PcdOptions& options, Selection& selection) {
    return PcdPlan::of(grid, options.refinementLevel,
                       [&](const std::string& field) { return selection.UseThisField(field); });
}

PlannedPcds plansOf(const PcdOptions& options, const ExportFormat::Context& context, const RunScope& scope) {
    return {context, scope,
            [&](const Sheaf::Grid& grid) { return planOf(grid, options, context.selection); }};
}

std::uint64_t mostMemory(const PlannedPcds& planned) {
    std::uint64_t most = 0;
    planned.forEach(
        [&](double, const std::string&, const PcdPlan& plan) { most = std::max(most, plan.memory()); });
    return most;
}

class PcdRun final : public ExportRun {
public:
    PcdRun(const PcdOptions& options, const ExportFormat::Context& context, const RunScope& scope)
        : planned_(plansOf(options, context, scope)),
          bundle_(scope.bundle),
          exporter_() {
        exporter_.RefLevel = options.refinementLevel;
        exporter_.Precision = options.precision;
        exporter_.CellSize = options.cellSize.value_or(exporter_.CellSize);
        statesCellSize_ = options.cellSize.has_value();
        exporter_.ExactCounts = options.exactCounts;
        exporter_.Thinning = options.thinning;
        if (context.inputs.isChosen() && mostMemory(planned_) > context.inputs.memoryLimit()) {
            context.inputs.countChosen(context.progress);
            planned_ = plansOf(options, context, scope);
        }
        checkMemory(context);
        recorder_ = Anchor::makeStrong<PcdRecorder>(scope, planned_.elements(), context.progress);
        recorder_->begin();
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunRecorder& recorder() override { return *recorder_; }
    std::set<std::string> fieldsRead() const override { return planned_.fieldsRead(); }

    std::string moreSettings() const override {
        return fmt::format("\nRefLevel: {} \nPrecision: {} \nCellSize: {} {}{}", exporter_.RefLevel,
                           exporter_.Precision, shortestText(exporter_.CellSize),
                           exporter_.ExactCounts ? "\nExactCounts " : "",
                           exporter_.Thinning ? "" : "\nThinning: 0 ");
    }

    std::string whySkipped(const ExportedGrid& exported) const override {
        const PlannedPcds::Grid* const grid = planned_.find(exported);
        if (grid == nullptr || grid->plan.obstacle.empty())
            return "its arrays of positions contain no points";
        const auto source = findGrid(*bundle_, exported);
        return grid->plan.obstacle + std::string(source && hasCells(*source) ? cellsRemedy : "");
    }

    std::optional<std::uint64_t> itemsOf(const ExportedGrid& exported) const override {
        const PlannedPcds::Grid* const grid = planned_.find(exported);
        if (grid == nullptr || exporter_.Thinning)
            return std::nullopt;
        return grid->plan.elements(PcdPlan::Role::Positions);
    }

    void findLosses(const ExportedGrid& exported, Losses& losses) const override;

private:
    void checkMemory(const ExportFormat::Context& context) const;
    void findFieldLoss(const ExportedGrid& exported, const PcdPlan& plan, Losses& losses) const;
    void findIntensityLoss(const ExportedGrid& exported, const PcdPlan& plan, Losses& losses) const;
    void findRounding(const ExportedGrid& exported,
                      const std::optional<Geom::PhysicalSpace::vector>& inputStep, Losses& losses) const;
    void findCountLoss(const ExportedGrid& exported, Losses& losses) const;

    PlannedPcds planned_;
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    Anchor::StrongPtr<PcdRecorder> recorder_;
    ExportLib::ExportPointCloudToPCD exporter_;
    bool statesCellSize_ = false;
};

/// Says what the largest grid needs, and refuses it before the work where that is more than allowed.
void PcdRun::checkMemory(const ExportFormat::Context& context) const {
    const std::uint64_t allowed = context.inputs.memoryLimit();
    planned_.forEach([&](double time, const std::string& name, const PcdPlan& plan) {
        const std::uint64_t needed = plan.memory();
        if (needed > allowed)
            throw Anchor::LimitError(fmt::format(
                "{}: {} need {} of memory to be thinned together, and {} are allowed; take a part with --time or --grid, "
                "or raise --memory-limit",
                gridAtTime(name, time), counted(plan.elements(PcdPlan::Role::Positions), "point"),
                memoryText(needed), memoryText(allowed)));
        if (needed != 0)
            context.progress->say(
                fmt::format("{} needs {} of memory", gridAtTime(name, time), memoryText(needed)));
    });
}

void PcdRun::findLosses(const ExportedGrid& exported, Losses& losses) const {
    const PlannedPcds::Grid* const grid = planned_.find(exported);
    if (grid == nullptr)
        return;
    findFieldLoss(exported, grid->plan, losses);
    findIntensityLoss(exported, grid->plan, losses);
    findRounding(exported, grid->inputStep, losses);
    findCountLoss(exported, losses);
    addPropertyLosses(exported, *bundle_, {}, losses);
}

void PcdRun::findFieldLoss(const ExportedGrid& exported, const PcdPlan& plan, Losses& losses) const {
    for (const Fragment& fragment : plan.fragments) {
        if (fragment.role == PcdPlan::Role::None)
            losses.addField(fragment.field);
        else if (fragment.role == PcdPlan::Role::Positions && !fragment.whyLeftOut.empty())
            losses.addOf(gridAtTime(exported.name, exported.time), "fields",
                         fmt::format("a part of {} is left out: {}", fragment.field, fragment.whyLeftOut));
    }
}

void PcdRun::findIntensityLoss(const ExportedGrid& exported, const PcdPlan& plan, Losses& losses) const {
    std::set<std::string> unfit;
    for (const Fragment& fragment : plan.fragments) {
        if (fragment.role == PcdPlan::Role::Intensity && !fragment.whyLeftOut.empty())
            unfit.insert(fragment.elementType);
    }
    const std::string where = gridAtTime(exported.name, exported.time);
    if (!unfit.empty())
        losses.add("intensity", fmt::format("{}: Intensity stored as {} is left out; PCD takes uint16", where,
                                            joined({unfit.begin(), unfit.end()})));
    const auto dropped = exported.changed("Intensity", ValueChange::Dropped);
    if (dropped.count != 0)
        losses.add("intensity",
                   fmt::format("{}: Intensity is left out; there are {} for {}", where,
                               counted(dropped.count, "value"), counted(exported.survey.points(), "point")));
    else if (exported.changed("Intensity", ValueChange::NotFinite).count != 0)
        losses.add("intensity",
                   fmt::format("{}: intensities are all the same, which PCD's scale from 0 to 1 turns "
                               "into \"-nan\"; --field Positions leaves them out",
                               where));
    if (exported.changed("rgb", ValueChange::Rounded).count != 0)
        losses.add("color", fmt::format("{}: packed colours are rounded; --precision {} keeps them", where,
                                        ExportLib::pcdColorDigits));
}

void PcdRun::findRounding(const ExportedGrid& exported,
                          const std::optional<Geom::PhysicalSpace::vector>& inputStep, Losses& losses) const {
    const std::string where = gridAtTime(exported.name, exported.time);
    if (const auto rounding = PcdRounding::of(exported.survey, inputStep, exporter_.Precision))
        losses.add("rounding",
                   fmt::format("{}: coordinates are rounded by up to {:.2g}, more than the input's "
                               "step of {:.2g} allows; --precision {} keeps them",
                               where, rounding->loss, rounding->step, rounding->sufficientPrecision));
    const double shiftLoss = PcdRounding::ofShift(exported.survey, inputStep);
    if (shiftLoss > 0)
        losses.add("rounding",
                   fmt::format("{}: the shift in the header, which leads back to the input's coordinates, "
                               "is rounded by up to {:.2g}; its digits are fixed",
                               where, shiftLoss));
}

void PcdRun::findCountLoss(const ExportedGrid& exported, Losses& losses) const {
    const auto thinned = exported.changed("Positions", ValueChange::Thinned);
    if (!statesCellSize_ && thinned.count != 0)
        losses.add(
            "thinning",
            fmt::format("{}: {} of {} are kept, one per cell of {}; --cell-size takes other cells, and "
                        "--no-thinning keeps all",
                        gridAtTime(exported.name, exported.time), grouped(thinned.total - thinned.count),
                        counted(thinned.total, "point"), shortestText(exporter_.CellSize)));
    if (!exporter_.ExactCounts && thinned.count != 0)
        losses.add("count",
                   fmt::format("{}: the header states {} (before thinning to cells of {}), and {} follow; "
                               "--exact-counts states the lines",
                               gridAtTime(exported.name, exported.time), counted(thinned.total, "point"),
                               shortestText(exporter_.CellSize),
                               counted(thinned.total - thinned.count, "line")));
}

class PcdFormat final : public ExportFormat {
public:
    explicit PcdFormat(const PcdOptions& options) : options_(options) {}

    std::string_view name() const override { return "PCD"; }
    std::string_view extension() const override { return ".pcd"; }
    std::string_view unit() const override { return "points"; }

    std::vector<ExpectedFile> expectedFiles(const Context& context, const RunScope& scope) const override {
        requirePositions(context.selection);
        std::vector<ExpectedFile> files;
        context.selection.forEachGrid(
            *scope.bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                const PcdPlan plan = planOf(grid, options_, context.selection);
                if (!plan.obstacle.empty())
                    return;
                // Three coordinates of some 12 characters, and two more values.
                const std::uint64_t lineBytes = plan.isShaded() ? 50 : 36;
                const std::uint64_t points = plan.elements(PcdPlan::Role::Positions);
                files.push_back({scope.output, time, name, points, points * lineBytes});
            });
        return files;
    }

    std::uint64_t bytesInMemory(const Context& context, const RunScope& scope) const override {
        return mostMemory(plansOf(options_, context, scope));
    }

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
    exactCounts = defaults.ExactCounts;
    thinning = defaults.Thinning;
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
