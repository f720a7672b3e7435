// SPDX-License-Identifier: Apache-2.0
#include "library/export/Export.hpp"

#include "anchor/Error.hpp"
#include "library/output/FolderLock.hpp"
#include "library/output/Placement.hpp"
#include "library/output/StagingFolder.hpp"
#include "library/report/Wording.hpp"

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

} // namespace

class Export::Impl {
public:
    Impl(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
         Anchor::StrongPtr<Progress> progress);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    const ExportReport& write();
    const ExportReport& place();
    const ExportReport& placeUnlessRefused();

private:
    using Grids = std::vector<const ExportedGrid*>;

    void checkPlaces(const std::vector<RunScope>& scopes);
    bool runOnce(const RunScope& scope);
    void collectFiles(ExportRun& run, const StagingFolder::Run& folder);
    void noteFile(const fs::path& path, const ConvLib::WrittenFile& written, const Grids& grids);
    void noteSharedFiles(const std::vector<std::string>& files, const Grids& grids);
    void noteProperties();
    [[nodiscard]] std::string whyNothing() const;
    [[nodiscard]] Placement::Mode mode() const;
    /// Where the unfinished files are.
    [[nodiscard]] fs::path folder() const { return options_.output.fixedFolder(format_->fillsFolder()); }

    const Inputs& inputs_;
    ExportOptions options_;
    std::unique_ptr<const ExportFormat> format_;
    Anchor::StrongPtr<Progress> progress_;
    Selection selection_;
    Placement placement_;
    std::optional<StagingFolder> staging_;
    Losses losses_;
    std::vector<std::string> skipped_;
    std::set<std::string> exported_;
    ExportReport report_;
};

Export::Impl::Impl(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
                   Anchor::StrongPtr<Progress> progress)
    : inputs_(inputs),
      options_(std::move(options)),
      format_(std::move(format)),
      progress_(progress ? std::move(progress) : Anchor::makeStrong<Progress>()),
      selection_(options_.filters),
      placement_(options_.overwrite, inputs_.identities()) {
    report_.notes = inputs_.notes();
}

Export::Impl::~Impl() = default;

Placement::Mode Export::Impl::mode() const {
    return format_->addsToFiles() ? Placement::Mode::Append : Placement::Mode::Replace;
}

const ExportReport& Export::Impl::write() {
    const std::vector<RunScope> scopes = planRuns(options_.output, selection_, *inputs_.bundle());
    checkPlaces(scopes);
    staging_.emplace(folder());
    for (const std::string& leftover : staging_->leftovers())
        report_.notes.push_back(leftover);
    for (const RunScope& scope : scopes)
        report_.completed = runOnce(scope) && report_.completed;
    progress_->end();
    if (report_.files.empty())
        report_.whyNothing = whyNothing();
    noteProperties();
    report_.losses = losses_.list(format_->name());
    return report_;
}

const ExportReport& Export::Impl::place() {
    if (!report_.completed)
        return report_;
    progress_->check();
    const auto check = [this] { progress_->check(); };
    std::optional<FolderLock> lock;
    if (format_->addsToFiles())
        lock.emplace(
            folder(), [this](const std::string& text) { progress_->say(text); }, check);
    placement_.commit(check);
    for (ExportReport::File& file : report_.files)
        file.bytesBefore = placement_.bytesBefore(file.path);
    report_.placed = true;
    return report_;
}

const ExportReport& Export::Impl::placeUnlessRefused() {
    const bool isRefused = report_.files.empty() || (options_.strict && !report_.losses.empty());
    return isRefused ? report_ : place();
}

void Export::Impl::checkPlaces(const std::vector<RunScope>& scopes) {
    for (const RunScope& scope : scopes) {
        if (format_->fillsFolder())
            Placement::checkFolder(scope.output);
        for (const fs::path& file : format_->expectedFiles({inputs_, selection_, progress_}, scope))
            placement_.check(file, mode());
    }
}

bool Export::Impl::runOnce(const RunScope& scope) {
    const StagingFolder::Run folder = staging_->beginRun();

    const auto run = format_->makeRun({inputs_, selection_, progress_}, scope);
    inputs_.expectFields(run->fieldsRead());
    ConvLib::BasicConverterDefs& exporter = run->exporter();
    exporter.bundleptr = inputs_.bundle();
    // Only finished files are put in place, so nobody waits for single lines.
    exporter.setFlushLines(false);
    options_.filters.applyTo(exporter);
    if (options_.showSettings) {
        exporter.OutputPath = scope.output;
        const std::string text = exporter.printParameters() + exporter.printSecondary() + run->moreSettings();
        options_.showSettings(text.starts_with('\n') ? text.substr(1) : text);
    }
    run->recorder().follow(exporter);
    const fs::path name = format_->exporterOutput(scope);
    exporter.OutputPath = (name.empty() ? folder.path() : folder.path() / name).string();

    const bool completed = exporter.Run();
    run->recorder().finish(exporter.writtenFiles());
    progress_->check();
    // Users know the output by its own name.
    const fs::path output = scope.output;
    const std::string place = format_->fillsFolder() ? output.string() : output.parent_path().string();
    for (const std::string& error : exporter.Errors)
        report_.errors.push_back(renamed(error, folder.path().string(), place.empty() ? "." : place));
    if (completed)
        collectFiles(*run, folder);
    return completed;
}

void Export::Impl::collectFiles(ExportRun& run, const StagingFolder::Run& folder) {
    const RunScope& scope = run.recorder().scope();
    const auto target = [&](const fs::path& file) { return format_->placeOf(scope, file); };
    const auto& record = run.exporter().writtenFiles();
    const std::vector<fs::path> files = folder.verify(record, target);

    std::map<fs::path, Origin> originOf;
    for (const ExportedGrid& grid : run.recorder().grids()) {
        if (!grid.hasFiles()) {
            const std::string where = gridAtTime(grid.name, grid.time);
            const std::string why = run.whySkipped(grid);
            skipped_.push_back(where + ": " + why);
            losses_.addOf(where, "skipped", "not exported: " + why);
        }
        for (std::size_t number = grid.firstFile; number != grid.endFile; ++number) {
            Origin& origin = originOf[relativeTo(folder, record[number])];
            origin.lastRecord = number;
            if (origin.grids.empty() || origin.grids.back() != &grid)
                origin.grids.push_back(&grid);
        }
    }
    std::set<const ExportedGrid*> inFiles;
    std::map<Grids, std::vector<std::string>> sharedBy;
    for (const fs::path& file : files) {
        const auto& [grids, number] = originOf.at(file);
        const fs::path place = target(file);
        run.check({folder.path() / file, place, record[number], number, *grids.back()}, report_.notes);
        placement_.add(folder.name() / file, place, mode());
        noteFile(place, record[number], grids);
        if (format_->addsToFiles())
            inFiles.insert(grids.begin(), grids.end());
        else
            inFiles.insert(grids.back());
        if (grids.size() > 1)
            sharedBy[grids].push_back(place.string());
    }
    for (const ExportedGrid& grid : run.recorder().grids()) {
        if (!inFiles.contains(&grid))
            continue;
        exported_.insert(grid.name);
        run.findLosses(grid, losses_);
    }
    for (const auto& [grids, names] : sharedBy)
        noteSharedFiles(names, grids);
}

void Export::Impl::noteFile(const fs::path& path, const ConvLib::WrittenFile& written, const Grids& grids) {
    ExportReport::File file{path.string(),
                            written.items,
                            written.bytes,
                            std::string(format_->unitOf(path)),
                            std::nullopt,
                            std::nullopt,
                            0};
    if (!grids.empty()) {
        const ExportedGrid& last = *grids.back();
        const auto differs = [&](auto member) {
            return format_->addsToFiles() &&
                   std::any_of(grids.begin(), grids.end(),
                               [&](const ExportedGrid* grid) { return grid->*member != last.*member; });
        };
        if (!differs(&ExportedGrid::name))
            file.grid = last.name;
        if (!differs(&ExportedGrid::time))
            file.time = last.time;
    }
    report_.files.push_back(std::move(file));
}

void Export::Impl::noteSharedFiles(const std::vector<std::string>& files, const Grids& grids) {
    constexpr std::size_t namedFiles = 3;
    std::vector<std::string> named = files;
    if (named.size() > namedFiles)
        named.resize(namedFiles);
    std::string text = joined(named);
    if (files.size() > namedFiles)
        text += fmt::format(" and {} more", counted(files.size() - namedFiles, "file"));
    text += files.size() == 1 ? " holds " : " hold ";

    std::vector<std::string> names;
    for (const ExportedGrid* const grid : grids)
        names.push_back(gridAtTime(grid->name, grid->time));
    if (format_->addsToFiles()) {
        text += joined(names) + " one after the other";
    } else {
        text += names.back() + ", which overwrote ";
        names.pop_back();
        text += joined(names);
    }
    losses_.add(format_->addsToFiles() ? "joined" : "overwritten",
                text + "; {grid} or {time} in OUTPUT keeps them apart");
}

void Export::Impl::noteProperties() {
    for (const auto& report : inputs_.reports()) {
        if (report->grid().empty() || exported_.contains(report->grid()))
            losses_.addProperties(*report);
    }
}

std::string Export::Impl::whyNothing() const {
    if (!skipped_.empty())
        return joined(skipped_, "; ");
    std::vector<std::string> grids;
    Selection(Filters{}).forEachGrid(*inputs_.bundle(),
                                     [&](double time, const std::string& name, const Sheaf::Grid&) {
                                         grids.push_back(gridAtTime(name, time));
                                     });
    return grids.empty() ? "the inputs contain no grid" : "the filters leave out " + joined(grids);
}

Export::Export(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
               Anchor::StrongPtr<Progress> progress)
    : impl_(std::make_unique<Impl>(inputs, std::move(options), std::move(format), std::move(progress))) {}

Export::~Export() = default;

const ExportReport& Export::write() {
    return impl_->write();
}

const ExportReport& Export::place() {
    return impl_->place();
}

const ExportReport& Export::placeUnlessRefused() {
    return impl_->placeUnlessRefused();
}

} // namespace Tidewatch
