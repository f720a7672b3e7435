// SPDX-License-Identifier: Apache-2.0
#include "host/ascii/AsciiCommand.hpp"

#include "ascii/ExportPointCloudToASCII.hpp"
#include "host/ascii/AsciiLosses.hpp"
#include "host/ascii/AsciiWalk.hpp"
#include "host/export/Guarded.hpp"
#include "host/report/Wording.hpp"

#include <set>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;

class AsciiRun final : public ExportRun {
public:
    AsciiRun(const AsciiRequest& request, const ExportCommand::Context& context, const RunScope& scope)
        : request_(request),
          walk_(scope, context.inputs, context.selection, request.settings, context.bar),
          exporter_(walk_) {
        exporter_.FilterField = request.settings.filterField;
        exporter_.RefLevel = request.settings.refinementLevel;
        exporter_.Precision = request.settings.precision;
        exporter_.Append = request.settings.append;
        exporter_.TileSuffix = request.settings.tileSuffix;
        if (!request.cellTypes.empty())
            exporter_.CellTypeFilter = {};
        for (const auto& range : request.cellTypes)
            exporter_.CellTypeFilter.add(range.low, range.high);
        exporter_.Progress = walk_.reporter();
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunWatch& watch() override { return walk_; }

    std::string moreSettings() const override {
        std::string text = exporter_.TileSuffix ? "\nTileSuffix " : "";
        for (const auto& range : request_.cellTypes)
            text += fmt::format("\nCellTypes: {}:{} ", shortestText(range.low), shortestText(range.high));
        return text;
    }

    std::string whySkipped(const RunWatch::Visit& visit) const override {
        const AsciiWalk::Grid* const grid = walk_.find(visit);
        return grid != nullptr && !grid->plan.obstacle.empty() ? grid->plan.obstacle
                                                               : "its arrays are not of their fields' types";
    }

    void findLosses(const RunWatch::Visit& visit, Losses& losses) const override {
        if (const AsciiWalk::Grid* const grid = walk_.find(visit))
            addAsciiLosses(visit, *grid, request_.settings, exporter_.writtenFiles(), losses);
    }

private:
    const AsciiRequest& request_;
    AsciiWalk walk_;
    Guarded<ExportLib::ExportPointCloudToASCII> exporter_;
};

class AsciiCommand final : public ExportCommand {
public:
    explicit AsciiCommand(const AsciiRequest& request) : request_(request) {}

    std::string_view name() const override { return "ascii"; }
    std::string_view format() const override { return "ASCII"; }
    std::string_view extension() const override { return {}; }
    std::string_view unit() const override { return "points"; }
    std::string_view unitOf(const fs::path& file) const override {
        return file.extension() == ".grd" ? "cells" : unit();
    }

    bool fillsFolder() const override { return true; }
    bool addsToFiles() const override { return request_.settings.append; }

    std::vector<fs::path> expectedFiles(const Context& context, const RunScope& scope) const override {
        std::set<fs::path> files;
        const auto addFilesOf = [&](double time, const std::string& name, const Sheaf::Grid& grid) {
            if (!scope.admits(time) || !scope.admits(name))
                return;
            for (const AsciiStop& stop : AsciiPlan::of(grid, context.selection, request_.settings).stops) {
                if (const auto file = stop.file(request_.settings))
                    files.insert(fs::path(scope.output) / *file);
            }
        };
        context.selection.forEachGrid(*context.inputs.bundle(), addFilesOf);
        return {files.begin(), files.end()};
    }

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<AsciiRun>(request_, context, scope);
    }

private:
    const AsciiRequest& request_;
};

} // namespace

AsciiRequest::AsciiRequest() {
    const ExportLib::ExportPointCloudToASCII defaults;
    settings = {defaults.FilterField, defaults.RefLevel, defaults.Precision, defaults.Append,
                defaults.TileSuffix};
}

int AsciiRequest::run() const {
    return runExport(common, AsciiCommand(*this));
}

} // namespace Tidewatch
