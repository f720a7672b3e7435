// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/exportAscii.hpp"

#include "anchor/Cache.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "library/ascii/AsciiLosses.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/export/PlannedGrids.hpp"
#include "library/export/propertyLosses.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;

using ExportLib::AsciiPlan;

AsciiPlan planOf(const Sheaf::Grid& grid, const AsciiSettings& settings, Selection& selection) {
    return AsciiPlan::of(grid, settings,
                         [&](const std::string& field) { return selection.UseThisField(field); });
}

/// What goes into .prj files, which stand beside grids that have files of their own.
WrittenSystem prjOf(const Sheaf::Grid& grid, const AsciiPlan& plan, const AsciiSettings& settings) {
    const bool hasGrids = std::any_of(plan.fragments.begin(), plan.fragments.end(), [](const auto& fragment) {
        return fragment.form == AsciiPlan::Form::Grid;
    });
    return hasGrids && !settings.append ? systemForPrj(grid) : WrittenSystem();
}

/// The bytes of all arrays of some fields, as far as they are known.
std::uint64_t bytesOf(const Sheaf::Grid& grid, const std::set<std::string>& fields) {
    std::uint64_t bytes = 0;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        const auto extents = fields.contains(item.id.name()) ? item.data->extents() : std::nullopt;
        Sheaf::visitElementType(item.data->elementType(), [&](auto tag) {
            if (extents)
                bytes += extents->elementCount().value_or(0) * sizeof(typename decltype(tag)::type);
        });
        return true;
    });
    return bytes;
}

/// Announces each field when the exporter comes to it. The exporter writes all fragments of a field before the next
/// field, so arrays of other fields that a reader makes along with it are of use only if the cache keeps all of them.
class FieldAfterField final : public RunRecorder {
public:
    FieldAfterField(RunScope scope, Anchor::StrongPtr<Progress> progress, const Inputs& inputs,
                    std::string cellTypes)
        : RunRecorder(std::move(scope), std::move(progress)),
          inputs_(inputs),
          cellTypes_(std::move(cellTypes)) {}

    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override {
        if (field_ != field) {
            field_ = field;
            inputs_.expectFields({"Positions", field_, cellTypes_});
        }
        RunRecorder::fragmentBegins(field, fragment, elements);
    }

private:
    const Inputs& inputs_;
    std::string cellTypes_;
    std::string field_;
};

class AsciiRun final : public ExportRun {
public:
    AsciiRun(const AsciiOptions& options, const ExportFormat::Context& context, const RunScope& scope)
        : options_(options),
          planned_(
              context, scope,
              [&](const Sheaf::Grid& grid) { return planOf(grid, options.settings, context.selection); }),
          bundle_(scope.bundle),
          recorder_(recorderFor(context, scope)),
          exporter_() {
        exporter_.FilterField = options.settings.filterField;
        exporter_.RefLevel = options.settings.refinementLevel;
        exporter_.Precision = options.settings.precision;
        exporter_.Append = options.settings.append;
        exporter_.TileSuffix = options.settings.tileSuffix;
        if (!options.cellTypes.empty())
            exporter_.CellTypeFilter = {};
        for (const auto& range : options.cellTypes)
            exporter_.CellTypeFilter.add(range.low, range.high);
        context.progress->begin("writing", planned_.elements(), "values");
        context.selection.forEachGrid(
            *bundle_, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                systems_[{time, name}] =
                    prjOf(grid, planOf(grid, options.settings, context.selection), options.settings);
            });
        for (const auto& [key, system] : systems_)
            exporter_.setAdditions(key.first, key.second, system.additions);
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunRecorder& recorder() override { return *recorder_; }
    std::set<std::string> fieldsRead() const override { return planned_.fieldsRead(); }

    std::string moreSettings() const override {
        std::string text = exporter_.TileSuffix ? "\nTileSuffix " : "";
        for (const auto& range : options_.cellTypes)
            text += fmt::format("\nCellTypes: {}:{} ", shortestText(range.low), shortestText(range.high));
        return text;
    }

    std::string whySkipped(const ExportedGrid& exported) const override {
        const PlannedTexts::Grid* const grid = planned_.find(exported);
        return grid != nullptr && !grid->plan.obstacle.empty() ? grid->plan.obstacle
                                                               : "its arrays are not of their fields' types";
    }

    std::optional<std::uint64_t> itemsOf(const ExportedGrid& exported) const override {
        // A file that is added to is recorded once for all its grids, and a grid file need not have a cell for each
        // element.
        if (options_.settings.append)
            return std::nullopt;
        const auto& record = exporter_.writtenFiles();
        std::uint64_t items = 0;
        for (const ExportedGrid::Fragment& fragment : exported.fragments) {
            for (std::size_t number = fragment.firstFile; number != fragment.endFile; ++number) {
                if (fs::path(record[number].path).extension() != ".asc")
                    return std::nullopt;
                items += fragment.elements;
            }
        }
        return items;
    }

    void findLosses(const ExportedGrid& exported, Losses& losses) const override {
        if (const PlannedTexts::Grid* const grid = planned_.find(exported))
            addAsciiLosses(exported, *grid, options_.settings, !options_.cellTypes.empty(),
                           exporter_.writtenFiles(), losses);
        const auto system = systems_.find({exported.time, exported.name});
        KeptProperties kept;
        kept.referenceSystem = system != systems_.end() && !system->second.additions.prj.empty();
        addPropertyLosses(exported, *bundle_, kept, losses);
    }

private:
    [[nodiscard]] Anchor::StrongPtr<RunRecorder> recorderFor(const ExportFormat::Context& context,
                                                             const RunScope& scope) const {
        std::uint64_t bytes = 0;
        context.selection.forEachGrid(*scope.bundle,
                                      [&](double, const std::string&, const Sheaf::Grid& grid) {
                                          bytes += bytesOf(grid, planned_.fieldsRead());
                                      });
        if (bytes <= Anchor::Cache::MemCache().limit())
            return Anchor::makeStrong<RunRecorder>(scope, context.progress);
        return Anchor::makeStrong<FieldAfterField>(scope, context.progress, context.inputs,
                                                   options_.settings.filterField);
    }

    const AsciiOptions& options_;
    PlannedTexts planned_;
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    /// By time and grid.
    std::map<std::pair<double, std::string>, WrittenSystem> systems_;
    Anchor::StrongPtr<RunRecorder> recorder_;
    ExportLib::ExportPointCloudToASCII exporter_;
};

class AsciiFormat final : public ExportFormat {
public:
    explicit AsciiFormat(const AsciiOptions& options) : options_(options) {}

    std::string_view name() const override { return "ASCII"; }
    std::string_view extension() const override { return {}; }
    std::string_view unit() const override { return "points"; }
    std::string_view unitOf(const fs::path& file) const override {
        return file.extension() == ".grd" ? "cells" : file.extension() == ".prj" ? "text" : unit();
    }

    bool fillsFolder() const override { return true; }
    bool addsToFiles() const override { return options_.settings.append; }

    bool choosesByCellTypes() const override {
        return !options_.cellTypes.empty() &&
               options_.settings.filterField == AsciiOptions().settings.filterField;
    }

    std::vector<ExpectedFile> expectedFiles(const Context& context, const RunScope& scope) const override {
        std::vector<ExpectedFile> files;
        const auto addFilesOf = [&](double time, const std::string& name, const Sheaf::Grid& grid) {
            const AsciiPlan plan = planOf(grid, options_.settings, context.selection);
            const bool hasPrj = !prjOf(grid, plan, options_.settings).additions.prj.empty();
            for (const auto& fragment : plan.fragments) {
                if (fragment.form == AsciiPlan::Form::None)
                    continue;
                fs::path file = fs::path(scope.output) / fragment.file;
                // Positions have three numbers.
                const std::uint64_t lineBytes = fragment.field == "Positions" ? 36 : 10;
                files.push_back(
                    {file, time, name, fragment.elements, fragment.elements * lineBytes, fragment.isCertain});
                if (hasPrj && fragment.form == AsciiPlan::Form::Grid)
                    files.push_back({file.replace_extension(".prj"), time, name, 1, 0, fragment.isCertain});
            }
        };
        context.selection.forEachGrid(*scope.bundle, addFilesOf);
        return files;
    }

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<AsciiRun>(options_, context, scope);
    }

private:
    AsciiOptions options_;
};

} // namespace

AsciiOptions::AsciiOptions() {
    const ExportLib::ExportPointCloudToASCII defaults;
    settings = {defaults.FilterField, defaults.RefLevel, defaults.Precision, defaults.Append,
                defaults.TileSuffix};
}

std::unique_ptr<const ExportFormat> asciiFormat(const AsciiOptions& options) {
    return std::make_unique<AsciiFormat>(options);
}

ExportReport exportAscii(const Inputs& inputs, const AsciiOptions& options,
                         const Anchor::StrongPtr<Progress>& progress) {
    Export job(inputs, options, asciiFormat(options), progress);
    job.write();
    return job.placeUnlessRefused();
}

} // namespace Tidewatch
