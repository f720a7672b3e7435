// SPDX-License-Identifier: Apache-2.0
#include "library/las/exportLas.hpp"

#include "anchor/printable.hpp"
#include "formats/las/PointLayout.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "las/LasPlan.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/export/propertyLosses.hpp"
#include "library/las/LasLosses.hpp"
#include "library/las/LasOutput.hpp"
#include "library/las/LasRecorder.hpp"
#include "library/las/LasVerification.hpp"
#include "library/points/cellsAsPoints.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

namespace fs = std::filesystem;
using ExportLib::LasPlan;
using ExportLib::LasSettings;

void configure(ExportLib::ExportPointCloudToLas& exporter, const LasOptions& options) {
    exporter.Day = options.day;
    exporter.Year = options.year;
    exporter.Version = options.version;
    exporter.tiles = options.tiles;
    exporter.uncompressed = options.uncompressed || LasOutput::endsInLas(options.output.text());
    exporter.PointSourceID = options.pointSourceID;
    exporter.RenameMap = options.renames;
    exporter.setCarry(options.carry);
    exporter.setConforming(options.conforming);
    exporter.setStep(options.step);
    exporter.setOffset(options.offset);
}

class LasRun final : public ExportRun {
public:
    LasRun(const LasOptions& options, const LasSettings& settings, const ExportFormat::Context& context,
           const RunScope& scope)
        : options_(options),
          settings_(settings),
          bundle_(scope.bundle),
          progress_(context.progress),
          workers_(context.inputs.workers()),
          // The exporter reads the positions for their box, then everything; the verification reads
          // everything again.
          recorder_(Anchor::makeStrong<LasRecorder>(scope, context.inputs, context.selection, settings_,
                                                    options.verify ? 3U : 2U, context.progress)) {
        configure(exporter_, options);
        if (options.carry)
            addSystems(context, scope);
    }

    ConvLib::BasicConverterDefs& exporter() override { return exporter_; }
    RunRecorder& recorder() override { return *recorder_; }
    std::set<std::string> fieldsRead() const override { return recorder_->fieldsRead(); }

    std::string moreSettings() const override;

    std::string whySkipped(const ExportedGrid& exported) const override {
        const LasRecorder::Grid* const grid = recorder_->find(exported);
        return grid != nullptr && !grid->plan.obstacle.empty()
                   ? grid->plan.obstacle
                   : "its positions are a uniform lattice, not points" + std::string(cellsRemedy);
    }

    std::optional<std::uint64_t> itemsOf(const ExportedGrid& exported) const override {
        const LasRecorder::Grid* const grid = recorder_->find(exported);
        if (grid == nullptr)
            return std::nullopt;
        std::uint64_t points = 0;
        for (const LasRecorder::File& file : grid->files) {
            for (const LasPlan::Fragment* const fragment : file.fragments)
                points += fragment->points;
        }
        return points;
    }
    void check(const FinishedFile& file, std::vector<std::string>& notes) override;
    void findLosses(const ExportedGrid& exported, Losses& losses) const override;

private:
    void addSystems(const ExportFormat::Context& context, const RunScope& scope);
    void addNotes(const ExportedGrid& exported, const LasPlan& plan, std::vector<std::string>& notes);
    void findSkippedFragments(const ExportedGrid& exported, const LasPlan::Fragment& last,
                              Losses& losses) const;

    const LasOptions& options_;
    const LasSettings& settings_;
    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    Anchor::StrongPtr<Progress> progress_;
    Anchor::StrongPtr<Anchor::Workers> workers_;
    Anchor::StrongPtr<LasRecorder> recorder_;
    ExportLib::ExportPointCloudToLas exporter_;
    /// By time and grid.
    std::map<std::pair<double, std::string>, WrittenSystem> systems_;
    std::set<std::pair<double, std::string>> noted_;
};

void LasRun::addSystems(const ExportFormat::Context& context, const RunScope& scope) {
    context.selection.forEachGrid(*scope.bundle,
                                  [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                                      WrittenSystem written = systemForLas(grid, settings_.version);
                                      exporter_.setAdditions(time, name, written.additions);
                                      systems_.try_emplace({time, name}, std::move(written));
                                  });
}

/// Once a grid, whatever the number of its files.
void LasRun::addNotes(const ExportedGrid& exported, const LasPlan& plan, std::vector<std::string>& notes) {
    if (!noted_.emplace(exported.time, exported.name).second)
        return;
    std::vector<std::string> all = plan.notes;
    if (const auto system = systems_.find({exported.time, exported.name}); system != systems_.end())
        all.push_back(system->second.note);
    for (const std::string& note : all) {
        if (!note.empty())
            notes.push_back(gridAtTime(exported.name, exported.time) + ": " + Anchor::printable(note));
    }
}

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
    const LasRecorder::Grid* const grid = recorder_->find(file.grid);
    if (grid != nullptr)
        addNotes(file.grid, grid->plan, notes);
    if (!options_.verify || grid == nullptr)
        return;
    verification.workers = workers_;
    verification.tick = Progress::ticker(progress_);
    verification.beginPass = [&](std::uint64_t points) { recorder_->beginPass(points); };
    progress_->say("checking " + written.name);
    const std::vector<std::string> differences =
        verification.compare(written, grid->plan, grid->files.at(file.number - file.grid.firstFile));
    if (!differences.empty())
        notes.push_back(fmt::format("{}: the exporter counts points by return in its own way, which --plain "
                                    "keeps: {}",
                                    written.name, joined(differences, "; ")));
}

void LasRun::findLosses(const ExportedGrid& exported, Losses& losses) const {
    const LasRecorder::Grid* const grid = recorder_->find(exported);
    if (grid == nullptr)
        return;
    addLasLosses(exported, *grid, settings_, losses);
    addPropertyLosses(exported, *bundle_,
                      {settings_.carry, settings_.carry, settings_.carry, settings_.carry}, losses);
    if (const auto system = systems_.find({exported.time, exported.name});
        system != systems_.end() && !system->second.loss.empty())
        losses.addOf(gridAtTime(exported.name, exported.time), "properties",
                     "coordinate reference system: " + system->second.loss);
    if (const LasPlan::Fragment* const last = fragmentWithoutPositions(*grid))
        findSkippedFragments(exported, *last, losses);
}

/// The exporter leaves a slice at the first fragment without positions.
void LasRun::findSkippedFragments(const ExportedGrid& exported, const LasPlan::Fragment& last,
                                  Losses& losses) const {
    std::set<std::string> left;
    for (const auto& [time, grid] : recorder_->plannedGrids()) {
        if (time == exported.time && grid > exported.name)
            left.insert(fmt::format("\"{}\"", grid));
    }
    const std::string& why = last.obstacle;
    losses.add("skipped", fmt::format("{}: fragment \"{}\" has no positions to export{}; nothing after it at "
                                      "that time is exported{}",
                                      gridAtTime(exported.name, exported.time), last.name,
                                      why.empty() ? std::string() : " (" + why + ")",
                                      left.empty() ? std::string()
                                                   : ", and no grid " + joined({left.begin(), left.end()})));
}

class LasFormat final : public ExportFormat {
public:
    explicit LasFormat(const LasOptions& options)
        : options_(options),
          hasExtension_(LasOutput::endsInExtension(options.output.text())) {
        ExportLib::ExportPointCloudToLas exporter;
        configure(exporter, options);
        settings_ = LasSettings::of(exporter);
    }

    std::string_view name() const override { return "LAS"; }
    std::string_view extension() const override { return ".laz"; }
    std::string_view unit() const override { return "points"; }

    fs::path exporterOutput(const RunScope& scope) const override { return output(scope).exporterName(); }
    fs::path placeOf(const RunScope& scope, const fs::path& written) const override {
        return output(scope).placeOf(written);
    }
    std::vector<ExpectedFile> expectedFiles(const Context& context, const RunScope& scope) const override;

    std::vector<NamedField> namedFields() const override {
        std::vector<NamedField> named;
        const auto defaults = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
        for (const auto& entry : options_.renames) {
            if (const auto usual = defaults.find(entry.first); usual == defaults.end() || *usual != entry)
                named.push_back({entry.first, fmt::format("--rename '{}={}'", entry.first, entry.second)});
        }
        return named;
    }

    std::unique_ptr<ExportRun> makeRun(const Context& context, const RunScope& scope) const override {
        return std::make_unique<LasRun>(options_, settings_, context, scope);
    }

private:
    [[nodiscard]] LasOutput output(const RunScope& scope) const {
        return {scope.output, hasExtension_, settings_.uncompressed};
    }

    LasOptions options_;
    bool hasExtension_;
    LasSettings settings_;
};

/// About as many bytes as a point takes in a file.
std::uint64_t bytesOfPoint(const LasPlan& plan, bool uncompressed) {
    std::uint64_t bytes = Formats::Las::pointLayouts.at(plan.pointFormat).naturalSize;
    for (const LasPlan::ExtraBytes& extra : plan.extras)
        bytes += extra.size;
    // Surveys are compressed to a fifth to a third.
    return uncompressed ? bytes : bytes / 3;
}

std::vector<ExpectedFile> LasFormat::expectedFiles(const Context& context, const RunScope& scope) const {
    // Another field may become the positions.
    const bool isRenamed =
        std::any_of(options_.renames.begin(), options_.renames.end(), [](const auto& entry) {
            return entry.second == "Positions" && entry.first != "Positions";
        });
    if (!isRenamed)
        requirePositions(context.selection);
    const LasOutput output = this->output(scope);
    LasSettings settings = settings_;
    settings.outputPath = output.exporterName().string();
    const auto useField = [&](const std::string& field) { return context.selection.UseThisField(field); };
    std::vector<ExpectedFile> files;
    context.selection.forEachGrid(
        *scope.bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
            const LasPlan plan = LasPlan::of(grid, settings, useField);
            const std::uint64_t pointBytes = bytesOfPoint(plan, settings.uncompressed);
            for (const LasPlan::Fragment& fragment : plan.fragments) {
                if (fragment.content != LasPlan::Content::Lattice && fragment.obstacle.empty())
                    files.push_back({output.placeOf(fragment.file), time, name, fragment.points,
                                     fragment.points * pointBytes});
            }
        });
    return files;
}

} // namespace

LasOptions::LasOptions() {
    const ExportLib::ExportPointCloudToLas defaults;
    day = defaults.Day;
    year = defaults.Year;
    version = defaults.Version;
    tiles = defaults.tiles;
    uncompressed = defaults.uncompressed;
    pointSourceID = defaults.PointSourceID;
    renames = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
}

void LasOptions::setPlain(const InputOptions& inputs) {
    const auto refuse = [](bool isGiven, const char* option) {
        if (isGiven)
            throw UsageError(std::string("--plain and ") + option +
                             " exclude each other: plain files are what the exporter writes by itself");
    };
    refuse(step.has_value(), "--scale");
    refuse(offset.has_value(), "--offset");
    refuse(inputs.referenceSystem.has_value(), "--crs");
    carry = false;
    conforming = false;
}

std::unique_ptr<const ExportFormat> lasFormat(const LasOptions& options) {
    return std::make_unique<LasFormat>(options);
}

ExportReport exportLas(const Inputs& inputs, const LasOptions& options,
                       const Anchor::StrongPtr<Progress>& progress) {
    Export job(inputs, options, lasFormat(options), progress);
    job.write();
    return job.placeUnlessRefused();
}

} // namespace Tidewatch
