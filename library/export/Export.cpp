// SPDX-License-Identifier: Apache-2.0
#include "library/export/Export.hpp"

#include "anchor/Error.hpp"
#include "library/ProgressParts.hpp"
#include "library/output/FolderLock.hpp"
#include "library/output/Placement.hpp"
#include "library/output/StagingFolder.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <array>
#include <climits>
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

double elementsOf(const Sheaf::Grid& grid) {
    double sum = 0;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        if (const auto extents = item.data->extents())
            sum += static_cast<double>(extents->elementCount().value_or(0));
        return true;
    });
    return sum;
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
    void runAll(const std::vector<RunScope>& scopes);
    static void requireFileName(const fs::path& file);
    [[noreturn]] void refuseOverwriting(const fs::path& file,
                                        const std::set<std::pair<double, std::string>>& grids) const;
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
    std::vector<std::string> unmatched_;
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
    unmatched_ = unmatchedFilters(options_.filters, std::array{inputs_.bundle()}, format_->namedFields());
    for (const std::string& text : unmatched_)
        losses_.add("filter", text);
    const std::vector<RunScope> scopes = planRuns(options_.output, selection_, inputs_);
    checkPlaces(scopes);
    staging_.emplace(folder());
    for (const std::string& leftover : staging_->leftovers())
        report_.notes.push_back(leftover);
    runAll(scopes);
    if (report_.files.empty())
        report_.whyNothing = whyNothing();
    noteProperties();
    report_.losses = losses_.list(format_->name());
    return report_;
}

const ExportReport& Export::Impl::place() {
    if (!report_.completed)
        return report_;
    const auto check = [this] { progress_->check(); };
    check();
    progress_->part(ProgressParts::worked, 1);
    progress_->begin("putting files in place", static_cast<double>(report_.files.size()), "files");
    std::optional<FolderLock> lock;
    if (format_->addsToFiles())
        lock.emplace(
            folder(), [this](const std::string& text) { progress_->waits(text); }, check);
    placement_.commit(check, [this](std::size_t done) { progress_->piece(static_cast<double>(done), 0); });
    progress_->end();
    for (ExportReport::File& file : report_.files)
        file.bytesBefore = placement_.bytesBefore(file.path);
    report_.placed = true;
    return report_;
}

const ExportReport& Export::Impl::placeUnlessRefused() {
    const bool isRefused = report_.files.empty() || options_.losses.refuses(report_.losses);
    return isRefused ? report_ : place();
}

/// Runs share the progress by the number of elements that they may read.
void Export::Impl::runAll(const std::vector<RunScope>& scopes) {
    std::vector<double> ends;
    double sum = 0;
    for (const RunScope& scope : scopes) {
        sum += 1;
        selection_.forEachGrid(*inputs_.bundle(),
                               [&](double time, const std::string& name, const Sheaf::Grid& grid) {
                                   if (scope.admits(time) && scope.admits(name))
                                       sum += elementsOf(grid);
                               });
        ends.push_back(sum);
    }
    const auto share = [&](double done) {
        return inputs_.shareDone() + done / sum * (ProgressParts::worked - inputs_.shareDone());
    };
    for (std::size_t number = 0; number < scopes.size(); ++number) {
        progress_->part(share(number == 0 ? 0 : ends[number - 1]), share(ends[number]));
        report_.completed = runOnce(scopes[number]) && report_.completed;
    }
}

void Export::Impl::checkPlaces(const std::vector<RunScope>& scopes) {
    for (const RunScope& scope : scopes) {
        if (format_->fillsFolder())
            Placement::checkFolder(scope.output);
        std::map<fs::path, std::set<std::pair<double, std::string>>> gridsOf;
        std::set<fs::path> checked;
        for (const ExpectedFile& file : format_->expectedFiles({inputs_, selection_, progress_}, scope)) {
            requireFileName(file.path);
            if (file.isCertain && checked.insert(file.path).second)
                placement_.check(file.path, mode());
            gridsOf[file.path].insert({file.time, file.grid});
        }
        for (const auto& [file, grids] : gridsOf) {
            if (grids.size() > 1 && !format_->addsToFiles() && !options_.lastWins)
                refuseOverwriting(file, grids);
        }
    }
}

/// The names of fields become names of files, and of fields there is no limit.
void Export::Impl::requireFileName(const fs::path& file) {
    constexpr std::size_t most = NAME_MAX;
    for (const fs::path& part : file) {
        if (part.native().size() > most)
            throw Anchor::FileError(fmt::format("{}: a name has {} bytes, and in a path it may have {}",
                                                file.string(), part.native().size(), most));
    }
}

void Export::Impl::refuseOverwriting(const fs::path& file,
                                     const std::set<std::pair<double, std::string>>& grids) const {
    std::vector<std::string> texts;
    std::set<double> times;
    std::set<std::string> names;
    for (const auto& [time, name] : grids) {
        texts.push_back(gridAtTime(name, time));
        times.insert(time);
        names.insert(name);
    }
    std::vector<std::string> remedies;
    if (times.size() < grids.size())
        remedies.emplace_back("--merge makes one grid of those of one time");
    if (names.size() > 1 && times.size() > 1)
        remedies.emplace_back("{grid} and {time} in OUTPUT keep them apart");
    else
        remedies.push_back(
            fmt::format("{} in OUTPUT keeps them apart", names.size() > 1 ? "{grid}" : "{time}"));
    if (format_->fillsFolder())
        remedies.emplace_back("--append writes them one after the other");
    remedies.emplace_back("--last-wins keeps the last");
    throw UsageError(
        fmt::format("{}: {} would overwrite each other; {}", file.string(), listed(texts), joined(remedies)));
}

bool Export::Impl::runOnce(const RunScope& scope) {
    const StagingFolder::Run folder = staging_->beginRun();

    const auto run = format_->makeRun({inputs_, selection_, progress_}, scope);
    inputs_.expectFields(run->fieldsRead());
    ConvLib::BasicConverterDefs& exporter = run->exporter();
    exporter.bundleptr = inputs_.bundle();
    // Only finished files are put in place, so nobody waits for single lines.
    exporter.setFlushLines(false);
    exporter.setWorkers(inputs_.workers());
    options_.filters.applyTo(exporter);
    if (options_.showSettings) {
        exporter.OutputPath = scope.output;
        const std::string text = exporter.printParameters() + exporter.printSecondary() + run->moreSettings();
        options_.showSettings(text.starts_with('\n') ? text.substr(1) : text);
    }
    run->recorder().follow(exporter);
    const fs::path name = format_->exporterOutput(scope);
    exporter.OutputPath = (name.empty() ? folder.path() : folder.path() / name).string();

    const fs::path output = scope.output;
    const fs::path folderOfOutput = format_->fillsFolder() ? output : output.parent_path();
    const std::string place = folderOfOutput.empty() ? "." : folderOfOutput.string();
    const bool completed = withFolderNamed(folder.path().string(), place, [&] { return exporter.Run(); });
    run->recorder().finish(exporter.writtenFiles());
    progress_->check();
    // Users know the output by its own name.
    for (const std::string& error : exporter.Errors)
        report_.errors.push_back(renamed(error, folder.path().string(), place));
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
    std::set<const ExportedGrid*> withoutPoints;
    std::map<Grids, std::vector<std::string>> sharedBy;
    for (const fs::path& file : files) {
        const Origin& origin = originOf.at(file);
        const Grids& grids = origin.grids;
        const std::size_t number = origin.lastRecord;
        const fs::path place = target(file);
        if (inputs_.isChosen() && record[number].items == 0) {
            for (const ExportedGrid* const grid : grids)
                withoutPoints.insert(grid);
            continue;
        }
        withFolderNamed((folder.path() / file).string(), place.string(), [&] {
            run.check({folder.path() / file, place, record[number], number, *grids.back()}, report_.notes);
        });
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
        if (!inFiles.contains(&grid)) {
            if (withoutPoints.contains(&grid))
                skipped_.push_back(gridAtTime(grid.name, grid.time) + ": none of its points is chosen");
            continue;
        }
        exported_.insert(inputs_.inputGridOf(grid.name));
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
    std::string text = listed(files);
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
            losses_.addProperties(*report, inputs_.choosesByCellTypes() || format_->choosesByCellTypes());
    }
}

std::string Export::Impl::whyNothing() const {
    if (!skipped_.empty())
        return joined(skipped_, "; ");
    if (!unmatched_.empty())
        return joined(unmatched_, "; ");
    std::vector<std::string> grids;
    Selection(Filters{}).forEachGrid(*inputs_.bundle(),
                                     [&](double time, const std::string& name, const Sheaf::Grid&) {
                                         grids.push_back(gridAtTime(name, time));
                                     });
    return grids.empty() ? "the inputs contain no grid" : "the filters leave out " + listed(grids);
}

void prepareInputs(InputOptions& inputs, ExportOptions& options, const ExportFormat& format) {
    if (inputs.tiles) {
        inputs.tiles->areGrids = options.output.isPerTile();
        inputs.tiles->scratch = options.output.fixedFolder(format.fillsFolder());
    } else if (options.output.isPerTile()) {
        throw UsageError(
            "{tile} in OUTPUT is the name of a square, and --tile-size cuts points into squares");
    }
    selectInputs(inputs, options.filters);
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
