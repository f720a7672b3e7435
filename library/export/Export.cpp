// SPDX-License-Identifier: Apache-2.0
#include "library/export/Export.hpp"

#include "anchor/Error.hpp"
#include "library/ProgressParts.hpp"
#include "library/export/SideBySide.hpp"
#include "library/export/runExporter.hpp"
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
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/statvfs.h>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

double elementsOf(const Sheaf::Grid& grid) {
    double sum = 0;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        if (const auto extents = item.data->extents())
            sum += static_cast<double>(extents->elementCount().value_or(0));
        return true;
    });
    return sum;
}

/// The bytes that are free where a path is, or will be; nullopt if the system does not say.
std::optional<std::uint64_t> freeBytes(fs::path folder) {
    std::error_code ignored;
    for (folder = fs::absolute(folder); !fs::exists(folder, ignored) && folder.has_relative_path();)
        folder = folder.parent_path();
    struct statvfs room {};
    if (::statvfs(folder.c_str(), &room) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(room.f_bavail) * room.f_frsize;
}

/// The elements that a run may read, and one more.
double sizeOf(const RunScope& scope) {
    double sum = 1;
    Selection(Filters{}).forEachGrid(
        *scope.bundle, [&](double, const std::string&, const Sheaf::Grid& grid) { sum += elementsOf(grid); });
    return sum;
}

/// How many outputs may be written at the same time as far as open files go.
unsigned mostAtOnce() {
    constexpr rlim_t ofProcess = 32;
    constexpr rlim_t ofOutput = 8;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return UINT_MAX;
    const rlim_t most = (std::max(limit.rlim_cur, ofProcess) - ofProcess) / ofOutput;
    return static_cast<unsigned>(std::clamp<rlim_t>(most, 1, UINT_MAX));
}

/// Calls back for each number in ascending order, whatever the order in which they are added.
class InOrder {
public:
    explicit InOrder(std::function<void(std::size_t)> call) : call_(std::move(call)) {}

    void add(std::size_t number) {
        waiting_.insert(number);
        for (; waiting_.erase(next_) > 0; ++next_)
            call_(next_);
    }

    /// There are no more: those that wait for others need not.
    void end() {
        for (const std::size_t number : std::exchange(waiting_, {}))
            call_(number);
    }

private:
    std::function<void(std::size_t)> call_;
    std::set<std::size_t> waiting_;
    std::size_t next_ = 0;
};

} // namespace

class Export::Impl {
public:
    Impl(const Inputs& inputs, ExportOptions options, std::unique_ptr<const ExportFormat> format,
         Anchor::StrongPtr<Progress> progress);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ExportPlan plan();
    const ExportReport& write();
    const ExportReport& place();
    const ExportReport& placeUnlessRefused();
    const ExportReport& report() const noexcept { return report_; }

private:
    using Scopes = std::vector<RunScope>;

    [[nodiscard]] ExportFormat::Context context() { return {inputs_, selection_, progress_}; }
    Scopes planScopes();
    void checkNames(const std::vector<ExpectedFile>& files) const;
    void checkPlaces(const RunScope& scope, const std::vector<ExpectedFile>& files) const;
    static void requireFileName(const fs::path& file);
    [[noreturn]] void refuseOverwriting(const fs::path& file,
                                        const std::set<std::pair<double, std::string>>& grids) const;
    void begin();
    /// Writes the output of a run, on whatever thread.
    using Write = std::function<void(std::size_t number, const ExportFormat::Context& context,
                                     const ExportOptions& options)>;
    /// Which runs are made one after the other, with all workers, and which side by side then.
    struct Division {
        std::vector<std::size_t> alone;
        std::vector<std::size_t> beside;
        unsigned threads = 1;
    };
    [[nodiscard]] Division divide(const Scopes& scopes, const std::vector<double>& sizes);
    void runAll(const Scopes& scopes, double until, const Write& write,
                const std::function<bool(std::size_t number)>& take);
    void runTogether(const Scopes& scopes);
    void runEach(const Scopes& scopes);
    /// How many of the files of an output are there already.
    enum class Presence { None, Some, All };
    /// An output that stands by itself.
    struct Output {
        std::vector<ExpectedFile> files;
        Presence before = Presence::None;
        std::optional<StagingFolder::Run> folder;
        RunResult result;
        std::string failure;
    };
    [[nodiscard]] StagingFolder::Run beginRun();
    void writeOutput(const RunScope& scope, Output& output, const ExportFormat::Context& context,
                     const ExportOptions& options);
    void placeOutput(const RunScope& scope, Output& output);
    [[nodiscard]] Presence presenceOf(const std::vector<ExpectedFile>& files) const;
    void requireNoLosses(const RunScope& scope, const RunResult& result) const;
    void stage(const RunResult& result, Placement::Mode mode);
    void take(RunResult result);
    void commit();
    [[nodiscard]] Losses propertiesOf(const std::set<std::string>& exported) const;
    void planFiles(ExportPlan& plan, const RunScope& scope, const std::vector<ExpectedFile>& files) const;
    void planRun(ExportPlan& plan, Losses& losses, const RunScope& scope,
                 const std::vector<ExpectedFile>& files);
    void noteManyOutputs(std::vector<std::string>& notes, std::size_t outputs) const;
    [[nodiscard]] std::string whyNothing() const;
    [[nodiscard]] Placement::Mode mode() const;
    /// Where the unfinished files are.
    [[nodiscard]] fs::path folder() const { return options_.output.fixedFolder(format_->fillsFolder()); }

    const Inputs& inputs_;
    ExportOptions options_;
    std::unique_ptr<const ExportFormat> format_;
    Anchor::StrongPtr<Progress> progress_;
    Selection selection_;
    /// Guards what follows where outputs are written side by side.
    std::mutex filesMutex_;
    Placement placement_;
    std::optional<StagingFolder> staging_;
    Losses losses_;
    std::vector<std::string> skipped_;
    std::vector<std::string> unmatched_;
    std::set<std::string> exported_;
    /// Whether there are outputs, but none of this part.
    bool isLeftToOthers_ = false;
    /// The numbers of the inputs' reports, by grid.
    std::map<std::string, std::vector<std::size_t>> reportsOf_;
    /// Where outputs stand by themselves: what is in place.
    std::set<std::string> placed_;
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
    for (std::size_t number = 0; number < inputs_.reports().size(); ++number)
        reportsOf_[inputs_.reports()[number]->grid()].push_back(number);
}

Export::Impl::~Impl() = default;

Placement::Mode Export::Impl::mode() const {
    return format_->addsToFiles() ? Placement::Mode::Append : Placement::Mode::Replace;
}

Export::Impl::Scopes Export::Impl::planScopes() {
    unmatched_ = unmatchedFilters(options_.filters, std::array{inputs_.bundle()}, format_->namedFields());
    for (const std::string& text : unmatched_)
        losses_.add("filter", text);
    Scopes scopes = planRuns(options_.output, selection_, inputs_);
    if (const auto& part = options_.each.part) {
        Scopes mine;
        for (std::size_t number = 0; number < scopes.size(); ++number) {
            if (part->contains(number))
                mine.push_back(std::move(scopes[number]));
        }
        if (mine.empty() && !scopes.empty()) {
            isLeftToOthers_ = true;
            report_.notes.push_back(fmt::format("part {}/{} has none of the {}", part->number, part->count,
                                                counted(scopes.size(), "output")));
        }
        scopes = std::move(mine);
    }
    return scopes;
}

/// What was asked for takes so long that it should not be lost when it is interrupted.
void Export::Impl::noteManyOutputs(std::vector<std::string>& notes, std::size_t outputs) const {
    constexpr std::size_t many = 100;
    if (outputs > many && !options_.each.isAsked())
        notes.push_back(
            fmt::format("all {} outputs are put in place together at the end; --each puts each in "
                        "place when it is done, and --skip-existing goes on after an interruption",
                        grouped(outputs)));
}

const ExportReport& Export::Impl::write() {
    const Scopes scopes = planScopes();
    report_.outputs = scopes.size();
    noteManyOutputs(report_.notes, scopes.size());
    if (options_.each.isAsked())
        runEach(scopes);
    else
        runTogether(scopes);
    losses_.add(propertiesOf(exported_));
    if (report_.files.empty() && report_.existing == 0 && report_.failures.empty() && !isLeftToOthers_)
        report_.whyNothing = whyNothing();
    report_.losses = losses_.list(format_->name());
    return report_;
}

void Export::Impl::begin() {
    staging_.emplace(folder());
    for (const std::string& leftover : staging_->leftovers())
        report_.notes.push_back(leftover);
}

void Export::Impl::runTogether(const Scopes& scopes) {
    for (const RunScope& scope : scopes) {
        const auto files = format_->expectedFiles(context(), scope);
        checkPlaces(scope, files);
        checkNames(files);
    }
    begin();
    std::vector<RunResult> results(scopes.size());
    InOrder inOrder([&](std::size_t number) {
        RunResult& result = results[number];
        report_.completed = result.completed && report_.completed;
        stage(result, mode());
        take(std::move(result));
    });
    runAll(
        scopes, ProgressParts::worked,
        [&](std::size_t number, const ExportFormat::Context& context, const ExportOptions& options) {
            const StagingFolder::Run folder = beginRun();
            results[number] = runExporter(*format_, context, options, scopes[number], folder);
        },
        [&](std::size_t number) {
            inOrder.add(number);
            return true;
        });
}

Export::Impl::Division Export::Impl::divide(const Scopes& scopes, const std::vector<double>& sizes) {
    Division all;
    for (std::size_t number = 0; number < scopes.size(); ++number)
        all.alone.push_back(number);
    Division division;
    division.threads = std::min(inputs_.readers(), mostAtOnce());
    // Runs that add to one file depend on each other.
    if (division.threads < 2 || format_->addsToFiles() || scopes.size() < 2 * std::size_t{division.threads})
        return all;
    // Large ones would keep one thread busy when the others have nothing left to do.
    const double most = std::accumulate(sizes.begin(), sizes.end(), 0.0) / division.threads;
    const std::uint64_t memory = inputs_.memoryLimit() / division.threads;
    for (std::size_t number = 0; number < scopes.size(); ++number) {
        const bool isLarge =
            sizes[number] > most || format_->bytesInMemory(context(), scopes[number]) > memory;
        (isLarge ? division.alone : division.beside).push_back(number);
    }
    return division.beside.size() < 2 * std::size_t{division.threads} ? all : division;
}

/// Makes all runs: calls `write` for each, and `take` on this thread when that has returned, until it returns false.
void Export::Impl::runAll(const Scopes& scopes, double until, const Write& write,
                          const std::function<bool(std::size_t number)>& take) {
    std::vector<double> sizes;
    for (const RunScope& scope : scopes)
        sizes.push_back(sizeOf(scope));
    const Division division = divide(scopes, sizes);
    const double total = std::accumulate(sizes.begin(), sizes.end(), 0.0);
    const double from = inputs_.shareDone();
    const auto share = [&](double done) { return from + done / total * (until - from); };
    double done = 0;
    for (const std::size_t number : division.alone) {
        progress_->check();
        progress_->part(share(done), share(done + sizes[number]));
        write(number, context(), options_);
        if (!take(number))
            return;
        done += sizes[number];
    }
    if (division.beside.empty())
        return;
    progress_->part(share(done), until);
    // The host's functions are called on this thread only, and in order.
    for (const std::size_t number : division.beside) {
        try {
            if (options_.showSettings)
                options_.showSettings(settingsOf(*format_, context(), options_, scopes[number]));
        } catch (const Anchor::Error&) {
            // The run itself says what is wrong.
        }
    }
    ExportOptions options = options_;
    options.showSettings = {};
    SideBySide::Units units;
    units.unit = format_->unit();
    for (const std::size_t number : division.beside)
        units.sizes.push_back(sizes[number]);
    units.write = [&](std::size_t place, const Anchor::StrongPtr<Progress>& progress) {
        Selection selection(options_.filters);
        write(division.beside[place], {inputs_, selection, progress}, options);
    };
    units.take = [&](std::size_t place) { return take(division.beside[place]); };
    SideBySide::run(units, division.threads, *progress_);
}

StagingFolder::Run Export::Impl::beginRun() {
    const std::lock_guard lock(filesMutex_);
    return staging_->beginRun();
}

/// Wrong usage is told before any work, and so is what stands in the way, unless the others shall be written anyway.
void Export::Impl::runEach(const Scopes& scopes) {
    const EachOutput& each = options_.each;
    report_.isEach = report_.placed = true;
    std::vector<Output> outputs(scopes.size());
    for (std::size_t number = 0; number < scopes.size(); ++number) {
        std::vector<ExpectedFile>& files = outputs[number].files;
        files = format_->expectedFiles(context(), scopes[number]);
        if (!each.keepsGoing && !each.skipsExisting)
            checkPlaces(scopes[number], files);
        checkNames(files);
    }
    if (options_.losses.refuses(losses_.list(format_->name())))
        throw UsageError(joined(unmatched_, "; ") + "; --strict refuses that");
    begin();
    for (const std::string& failure : inputs_.failures())
        report_.failures.push_back({"", failure});
    InOrder inOrder([&](std::size_t number) {
        Output& output = outputs[number];
        if (!output.failure.empty())
            report_.failures.push_back({scopes[number].output, output.failure});
        else if (output.before == Presence::All)
            ++report_.existing;
        else
            take(std::move(output.result));
        output = {};
    });
    try {
        runAll(
            scopes, 1,
            [&](std::size_t number, const ExportFormat::Context& context, const ExportOptions& options) {
                writeOutput(scopes[number], outputs[number], context, options);
            },
            [&](std::size_t number) {
                Output& output = outputs[number];
                placeOutput(scopes[number], output);
                const bool goesOn = output.failure.empty() || each.keepsGoing;
                inOrder.add(number);
                return goesOn;
            });
    } catch (...) {
        inOrder.end();
        throw;
    }
    inOrder.end();
    progress_->end();
}

/// Writes an output that stands by itself into a folder of unfinished files, on whatever thread.
void Export::Impl::writeOutput(const RunScope& scope, Output& output, const ExportFormat::Context& context,
                               const ExportOptions& options) {
    try {
        output.before = presenceOf(output.files);
        if (output.before == Presence::All)
            return;
        {
            const std::lock_guard lock(filesMutex_);
            if (output.before == Presence::None)
                checkPlaces(scope, output.files);
            output.folder.emplace(staging_->beginRun());
        }
        output.result = runExporter(*format_, context, options, scope, *output.folder);
        if (!output.result.completed)
            output.failure = fmt::format("{}: {}", scope.output, joined(output.result.errors, "; "));
    } catch (const Anchor::Error& error) {
        output.failure = error.what();
    }
}

/// Puts an output that was written in place.
void Export::Impl::placeOutput(const RunScope& scope, Output& output) {
    const std::lock_guard lock(filesMutex_);
    if (output.failure.empty() && output.before != Presence::All) {
        try {
            requireNoLosses(scope, output.result);
            for (const RunResult::File& file : output.result.files) {
                const bool isNew = placed_.insert(fs::absolute(file.file.path).lexically_normal()).second;
                if (!isNew && !format_->addsToFiles())
                    throw Anchor::FileError(file.file.path + ": an earlier output of this run has this name");
            }
            // Some files were put in place before an interruption.
            stage(output.result, output.before == Presence::Some ? Placement::Mode::Overwrite : mode());
            commit();
            ++report_.done;
        } catch (const Anchor::Error& error) {
            output.failure = error.what();
        }
    }
    if (output.folder)
        staging_->endRun(*output.folder);
    output.folder.reset();
}

/// How many of an output's files are there, where that matters.
Export::Impl::Presence Export::Impl::presenceOf(const std::vector<ExpectedFile>& files) const {
    if (!options_.each.skipsExisting)
        return Presence::None;
    std::set<fs::path> paths;
    for (const ExpectedFile& file : files)
        paths.insert(file.path);
    const auto there = std::count_if(paths.begin(), paths.end(), [](const fs::path& path) {
        std::error_code ignored;
        return fs::is_regular_file(path, ignored);
    });
    if (there == 0)
        return Presence::None;
    return there == std::ssize(paths) ? Presence::All : Presence::Some;
}

void Export::Impl::requireNoLosses(const RunScope& scope, const RunResult& result) const {
    Losses all = result.losses;
    all.add(propertiesOf(result.exported));
    const auto losses = all.list(format_->name());
    if (!options_.losses.refuses(losses))
        return;
    std::vector<std::string> texts;
    for (const Loss& loss : options_.losses.shown(losses, ""))
        texts.push_back(loss.message);
    throw Anchor::FileError(
        fmt::format("{}: --strict refuses losses: {}", scope.output, joined(texts, "; ")));
}

/// The files of a run are to be put in place.
void Export::Impl::stage(const RunResult& result, Placement::Mode mode) {
    for (const RunResult::File& file : result.files)
        placement_.add(file.staged, file.file.path, mode);
}

void Export::Impl::take(RunResult result) {
    for (RunResult::File& file : result.files) {
        report_.files.push_back(std::move(file.file));
        report_.files.back().bytesBefore = placement_.bytesBefore(report_.files.back().path);
    }
    const auto append = [](std::vector<std::string>& to, std::vector<std::string>& from) {
        to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
    };
    append(report_.notes, result.notes);
    append(report_.errors, result.errors);
    append(skipped_, result.skipped);
    losses_.add(result.losses);
    exported_.merge(result.exported);
}

const ExportReport& Export::Impl::place() {
    if (!report_.completed || report_.placed)
        return report_;
    progress_->check();
    progress_->part(ProgressParts::worked, 1);
    progress_->begin("putting files in place", static_cast<double>(report_.files.size()), "files");
    commit();
    progress_->end();
    for (ExportReport::File& file : report_.files)
        file.bytesBefore = placement_.bytesBefore(file.path);
    report_.done = report_.outputs;
    report_.placed = true;
    return report_;
}

/// Puts the files in place that were staged.
void Export::Impl::commit() {
    const auto check = [this] { progress_->check(); };
    std::optional<FolderLock> lock;
    if (format_->addsToFiles())
        lock.emplace(
            folder(), [this](const std::string& text) { progress_->waits(text); }, check);
    placement_.commit(check, [this](std::size_t done) {
        if (!options_.each.isAsked())
            progress_->piece(static_cast<double>(done), 0);
    });
}

const ExportReport& Export::Impl::placeUnlessRefused() {
    const bool isRefused = report_.files.empty() || options_.losses.refuses(report_.losses);
    return isRefused ? report_ : place();
}

/// Whether names are possible, and grids would overwrite each other.
void Export::Impl::checkNames(const std::vector<ExpectedFile>& files) const {
    std::map<fs::path, std::set<std::pair<double, std::string>>> gridsOf;
    for (const ExpectedFile& file : files) {
        requireFileName(file.path);
        gridsOf[file.path].insert({file.time, file.grid});
    }
    for (const auto& [file, grids] : gridsOf) {
        if (grids.size() > 1 && !format_->addsToFiles() && !options_.lastWins)
            refuseOverwriting(file, grids);
    }
}

/// Whether something is in the way.
void Export::Impl::checkPlaces(const RunScope& scope, const std::vector<ExpectedFile>& files) const {
    if (format_->fillsFolder())
        Placement::checkFolder(scope.output);
    std::set<fs::path> checked;
    for (const ExpectedFile& file : files) {
        if (file.isCertain && checked.insert(file.path).second)
            placement_.check(file.path, mode());
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

/// What the inputs of some grids have that the bundle has not.
Losses Export::Impl::propertiesOf(const std::set<std::string>& exported) const {
    Losses losses;
    std::set<std::size_t> numbers;
    const auto add = [&](const std::string& grid) {
        if (const auto found = reportsOf_.find(grid); found != reportsOf_.end())
            numbers.insert(found->second.begin(), found->second.end());
    };
    add(""); // files that are whole bundles
    for (const std::string& grid : exported)
        add(grid);
    for (const std::size_t number : numbers)
        losses.addProperties(*inputs_.reports()[number],
                             inputs_.choosesByCellTypes() || format_->choosesByCellTypes());
    return losses;
}

/// What a run will write, and what is in its way.
void Export::Impl::planFiles(ExportPlan& plan, const RunScope& scope,
                             const std::vector<ExpectedFile>& files) const {
    const auto check = [&](const auto& place) {
        try {
            place();
        } catch (const Anchor::FileError& error) {
            plan.obstacles.emplace_back(error.what());
        }
    };
    if (format_->fillsFolder())
        check([&] { Placement::checkFolder(scope.output); });
    const Placement::Mode mode =
        presenceOf(files) == Presence::Some ? Placement::Mode::Overwrite : this->mode();
    std::map<fs::path, std::size_t> numberOf;
    for (const ExpectedFile& file : files) {
        const auto [entry, isNew] = numberOf.try_emplace(file.path, plan.files.size());
        if (isNew) {
            plan.files.push_back(
                {file.path.string(), {}, 0, std::string(format_->unitOf(file.path)), 0, file.isCertain});
            check([&] { placement_.check(file.path, mode); });
        }
        ExportPlan::File& planned = plan.files[entry->second];
        planned.grids.push_back(file.grid);
        planned.items += file.items;
        planned.bytes += file.bytes;
    }
}

/// What a run will drop.
void Export::Impl::planRun(ExportPlan& plan, Losses& losses, const RunScope& scope,
                           const std::vector<ExpectedFile>& files) {
    std::set<std::pair<double, std::string>> written;
    for (const ExpectedFile& file : files)
        written.emplace(file.time, file.grid);
    try {
        const auto run = format_->makeRun(context(), scope);
        selection_.forEachGrid(*scope.bundle, [&](double time, const std::string& name, const Sheaf::Grid&) {
            const ExportedGrid grid{time, name};
            if (!written.contains({time, name})) {
                const std::string where = gridAtTime(name, time);
                const std::string why = run->whySkipped(grid);
                skipped_.push_back(where + ": " + why);
                losses.addOf(where, "skipped", "not exported: " + why);
                return;
            }
            run->findLosses(grid, losses);
            exported_.insert(inputs_.inputGridOf(name));
        });
    } catch (const Anchor::LimitError& error) {
        plan.obstacles.emplace_back(error.what());
    }
}

ExportPlan Export::Impl::plan() {
    ExportPlan plan;
    const Scopes scopes = planScopes();
    plan.outputs = scopes.size();
    plan.inputs = inputs_.identities().size();
    plan.inputBytes = inputs_.bytes();
    plan.notes = report_.notes;
    plan.obstacles = inputs_.failures();
    noteManyOutputs(plan.notes, scopes.size());
    Losses losses = losses_;
    std::uint64_t bytes = 0;
    for (const RunScope& scope : scopes) {
        progress_->check();
        const auto files = format_->expectedFiles(context(), scope);
        checkNames(files);
        if (presenceOf(files) == Presence::All) {
            ++plan.existing;
            continue;
        }
        planFiles(plan, scope, files);
        planRun(plan, losses, scope, files);
    }
    losses.add(propertiesOf(exported_));
    for (const ExportPlan::File& file : plan.files)
        bytes += file.bytes;
    if (const auto room = freeBytes(folder()); room && bytes > *room)
        plan.obstacles.push_back(fmt::format("{}: {} are free, and the files take about {}",
                                             folder().string(), memoryText(*room), memoryText(bytes)));
    if (plan.files.empty() && plan.existing == 0 && !isLeftToOthers_)
        plan.whyNothing = whyNothing();
    plan.losses = losses.list(format_->name());
    if (options_.losses.refuses(plan.losses))
        plan.obstacles.emplace_back("--strict refuses losses");
    return plan;
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
    if (options.each.skipsExisting && format.addsToFiles())
        throw UsageError("--skip-existing and --append exclude each other");
    // Points of all inputs together would be too few without being wrong.
    inputs.skipsUnreadable = options.each.keepsGoing && !inputs.merge && !inputs.tiles;
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

ExportPlan Export::plan() {
    return impl_->plan();
}

const ExportReport& Export::report() const noexcept {
    return impl_->report();
}

} // namespace Tidewatch
