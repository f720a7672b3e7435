// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/RunPlan.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// Watches a run through what the exporter asks its filters: narrows it to its scope, interrupts it, and
/// learns which grid became which files.
class RunWatch {
public:
    /// A grid that the exporter took up, and the files it wrote for it: places in its record of written
    /// files.
    struct Visit {
        double time;
        std::string grid;
        std::size_t firstFile;
        std::size_t endFile;

        [[nodiscard]] bool hasFiles() const noexcept { return firstFile != endFile; }
    };

    explicit RunWatch(RunScope scope);
    virtual ~RunWatch();
    RunWatch(const RunWatch&) = delete;
    RunWatch& operator=(const RunWatch&) = delete;

    /// The exporter's questions, with what its own filters say; each throws Interrupted when the user wants
    /// to stop. `filesSoFar` is the length of the exporter's record of written files.
    bool useTime(double time, bool passesFilter);
    bool useGrid(const std::string& grid, bool passesFilter, std::size_t filesSoFar);
    bool useField(const std::string& field, bool passesFilter, std::size_t filesSoFar);

    /// The run is over.
    void finish(std::size_t filesSoFar);

    [[nodiscard]] const RunScope& scope() const noexcept { return scope_; }

    /// The grids in the order of the run.
    [[nodiscard]] const std::vector<Visit>& visits() const noexcept { return visits_; }

protected:
    /// For watches that follow closer: a grid has been taken up, is the last of visits() and has no files
    /// yet.
    virtual void onGrid();
    /// A field of that grid, or the next fragment of one, is about to be used.
    virtual void onField(const std::string& field);
    /// The run is over.
    virtual void onEnd();

    /// The length of the exporter's record as far as it is known.
    [[nodiscard]] std::size_t filesSoFar() const noexcept { return filesSoFar_; }

private:
    void closeVisit(std::size_t filesSoFar);

    RunScope scope_;
    double time_ = 0;
    std::size_t filesSoFar_ = 0;
    std::vector<Visit> visits_;
};

} // namespace Tidewatch
