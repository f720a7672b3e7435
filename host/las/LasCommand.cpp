// SPDX-License-Identifier: Apache-2.0
#include "host/las/LasCommand.hpp"

#include "host/export/Guarded.hpp"
#include "host/las/LasLosses.hpp"
#include "host/las/LasOutput.hpp"
#include "host/las/LasVerification.hpp"
#include "host/las/LasWalk.hpp"
#include "host/report/Wording.hpp"
#include "las/ExportPointCloudToLas.hpp"

#include <algorithm>
#include <cstddef>
#include <set>
#include <span>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;

class LasRun final : public ExportRun {
public:
    LasRun(const LasRequest& request, const LasSettings& settings, const ExportCommand::Context& context,
           const RunScope& scope)
        : request_(request),
          settings_(settings),
          bar_(context.bar),
          // The exporter reads the positions for their box, then everything; the check reads it once more.
          walk_(scope, context.inputs, context.selection, settings_, request.verify ? 3 : 2, context.bar),
          exporter_(walk_) {
        exporter_.Day = request.day;
        exporter_.Year = request.year;
        exporter_.Version = settings_.version;
        exporter_.tiles = settings_.tiles;
        exporter_.uncompressed = settings_.uncompressed;
        exporter_.PointSourceID = settings_.pointSourceID;
        exporter_.RenameMap = settings_.renames;
        exporter_.Progress = walk_.reporter();
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunWatch& watch() override { return walk_; }

    std::string moreSettings() const override;

    std::string whySkipped(const RunWatch::Visit& visit) const override {
        const LasWalk::Grid* const grid = walk_.find(visit);
        return grid != nullptr && !grid->mapping.obstacle.empty()
                   ? grid->mapping.obstacle
                   : "its positions are a uniform lattice, not points";
    }

    void check(const FinishedFile& file, std::vector<std::string>& notes) override;
    void findLosses(const RunWatch::Visit& visit, Losses& losses) const override;

private:
    void findWhatWasLeft(const RunWatch::Visit& visit, const LasWalk::Written& last, Losses& losses) const;

    const LasRequest& request_;
    const LasSettings& settings_;
    Anchor::StrongPtr<ProgressBar> bar_;
    LasWalk walk_;
    Guarded<ExportLib::ExportPointCloudToLas> exporter_;
};

std::string LasRun::moreSettings() const {
    std::string text;
    if (settings_.uncompressed)
        text += "\nUncompressed ";
    if (settings_.pointSourceID != 0)
        text += fmt::format("\nPointSourceID: {} ", settings_.pointSourceID);
    for (const auto& [field, attribute] : settings_.renames) {
        if (field != attribute)
            text += fmt::format("\nRename: {}={} ", field, attribute);
    }
    return text;
}

void LasRun::check(const FinishedFile& file, std::vector<std::string>& notes) {
    LasVerification verification(settings_);
    const LasVerification::File written{file.path.string(), file.target.string(), file.record.items};
    verification.checkCount(written);
    const LasWalk::Grid* const grid = walk_.find(file.visit);
    if (!request_.verify || grid == nullptr)
        return;
    verification.tick = ProgressBar::ticker(bar_);
    verification.beginPass = [&](std::uint64_t points) { walk_.beginPass(points); };
    bar_->say("checking " + written.name);
    std::span<const LasWalk::Written> fragments = grid->written;
    if (settings_.tiles)
        fragments = fragments.subspan(file.number - file.visit.firstFile, 1);
    const Geom::BoundingBox& box = settings_.tiles ? fragments.front().box : grid->box;
    const std::vector<std::string> differences = verification.compare(written, grid->mapping, fragments, box);
    if (!differences.empty())
        notes.push_back(fmt::format("{}: the exporter counts points by return in its own way: {}",
                                    written.name, joined(differences, "; ")));
}

void LasRun::findLosses(const RunWatch::Visit& visit, Losses& losses) const {
    const LasWalk::Grid* const grid = walk_.find(visit);
    if (grid == nullptr)
        return;
    addLasLosses(visit, *grid, settings_, losses);
    if (!grid->written.empty() && !grid->written.back().hasPositions)
        findWhatWasLeft(visit, grid->written.back(), losses);
}

/// The exporter leaves a slice at the first fragment without positions.
void LasRun::findWhatWasLeft(const RunWatch::Visit& visit, const LasWalk::Written& last,
                             Losses& losses) const {
    std::set<std::string> left;
    for (const auto& [time, grid] : walk_.plannedGrids()) {
        if (time == visit.time && grid > visit.grid)
            left.insert(fmt::format("\"{}\"", grid));
    }
    const std::string& why = last.fragment->obstacle;
    losses.add(
        "skipped",
        fmt::format("{}: fragment \"{}\" has no positions to export{}; nothing behind it at "
                    "that time is exported{}",
                    gridAtTime(visit.grid, visit.time), last.fragment->name,
                    why.empty() ? std::string() : " (" + why + ")",
                    left.empty() ? std::string() : ", and no grid " + joined({left.begin(), left.end()})));
}

class LasCommand final : public ExportCommand {
public:
    explicit LasCommand(const LasRequest& request)
        : request_(request),
          hasExtension_(LasOutput::endsInExtension(request.common.output.text())) {
        settings_.version = request.version;
        settings_.tiles = request.tiles;
        settings_.uncompressed = request.uncompressed || LasOutput::endsInLas(request.common.output.text());
        settings_.pointSourceID = request.pointSourceID;
        settings_.renames = request.renames;
    }

    std::string_view name() const override { return "las"; }
    std::string_view format() const override { return "LAS"; }
    std::string_view extension() const override { return ".laz"; }
    std::string_view unit() const override { return "points"; }

    fs::path exporterOutput(const RunScope& scope) const override { return output(scope).exporterName(); }
    fs::path placeOf(const RunScope& scope, const fs::path& written) const override {
        return output(scope).placeOf(written);
    }
    std::vector<fs::path> expectedFiles(const Context& context, const RunScope& scope) const override;

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<LasRun>(request_, settings_, context, scope);
    }

private:
    [[nodiscard]] LasOutput output(const RunScope& scope) const {
        return {scope.output, hasExtension_, settings_.uncompressed};
    }

    const LasRequest& request_;
    bool hasExtension_;
    LasSettings settings_;
};

std::vector<fs::path> LasCommand::expectedFiles(const Context& context, const RunScope& scope) const {
    const LasOutput output = this->output(scope);
    if (!settings_.tiles)
        return {output.file()};
    std::set<fs::path> files;
    context.selection.forEachGrid(*context.inputs.bundle(),
                                  [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                                      if (!scope.admits(time) || !scope.admits(name))
                                          return;
                                      for (const std::string& tile : LasMapping::tileNames(grid))
                                          files.insert(output.tileOf(tile));
                                  });
    return {files.begin(), files.end()};
}

} // namespace

LasRequest::LasRequest() {
    const ExportLib::ExportPointCloudToLas defaults;
    day = defaults.Day;
    year = defaults.Year;
    version = defaults.Version;
    tiles = defaults.tiles;
    uncompressed = defaults.uncompressed;
    pointSourceID = defaults.PointSourceID;
    renames = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
}

int LasRequest::run() const {
    return runExport(common, LasCommand(*this));
}

} // namespace Tidewatch
