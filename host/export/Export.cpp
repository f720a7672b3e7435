// SPDX-License-Identifier: Apache-2.0
#include "host/export/Export.hpp"

#include "anchor/Error.hpp"
#include "host/Interruption.hpp"
#include "host/output/Placement.hpp"
#include "host/output/StagingFolder.hpp"
#include "host/report/Wording.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

fs::path relativeTo(const StagingFolder& folder, const ConvLib::WrittenFile& file) {
    return fs::path(file.path).lexically_relative(folder.path());
}

class Export {
public:
    Export(const ExportOptions& options, const ExportCommand& command)
        : options_(options),
          command_(command),
          report_(options.report, std::string(command.name())),
          inputs_(options.inputs, ProgressBar::ticker(report_.bar())),
          selection_(options.filters),
          placement_(options.overwrite, inputs_.identities()) {}

    ~Export() {
        // A folder may lie in one that an earlier one made.
        while (!folders_.empty())
            folders_.pop_back();
    }
    Export(const Export&) = delete;
    Export& operator=(const Export&) = delete;

    int run();

private:
    using Grids = std::vector<const RunWatch::Visit*>;

    /// Where a file came from.
    struct Origin {
        /// The grids that it was written for.
        Grids grids;
        /// The last entry of the exporter's record that tells of it.
        std::size_t lastRecord = 0;
    };

    void checkPlaces(const std::vector<RunScope>& scopes);
    bool runOnce(const RunScope& scope);
    void collectFiles(ExportRun& run, const StagingFolder& folder);
    void noteFile(const fs::path& path, const ConvLib::WrittenFile& written, const Grids& grids);
    void noteSharedFiles(const std::vector<std::string>& files, const Grids& grids);
    void noteProperties();
    [[nodiscard]] std::string whyNothing() const;
    [[nodiscard]] Placement::Manner manner() const {
        return command_.addsToFiles() ? Placement::Manner::Append : Placement::Manner::Replace;
    }

    const ExportOptions& options_;
    const ExportCommand& command_;
    Report report_;
    Inputs inputs_;
    Selection selection_;
    Placement placement_;
    std::vector<std::unique_ptr<StagingFolder>> folders_;
    Losses losses_;
    std::vector<std::string> skipped_;
    std::set<std::string> exported_;
};

int Export::run() {
    const std::vector<RunScope> scopes = planRuns(options_.output, selection_, *inputs_.bundle());
    checkPlaces(scopes);
    bool completed = true;
    for (const RunScope& scope : scopes)
        completed = runOnce(scope) && completed;
    report_.bar()->end();

    for (const std::string& note : report_.summary().notes)
        report_.messages().warning(note);
    for (const std::string& error : report_.summary().errors)
        report_.messages().error(error);
    if (!completed) {
        report_.messages().error("the export failed; nothing was put in place");
        return 1;
    }
    if (report_.summary().files.empty()) {
        report_.messages().error("nothing was written: " + whyNothing());
        return 1;
    }
    noteProperties();
    if (!report_.acceptLosses(losses_.list(command_.format()), options_.strict))
        return 1;

    Interruption::check();
    placement_.commit();
    report_.printSummary();
    return report_.summary().errors.empty() ? 0 : 1;
}

void Export::checkPlaces(const std::vector<RunScope>& scopes) {
    for (const RunScope& scope : scopes) {
        if (command_.fillsFolder())
            Placement::checkFolder(scope.output);
        for (const fs::path& file : command_.expectedFiles({inputs_, selection_, report_.bar()}, scope))
            placement_.check(file, manner());
    }
}

bool Export::runOnce(const RunScope& scope) {
    const fs::path output = scope.output;
    // A folder may lie on another file system than the one around it.
    const fs::path place = command_.fillsFolder() ? output : output.parent_path();
    folders_.push_back(std::make_unique<StagingFolder>(place.empty() ? fs::path(".") : place));
    const StagingFolder& folder = *folders_.back();

    const auto run = command_.makeRun({inputs_, selection_, report_.bar()}, scope);
    ConvLib::BasicConverterDefs& exporter = run->exporter();
    exporter.bundleptr = inputs_.bundle();
    if (!exporter.Progress)
        exporter.Progress = report_.bar();
    // Only finished files are shown, so nobody waits for single lines.
    exporter.setFlushLines(false);
    options_.filters.applyTo(exporter);
    if (options_.printParameters) {
        exporter.OutputPath = scope.output;
        const std::string text = exporter.printParameters() + exporter.printSecondary() + run->moreSettings();
        report_.messages().line(text.starts_with('\n') ? text.substr(1) : text);
    }
    const fs::path name = command_.exporterOutput(scope);
    exporter.OutputPath = (name.empty() ? folder.path() : folder.path() / name).string();

    const bool completed = exporter.Run();
    run->watch().finish(exporter.writtenFiles().size());
    Interruption::check();
    report_.summary().errors.insert(report_.summary().errors.end(), exporter.Errors.begin(),
                                    exporter.Errors.end());
    if (completed)
        collectFiles(*run, folder);
    return completed;
}

void Export::collectFiles(ExportRun& run, const StagingFolder& folder) {
    const RunScope& scope = run.watch().scope();
    const auto target = [&](const fs::path& file) { return command_.placeOf(scope, file); };
    const auto& record = run.exporter().writtenFiles();
    const std::vector<fs::path> files = folder.verify(record, target);

    std::map<fs::path, Origin> originOf;
    for (const RunWatch::Visit& visit : run.watch().visits()) {
        if (!visit.hasFiles()) {
            const std::string where = gridAtTime(visit.grid, visit.time);
            const std::string why = run.whySkipped(visit);
            skipped_.push_back(fmt::format("{}: {}", where, why));
            losses_.addOf(where, "skipped", "not exported: " + why);
        }
        for (std::size_t number = visit.firstFile; number != visit.endFile; ++number) {
            Origin& origin = originOf[relativeTo(folder, record[number])];
            origin.lastRecord = number;
            if (origin.grids.empty() || origin.grids.back() != &visit)
                origin.grids.push_back(&visit);
        }
    }
    std::set<const RunWatch::Visit*> inFiles;
    std::map<Grids, std::vector<std::string>> sharedBy;
    for (const fs::path& file : files) {
        const auto& [grids, number] = originOf.at(file);
        const fs::path place = target(file);
        run.check({folder.path() / file, place, record[number], number, *grids.back()},
                  report_.summary().notes);
        placement_.add(folder.path() / file, place, manner());
        noteFile(place, record[number], grids);
        if (command_.addsToFiles())
            inFiles.insert(grids.begin(), grids.end());
        else
            inFiles.insert(grids.back());
        if (grids.size() > 1)
            sharedBy[grids].push_back(place.string());
    }
    for (const RunWatch::Visit& visit : run.watch().visits()) {
        if (!inFiles.contains(&visit))
            continue;
        exported_.insert(visit.grid);
        run.findLosses(visit, losses_);
    }
    for (const auto& [grids, names] : sharedBy)
        noteSharedFiles(names, grids);
}

void Export::noteFile(const fs::path& path, const ConvLib::WrittenFile& written, const Grids& grids) {
    Summary::File file{path.string(),
                       written.items,
                       written.bytes,
                       std::string(command_.unitOf(path)),
                       std::nullopt,
                       std::nullopt,
                       0};
    if (!grids.empty()) {
        const RunWatch::Visit& last = *grids.back();
        const auto differs = [&](auto member) {
            return command_.addsToFiles() &&
                   std::any_of(grids.begin(), grids.end(),
                               [&](const RunWatch::Visit* grid) { return grid->*member != last.*member; });
        };
        if (!differs(&RunWatch::Visit::grid))
            file.grid = last.grid;
        if (!differs(&RunWatch::Visit::time))
            file.time = last.time;
    }
    if (command_.addsToFiles()) {
        std::error_code isNew;
        const std::uintmax_t size = fs::file_size(path, isNew);
        file.bytesBefore = isNew ? 0 : size;
    }
    report_.summary().files.push_back(std::move(file));
}

void Export::noteSharedFiles(const std::vector<std::string>& files, const Grids& grids) {
    constexpr std::size_t namedFiles = 3;
    std::vector<std::string> named = files;
    if (named.size() > namedFiles)
        named.resize(namedFiles);
    std::string text = joined(named);
    if (files.size() > namedFiles)
        text += fmt::format(" and {} more", counted(files.size() - namedFiles, "file"));
    text += files.size() == 1 ? " holds " : " hold ";

    std::vector<std::string> names;
    for (const RunWatch::Visit* const grid : grids)
        names.push_back(gridAtTime(grid->grid, grid->time));
    if (command_.addsToFiles()) {
        text += joined(names) + " one behind the other";
    } else {
        text += names.back() + ", which overwrote ";
        names.pop_back();
        text += joined(names);
    }
    losses_.add(command_.addsToFiles() ? "joined" : "overwritten",
                text + "; {grid} or {time} in OUTPUT keeps them apart");
}

void Export::noteProperties() {
    for (const auto& report : inputs_.reports()) {
        if (report->grid().empty() || exported_.contains(report->grid()))
            losses_.addProperties(*report);
    }
}

std::string Export::whyNothing() const {
    if (!skipped_.empty())
        return joined(skipped_, "; ");
    std::vector<std::string> grids;
    Selection(Filters{}).forEachGrid(*inputs_.bundle(),
                                     [&](double time, const std::string& name, const Sheaf::Grid&) {
                                         grids.push_back(gridAtTime(name, time));
                                     });
    return grids.empty() ? "the inputs hold no grid" : "the filters leave out " + joined(grids);
}

} // namespace

int runExport(const ExportOptions& options, const ExportCommand& command) {
    return Export(options, command).run();
}

} // namespace Tidewatch
