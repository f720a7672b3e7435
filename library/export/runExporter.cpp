// SPDX-License-Identifier: Apache-2.0
#include "library/export/runExporter.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

/// Where a file came from.
struct Origin {
    /// The grids for which it was written.
    std::vector<const ExportedGrid*> grids;
    /// The last entry for it in the exporter's record.
    std::size_t lastRecord = 0;
};

fs::path relativeTo(const StagingFolder::Run& folder, const ConvLib::WrittenFile& file) {
    return fs::path(file.path).lexically_relative(folder.path());
}

/// The text with another name for a folder.
std::string renamed(std::string text, const std::string& folder, const std::string& by) {
    for (std::size_t place = 0; (place = text.find(folder, place)) != std::string::npos; place += by.size())
        text.replace(place, folder.size(), by);
    return text;
}

/// Returns what `work` does; errors about a folder name it as the user knows it.
template <class Work>
auto withFolderNamed(const std::string& folder, const std::string& name, Work&& work) {
    try {
        return work();
    } catch (const Anchor::FormatError& error) {
        throw Anchor::FormatError(renamed(error.what(), folder, name));
    } catch (const Anchor::FileError& error) {
        throw Anchor::FileError(renamed(error.what(), folder, name));
    } catch (const fs::filesystem_error& error) {
        throw Anchor::FileError(
            fmt::format("{}: {}", renamed(error.path1().string(), folder, name), error.code().message()));
    }
}

std::string settingsText(ExportRun& run, const RunScope& scope) {
    run.exporter().OutputPath = scope.output;
    const std::string text =
        run.exporter().printParameters() + run.exporter().printSecondary() + run.moreSettings();
    return text.starts_with('\n') ? text.substr(1) : text;
}

/// Makes the result of one run.
class Runner {
public:
    Runner(const ExportFormat& format, const ExportFormat::Context& context, const ExportOptions& options,
           const RunScope& scope, const StagingFolder::Run& folder)
        : format_(format),
          context_(context),
          options_(options),
          scope_(scope),
          folder_(folder) {}

    RunResult run();

private:
    using Grids = std::vector<const ExportedGrid*>;

    void collectFiles(ExportRun& run);
    void checkCount(ExportRun& run, const ExportedGrid& grid) const;
    void noteFile(const fs::path& staged, const fs::path& place, const ConvLib::WrittenFile& written,
                  const Grids& grids);
    void noteSharedFiles(const std::vector<std::string>& files, const Grids& grids);

    const ExportFormat& format_;
    const ExportFormat::Context& context_;
    const ExportOptions& options_;
    const RunScope& scope_;
    const StagingFolder::Run& folder_;
    RunResult result_;
};

RunResult Runner::run() {
    const Inputs& inputs = context_.inputs;
    const auto run = format_.makeRun(context_, scope_);
    inputs.expectFields(run->fieldsRead());
    ConvLib::BasicConverterDefs& exporter = run->exporter();
    exporter.bundleptr = scope_.bundle;
    // Only finished files are put in place, so nobody waits for single lines.
    exporter.setFlushLines(false);
    exporter.setWorkers(inputs.workers());
    options_.filters.applyTo(exporter);
    if (options_.showSettings)
        options_.showSettings(settingsText(*run, scope_));
    run->recorder().follow(exporter);
    const fs::path name = format_.exporterOutput(scope_);
    exporter.OutputPath = (name.empty() ? folder_.path() : folder_.path() / name).string();

    const fs::path output = scope_.output;
    const fs::path folderOfOutput = format_.fillsFolder() ? output : output.parent_path();
    const std::string place = folderOfOutput.empty() ? "." : folderOfOutput.string();
    const bool completed = withFolderNamed(folder_.path().string(), place, [&] { return exporter.Run(); });
    run->recorder().finish(exporter.writtenFiles());
    context_.progress->check();
    // Users know the output by its own name.
    for (const std::string& error : exporter.Errors)
        result_.errors.push_back(renamed(error, folder_.path().string(), place));
    result_.completed = completed;
    if (completed)
        collectFiles(*run);
    return std::move(result_);
}

void Runner::collectFiles(ExportRun& run) {
    const Inputs& inputs = context_.inputs;
    const auto target = [&](const fs::path& file) { return format_.placeOf(scope_, file); };
    const auto& record = run.exporter().writtenFiles();
    const std::vector<fs::path> files = folder_.verify(record, target);

    std::map<fs::path, Origin> originOf;
    for (const ExportedGrid& grid : run.recorder().grids()) {
        if (!grid.hasFiles()) {
            const std::string where = gridAtTime(grid.name, grid.time);
            const std::string why = run.whySkipped(grid);
            result_.skipped.push_back(where + ": " + why);
            result_.losses.addOf(where, "skipped", "not exported: " + why);
        }
        for (std::size_t number = grid.firstFile; number != grid.endFile; ++number) {
            Origin& origin = originOf[relativeTo(folder_, record[number])];
            origin.lastRecord = number;
            if (origin.grids.empty() || origin.grids.back() != &grid)
                origin.grids.push_back(&grid);
        }
    }
    std::set<const ExportedGrid*> inFiles;
    std::set<const ExportedGrid*> withoutPoints;
    std::map<Grids, std::vector<std::string>> sharedBy;
    for (const fs::path& file : files) {
        const Origin& origin = originOf.at(file);
        const Grids& grids = origin.grids;
        const std::size_t number = origin.lastRecord;
        const fs::path place = target(file);
        if (inputs.isChosen() && record[number].items == 0) {
            for (const ExportedGrid* const grid : grids)
                withoutPoints.insert(grid);
            continue;
        }
        withFolderNamed((folder_.path() / file).string(), place.string(), [&] {
            run.check({folder_.path() / file, place, record[number], number, *grids.back()}, result_.notes);
        });
        noteFile(folder_.name() / file, place, record[number], grids);
        if (format_.addsToFiles())
            inFiles.insert(grids.begin(), grids.end());
        else
            inFiles.insert(grids.back());
        if (grids.size() > 1)
            sharedBy[grids].push_back(place.string());
    }
    for (const ExportedGrid& grid : run.recorder().grids()) {
        if (!inFiles.contains(&grid)) {
            if (withoutPoints.contains(&grid))
                result_.skipped.push_back(gridAtTime(grid.name, grid.time) +
                                          ": none of its points is chosen");
            continue;
        }
        checkCount(run, grid);
        result_.exported.insert(inputs.inputGridOf(grid.name));
        run.findLosses(grid, result_.losses);
    }
    for (const auto& [grids, names] : sharedBy)
        noteSharedFiles(names, grids);
}

/// What goes in comes out.
void Runner::checkCount(ExportRun& run, const ExportedGrid& grid) const {
    const auto expected = run.itemsOf(grid);
    if (!expected)
        return;
    std::uint64_t written = 0;
    for (std::size_t number = grid.firstFile; number != grid.endFile; ++number) {
        const ConvLib::WrittenFile& file = run.exporter().writtenFiles()[number];
        if (format_.unitOf(file.path) != "text")
            written += file.items;
    }
    // Of chosen points, only the most that there can be was known.
    if (context_.inputs.isChosen() ? written > *expected : written != *expected)
        throw Anchor::FileError(fmt::format("{}: {} were to be written, and {} were",
                                            gridAtTime(grid.name, grid.time), counted(*expected, "element"),
                                            grouped(written)));
}

void Runner::noteFile(const fs::path& staged, const fs::path& place, const ConvLib::WrittenFile& written,
                      const Grids& grids) {
    ExportReport::File file{place.string(),
                            written.items,
                            written.bytes,
                            std::string(format_.unitOf(place)),
                            std::nullopt,
                            std::nullopt,
                            0};
    if (!grids.empty()) {
        const ExportedGrid& last = *grids.back();
        const auto differs = [&](auto member) {
            return format_.addsToFiles() &&
                   std::any_of(grids.begin(), grids.end(),
                               [&](const ExportedGrid* grid) { return grid->*member != last.*member; });
        };
        if (!differs(&ExportedGrid::name))
            file.grid = last.name;
        if (!differs(&ExportedGrid::time))
            file.time = last.time;
    }
    result_.files.push_back({staged, std::move(file)});
}

void Runner::noteSharedFiles(const std::vector<std::string>& files, const Grids& grids) {
    std::string text = listed(files);
    text += files.size() == 1 ? " holds " : " hold ";

    std::vector<std::string> names;
    for (const ExportedGrid* const grid : grids)
        names.push_back(gridAtTime(grid->name, grid->time));
    if (format_.addsToFiles()) {
        text += joined(names) + " one after the other";
    } else {
        text += names.back() + ", which overwrote ";
        names.pop_back();
        text += joined(names);
    }
    result_.losses.add(format_.addsToFiles() ? "joined" : "overwritten",
                       text + "; {grid} or {time} in OUTPUT keeps them apart");
}

} // namespace

std::string settingsOf(const ExportFormat& format, const ExportFormat::Context& context,
                       const ExportOptions& options, const RunScope& scope) {
    const auto run = format.makeRun(context, scope);
    options.filters.applyTo(run->exporter());
    return settingsText(*run, scope);
}

RunResult runExporter(const ExportFormat& format, const ExportFormat::Context& context,
                      const ExportOptions& options, const RunScope& scope, const StagingFolder::Run& folder) {
    return Runner(format, context, options, scope, folder).run();
}

} // namespace Tidewatch
