// SPDX-License-Identifier: Apache-2.0
#include "library/input/Inputs.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "library/ProgressParts.hpp"
#include "library/crs/gridSystem.hpp"
#include "library/input/MergedReport.hpp"
#include "library/points/cellsAsPoints.hpp"
#include "library/points/choosePoints.hpp"
#include "library/points/mergeGrids.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"
#include "readers/registerReaders.hpp"

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

void selectInputs(InputOptions& inputs, Filters& filters) {
    inputs.selected.times = filters.times;
    inputs.selected.grids = filters.grids;
    if (inputs.tiles)
        inputs.tiledFields = filters.fields;
    // What comes of it is all there is, under another name.
    if (inputs.tiles && inputs.tiles->areGrids)
        filters.grids.clear();
    if (!inputs.merge)
        return;
    inputs.merge->selected = inputs.selected;
    filters.times.clear();
    filters.grids.clear();
}

/// Shared with the readers, which outlive the inputs if somebody keeps an array's creator.
class Inputs::ExpectedFields {
public:
    void set(std::set<std::string> fields) {
        const std::lock_guard lock(mutex_);
        fields_ = std::move(fields);
    }
    void setAll() {
        const std::lock_guard lock(mutex_);
        fields_.reset();
    }
    [[nodiscard]] bool contains(const std::string& field) const {
        const std::lock_guard lock(mutex_);
        return !fields_ || fields_->contains(field);
    }

private:
    mutable std::mutex mutex_;
    std::optional<std::set<std::string>> fields_;
};

namespace {

/// The workers of a host, except for threads that write one of several outputs side by side: these have none, since the
/// others keep the processors busy.
class WorkersOfHost final : public Anchor::Workers {
public:
    explicit WorkersOfHost(Anchor::StrongPtr<Anchor::Workers> workers) : workers_(std::move(workers)) {}

    [[nodiscard]] unsigned count() const noexcept override {
        return Progress::OnThisThread::exists() ? 1 : workers_->count();
    }

    void run(std::size_t pieces, const std::function<void(std::size_t)>& piece) override {
        if (!Progress::OnThisThread::exists()) {
            workers_->run(pieces, piece);
            return;
        }
        for (std::size_t number = 0; number < pieces; ++number)
            piece(number);
    }

private:
    Anchor::StrongPtr<Anchor::Workers> workers_;
};

Anchor::StrongPtr<Anchor::Workers> lent(const Anchor::StrongPtr<Anchor::Workers>& workers) {
    return workers ? Anchor::StrongPtr<Anchor::Workers>(Anchor::makeStrong<WorkersOfHost>(workers)) : nullptr;
}

} // namespace

Inputs::Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress)
    : bundle_(Anchor::makeStrong<Sheaf::Bundle>()),
      expected_(std::make_shared<ExpectedFields>()),
      workers_(lent(options.workers)),
      areFiles_(true) {
    const std::size_t times = options.sliceTimes.size();
    if (times > 1 && times != options.files.size())
        throw UsageError(fmt::format("--slice-time has {} for {}; give one, or one for each",
                                     counted(times, "time"), counted(options.files.size(), "input")));
    const auto wanted =
        options.referenceSystem ? std::optional(wantedSystem(*options.referenceSystem)) : std::nullopt;
    ConvLib::ReadOptions read;
    if (options.memoryLimit) {
        Anchor::Cache::MemCache().setLimit(*options.memoryLimit);
        read.MaximumArrayBytes = memoryLimit_ = *options.memoryLimit;
    }
    read.FragmentPoints = options.fragmentPoints;
    read.Tick = Progress::ticker(progress);
    read.Workers = workers_;
    read.IsWanted = [expected = expected_](const std::string& field) { return expected->contains(field); };
    if (options.requiresSandbox)
        requireSandbox(true);
    std::exception_ptr first;
    std::vector<MergeInput> separate; // inputs that are merged may have grids of one name
    for (std::size_t number = 0; number < options.files.size(); ++number) {
        const std::string& file = options.files[number];
        if (progress) {
            progress->check();
            ProgressParts::one(*progress, number, options.files.size(), 0, ProgressParts::opened);
        }
        if (times != 0)
            read.SliceTime = options.sliceTimes[times == 1 ? 0 : number];
        const auto into = options.merge ? Anchor::makeStrong<Sheaf::Bundle>() : bundle_;
        try {
            addReport(ConvLib::readFile(*into, file, read));
        } catch (const Anchor::Error& error) {
            if (failures_.empty())
                first = std::current_exception();
            failures_.emplace_back(error.what());
            continue;
        }
        if (options.merge)
            separate.push_back({file, into});
        if (const auto state = Anchor::FileState::of(file)) {
            identities_.push_back(state->identity);
            bytes_ += state->size;
        }
    }
    if (!failures_.empty() && (!options.skipsUnreadable || reports_.empty()))
        throwFailures(first);
    const auto finish = [&](Anchor::StrongPtr<Sheaf::Bundle> bundle) {
        completeSystems(*bundle);
        if (wanted) {
            addNotes(setSystem(*bundle, *wanted));
        }
        return prepared(std::move(bundle), options, progress);
    };
    if (!options.merge) {
        bundle_ = finish(std::move(bundle_));
        cutIntoTiles(options, progress);
        return;
    }
    for (MergeInput& input : separate)
        input.bundle = finish(std::move(input.bundle));
    mergeAll(separate, *options.merge);
    cutIntoTiles(options, progress);
}

Inputs Inputs::with(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress) const {
    Inputs made(*this);
    made.bundle_ = made.prepared(bundle_, options, progress);
    if (options.merge) {
        std::vector<std::string> files;
        for (const auto& report : reports_)
            files.push_back(report->file());
        const MergeInput all{files.empty() ? "the bundle" : listed(files), made.bundle_};
        made.mergeAll({&all, 1}, *options.merge);
    }
    made.workers_ = lent(options.workers);
    made.cutIntoTiles(options, progress);
    return made;
}

void Inputs::mergeAll(std::span<const MergeInput> inputs, const MergeOptions& options) {
    MergedGrids merged = mergeGrids(inputs, options);
    bundle_ = std::move(merged.bundle);
    addNotes(merged.notes);
    if (reports_.empty())
        return;
    auto report =
        Anchor::makeStrong<MergedReport>(options.gridName, merged.origin, std::exchange(reports_, {}));
    reportOf_.clear();
    addReport(std::move(report));
}

void Inputs::addReport(Anchor::StrongPtr<ConvLib::InputReport> report) {
    reportOf_.try_emplace({report->grid(), report->file()}, report);
    reports_.push_back(std::move(report));
}

void Inputs::cutIntoTiles(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress) {
    if (!options.tiles)
        return;
    Filters filters = options.merge ? Filters{} : options.selected;
    filters.fields = options.tiledFields;
    Selection selection(filters);
    shareDone_ = ProgressParts::cut;
    if (progress)
        progress->part(ProgressParts::opened, shareDone_);
    TiledPoints tiled =
        tilePoints(*bundle_, *options.tiles, selection, memoryLimit_, options.workers.get(), progress);
    addNotes(tiled.notes);
    bundle_ = std::move(tiled.bundle);
    tiles_ = std::move(tiled.tiles);
}

/// Makes of what was read what is asked for.
Anchor::StrongPtr<Sheaf::Bundle> Inputs::prepared(Anchor::StrongPtr<Sheaf::Bundle> read,
                                                  const InputOptions& options,
                                                  const Anchor::StrongPtr<Progress>& progress) {
    const std::function<void()> mayGoOn =
        progress ? [progress] { progress->check(); } : std::function<void()>();
    const Selection selection(options.selected);
    const auto use = [&](ChosenPoints made) {
        read = std::move(made.bundle);
        addNotes(made.notes);
        isChosen_ = true;
        masks_.insert(masks_.end(), made.masks.begin(), made.masks.end());
    };
    choosesByCellTypes_ = options.cellsAsPoints.has_value();
    if (options.cellsAsPoints)
        use(cellsAsPoints(*read, *options.cellsAsPoints, selection, decidingFields_, mayGoOn));
    if (!options.points.isAll()) {
        decidingFields_.merge(options.points.fieldsRead());
        use(choosePoints(*read, options.points, selection, mayGoOn));
    }
    return read;
}

/// Each once: grids of several times give the same.
void Inputs::addNotes(const std::vector<std::string>& notes) {
    for (const std::string& note : notes) {
        if (std::find(notes_.begin(), notes_.end(), note) == notes_.end())
            notes_.push_back(note);
    }
}

void Inputs::throwFailures(const std::exception_ptr& first) const {
    if (failures_.size() == 1)
        std::rethrow_exception(first);
    std::string all;
    for (const std::string& failure : failures_)
        all += (all.empty() ? "" : "\n") + failure;
    throw Anchor::FormatError(all);
}

Inputs::Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle)
    : bundle_(std::move(bundle)),
      expected_(std::make_shared<ExpectedFields>()) {}

void Inputs::expectFields(std::set<std::string> fields) const {
    fields.insert(decidingFields_.begin(), decidingFields_.end());
    expected_->set(std::move(fields));
}

void Inputs::expectAllFields() const {
    expected_->setAll();
}

void Inputs::countChosen(const Anchor::StrongPtr<Progress>& progress) const {
    double total = 0;
    for (const auto& mask : masks_)
        total += static_cast<double>(mask->elements());
    if (progress)
        progress->begin("choosing", total, "points");
    double done = 0;
    for (const auto& mask : masks_) {
        if (progress)
            progress->piece(done, static_cast<double>(mask->elements()));
        static_cast<void>(mask->chosen());
        done += static_cast<double>(mask->elements());
    }
}

const TiledPoints::Tile* Inputs::tileOf(const std::string& grid) const noexcept {
    const auto found = tiles_.find(grid);
    return found != tiles_.end() ? &found->second : nullptr;
}

const std::string& Inputs::inputGridOf(const std::string& grid) const noexcept {
    const TiledPoints::Tile* const tile = tileOf(grid);
    return tile != nullptr ? tile->grid : grid;
}

Anchor::StrongPtr<ConvLib::InputReport> Inputs::reportOf(const std::string& grid,
                                                         const std::string& origin) const {
    const auto found = reportOf_.find({inputGridOf(grid), origin});
    return found != reportOf_.end() ? found->second : nullptr;
}

} // namespace Tidewatch
