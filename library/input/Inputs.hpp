// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/StrongPtr.hpp"
#include "anchor/Workers.hpp"
#include "convlib/InputReport.hpp"
#include "convlib/ReadOptions.hpp"
#include "library/ProgressParts.hpp"
#include "library/input/Filters.hpp"
#include "library/points/CellOptions.hpp"
#include "library/points/FragmentMask.hpp"
#include "library/points/MergeOptions.hpp"
#include "library/points/PointChoice.hpp"
#include "library/points/TileOptions.hpp"
#include "library/points/tilePoints.hpp"
#include "sheaf/Bundle.hpp"

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

struct MergeInput;

/// What to read, and how.
struct InputOptions {
    std::vector<std::string> files;
    /// The times of inputs that state none: one for all, or one for each in their order; empty stands for the reader's
    /// default.
    std::vector<double> sliceTimes = {};
    std::uint64_t fragmentPoints = ConvLib::ReadOptions().FragmentPoints;
    /// The most memory in bytes for arrays: the cache of those that can be read again, each single array, and what an
    /// exporter has in memory together. nullopt leaves the cache as it is and allows the others three quarters of what
    /// the process may use.
    std::optional<std::uint64_t> memoryLimit;
    /// With whom inputs are read and outputs written; null: on the calling thread only. Nothing else depends on it.
    Anchor::StrongPtr<Anchor::Workers> workers = {};
    /// Refuses bundle files and rasters where the process that reads them cannot be locked: requireSandbox().
    bool requiresSandbox = false;
    /// Leaves out inputs that cannot be read, unless none can: see Inputs::failures().
    bool skipsUnreadable = false;
    /// The coordinate reference system of all grids, as `--crs` takes it: codes ("EPSG:25832+5783"), a file of well-known
    /// text, or "none"; nullopt leaves each as it is.
    std::optional<std::string> referenceSystem = {};
    /// The times and grids that what follows is for; all others stay as they are.
    Filters selected = {};
    /// Makes points of the cells of lattices, before anything is chosen.
    std::optional<CellOptions> cellsAsPoints = {};
    PointChoice points = {};
    /// Makes one grid per time of all inputs.
    std::optional<MergeOptions> merge = {};
    /// Cuts points into squares, at last. Reads all of them.
    std::optional<TileOptions> tiles = {};
    /// The fields that squares are to have, as globs; empty: all.
    std::vector<std::string> tiledFields = {};
};

/// Tells inputs which times and grids filters select. If inputs are merged, that is all there is to select: what comes of
/// it has another name.
TIDEWATCH_API void selectInputs(InputOptions& inputs, Filters& filters);

/// The input files as one bundle. Inputs that share a time share the slice.
class TIDEWATCH_API Inputs {
public:
    /// Reads the structure of all files; arrays follow on demand. `progress`, which may be null, is called whenever
    /// arrays are read, as long as they can be requested. Sets the limit of the memory cache. Throws Anchor::Error, once
    /// all files have been tried, for those that cannot be read, a line each; for two grids with the same name in one
    /// slice that are not merged; and what cellsAsPoints(), choosePoints() and mergeGrids() throw. Throws UsageError for
    /// a number of slice times that fits neither way.
    explicit Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress = {});

    /// Uses a bundle that a host has in memory, and keeps it alive.
    explicit Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle);

    /// These inputs with what the options ask for beyond reading: cells become points, points are chosen, and all grids of
    /// one time merged. Nothing else of the options plays a part, and these inputs stay as they are. Throws as the first
    /// constructor does.
    [[nodiscard]] Inputs with(const InputOptions& options,
                              const Anchor::StrongPtr<Progress>& progress = {}) const;

    [[nodiscard]] const Anchor::StrongPtr<Sheaf::Bundle>& bundle() const noexcept { return bundle_; }

    /// The reports about the files, in their order; one about all files that were merged.
    [[nodiscard]] std::span<const Anchor::StrongPtr<ConvLib::InputReport>> reports() const noexcept {
        return reports_;
    }

    /// What is wrong with the inputs that were left out.
    [[nodiscard]] const std::vector<std::string>& failures() const noexcept { return failures_; }

    /// The report of the file that became a grid; null for grids of files that are whole bundles.
    [[nodiscard]] Anchor::StrongPtr<ConvLib::InputReport> reportOf(const std::string& grid,
                                                                   const std::string& origin) const;

    /// The share of the whole run that is done when the inputs are there.
    [[nodiscard]] double shareDone() const noexcept { return shareDone_; }

    /// The square that a grid holds, where squares are grids; null for other grids.
    [[nodiscard]] const TiledPoints::Tile* tileOf(const std::string& grid) const noexcept;

    /// The grid of the inputs that a grid comes from: itself, or that of which it is a square.
    [[nodiscard]] const std::string& inputGridOf(const std::string& grid) const noexcept;

    /// Announces to the readers that only these fields will be requested, until the next call; initially all may be.
    /// Other fields are still available on request, possibly by another pass over the file. Safe while arrays are
    /// created.
    void expectFields(std::set<std::string> fields) const;

    /// How many threads of the export may read at the same time: 1 for a bundle that a host made, whose creators may be used
    /// by one thread only.
    [[nodiscard]] unsigned readers() const noexcept {
        return areFiles_ ? Anchor::workerCount(workers_.get()) : 1;
    }

    /// Those of the options; may be null.
    [[nodiscard]] const Anchor::StrongPtr<Anchor::Workers>& workers() const noexcept { return workers_; }

    /// Announces that all fields may be requested.
    void expectAllFields() const;

    /// The most memory in bytes for data that has to be in memory together.
    [[nodiscard]] std::uint64_t memoryLimit() const noexcept { return memoryLimit_; }

    /// What is to be said of reference systems that were replaced, of choosing and of merging, one text each.
    [[nodiscard]] const std::vector<std::string>& notes() const noexcept { return notes_; }

    /// Whether grids hold what was chosen of points or cells. Then extents state the most elements that there can be,
    /// until an array is made or countChosen() is called.
    [[nodiscard]] bool isChosen() const noexcept { return isChosen_; }

    /// Whether only cells of some types became points.
    [[nodiscard]] bool choosesByCellTypes() const noexcept { return choosesByCellTypes_; }

    /// Reads as much as it takes to know how many points are chosen, if that is to be known before arrays are made. It is
    /// all of the current part of `progress`, which may be null.
    void countChosen(const Anchor::StrongPtr<Progress>& progress = {}) const;

    /// The size of all files together when they were opened.
    [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }

    /// The files themselves, whatever their names.
    [[nodiscard]] const std::vector<Anchor::FileIdentity>& identities() const noexcept { return identities_; }

private:
    class ExpectedFields;

    void addReport(Anchor::StrongPtr<ConvLib::InputReport> report);
    void mergeAll(std::span<const MergeInput> inputs, const MergeOptions& options);
    [[nodiscard]] Anchor::StrongPtr<Sheaf::Bundle> prepared(Anchor::StrongPtr<Sheaf::Bundle> read,
                                                            const InputOptions& options,
                                                            const Anchor::StrongPtr<Progress>& progress);
    void cutIntoTiles(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress);
    void addNotes(const std::vector<std::string>& notes);
    void throwFailures(const std::exception_ptr& first) const;

    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
    std::vector<Anchor::StrongPtr<ConvLib::InputReport>> reports_;
    /// By grid and file.
    std::map<std::pair<std::string, std::string>, Anchor::StrongPtr<ConvLib::InputReport>> reportOf_;
    std::vector<Anchor::FileIdentity> identities_;
    std::uint64_t bytes_ = 0;
    std::shared_ptr<ExpectedFields> expected_;
    Anchor::StrongPtr<Anchor::Workers> workers_;
    bool areFiles_ = false;
    std::uint64_t memoryLimit_ = ConvLib::ReadOptions().MaximumArrayBytes;
    std::vector<std::string> failures_;
    std::vector<std::string> notes_;
    std::map<std::string, TiledPoints::Tile> tiles_;
    double shareDone_ = ProgressParts::opened;
    /// What choosing reads.
    std::set<std::string> decidingFields_;
    bool isChosen_ = false;
    bool choosesByCellTypes_ = false;
    std::vector<Anchor::StrongPtr<const FragmentMask>> masks_;
};

} // namespace Tidewatch
