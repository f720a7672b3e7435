// SPDX-License-Identifier: Apache-2.0
#include "host/export/Export.hpp"

#include "anchor/Error.hpp"
#include "host/Interruption.hpp"
#include "host/output/Placement.hpp"
#include "host/output/StagingFolder.hpp"
#include "host/report/Wording.hpp"

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
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
    bool runOnce(const RunScope& scope);
    void collectFiles(ExportRun& run, const StagingFolder& folder);
    void noteFile(const ExportRun& run, const std::string& path, const ConvLib::WrittenFile& written,
                  const std::vector<const RunWatch::Visit*>& grids);
    void noteProperties();
    [[nodiscard]] std::string whyNothing() const;

    const ExportOptions& options_;
    const ExportCommand& command_;
    Report report_;
    Inputs inputs_;
    Selection selection_;
    Placement placement_;
    std::vector<std::unique_ptr<StagingFolder>> folders_;
    Losses losses_;
    std::vector<std::string> skipped_;
};

int Export::run() {
    const std::vector<RunScope> scopes = planRuns(options_.output, selection_, *inputs_.bundle());
    for (const RunScope& scope : scopes)
        placement_.check(scope.output);
    bool completed = true;
    for (const RunScope& scope : scopes)
        completed = runOnce(scope) && completed;
    report_.bar()->end();

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

bool Export::runOnce(const RunScope& scope) {
    const fs::path output = scope.output;
    const fs::path place = output.parent_path();
    folders_.push_back(std::make_unique<StagingFolder>(place.empty() ? fs::path(".") : place));
    const StagingFolder& folder = *folders_.back();

    const auto run = command_.makeRun({inputs_, selection_, report_.bar()}, scope);
    ConvLib::BasicConverterDefs& exporter = run->exporter();
    exporter.bundleptr = inputs_.bundle();
    exporter.Progress = report_.bar();
    // Only finished files are shown, so nobody waits for single lines.
    exporter.setFlushLines(false);
    options_.filters.applyTo(exporter);
    if (options_.printParameters) {
        exporter.OutputPath = scope.output;
        const std::string text = exporter.printParameters() + exporter.printSecondary() + run->moreSettings();
        report_.messages().line(text.starts_with('\n') ? text.substr(1) : text);
    }
    fs::path name = output.filename();
    if (!name.has_extension())
        name += command_.extension();
    exporter.OutputPath = (folder.path() / name).string();

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
    const fs::path output = run.watch().scope().output;
    const fs::path exporterName = fs::path(run.exporter().OutputPath).filename();
    // The user's own name stays as it is, also without an extension.
    const auto target = [&](const fs::path& relative) {
        return relative == exporterName ? output : output.parent_path() / relative;
    };
    const auto& record = run.exporter().writtenFiles();
    const std::vector<fs::path> files = folder.verify(record, target);
    for (const fs::path& file : files)
        placement_.add(folder.path() / file, target(file));

    std::map<fs::path, std::vector<const RunWatch::Visit*>> gridsOf;
    for (const RunWatch::Visit& visit : run.watch().visits()) {
        if (!visit.hasFiles()) {
            skipped_.push_back(gridAtTime(visit.grid, visit.time) + ": " + run.whySkipped(visit));
            losses_.add("skipped", skipped_.back() + "; it is not exported");
        }
        for (std::size_t number = visit.firstFile; number != visit.endFile; ++number) {
            auto& grids = gridsOf[relativeTo(folder, record[number])];
            if (grids.empty() || grids.back() != &visit)
                grids.push_back(&visit);
        }
    }
    std::map<fs::path, const ConvLib::WrittenFile*> lastRecord;
    for (const ConvLib::WrittenFile& file : record)
        lastRecord[relativeTo(folder, file)] = &file;
    for (const fs::path& file : files)
        noteFile(run, target(file).string(), *lastRecord.at(file), gridsOf[file]);
}

void Export::noteFile(const ExportRun& run, const std::string& path, const ConvLib::WrittenFile& written,
                      const std::vector<const RunWatch::Visit*>& grids) {
    Summary::File file{path,         written.items, written.bytes, std::string(command_.unit()),
                       std::nullopt, std::nullopt};
    if (!grids.empty()) {
        const RunWatch::Visit& last = *grids.back();
        file.grid = last.grid;
        file.time = last.time;
        run.findLosses(last, losses_);
    }
    report_.summary().files.push_back(std::move(file));
    if (grids.size() < 2)
        return;
    std::vector<std::string> replaced;
    for (const RunWatch::Visit* const grid : grids)
        replaced.push_back(gridAtTime(grid->grid, grid->time));
    const std::string last = std::move(replaced.back());
    replaced.pop_back();
    losses_.add(
        "overwritten",
        fmt::format("{} holds {}, which overwrote {}; {{grid}} or {{time}} in OUTPUT keeps them apart", path,
                    last, joined(replaced)));
}

void Export::noteProperties() {
    for (const auto& report : inputs_.reports()) {
        bool isExported = report->grid().empty();
        for (const Summary::File& file : report_.summary().files)
            isExported = isExported || file.grid == report->grid();
        if (isExported)
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
