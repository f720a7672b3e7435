// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "anchor/WeakPtr.hpp"
#include "sheaf/Grid.hpp"

#include <map>
#include <string>

namespace Sheaf {

/// The grids of one point in time.
class TIDEWATCH_API Slice : public Anchor::ReferenceBase<Slice> {
public:
    using GridMap = std::map<std::string, Anchor::WeakPtr<Grid>>;

    explicit Slice(double time) : time_(time) {}
    ~Slice() override;

    [[nodiscard]] double time() const noexcept { return time_; }

    /// The grids by name, in ascending byte order. Entries may have expired; skip those.
    [[nodiscard]] const GridMap& grids() const noexcept { return grids_; }

    /// Prepares the slice for reading. Everything that the readers load is ready from the start, so the
    /// result only says whether there is a grid.
    bool accessSlice() const;

    /// Adds an empty grid, which the slice keeps alive. `origin` names its source. Throws Anchor::ModelError
    /// if the slice has a grid of that name; the message names both origins.
    Anchor::StrongPtr<Grid> makeGrid(const std::string& name, const std::string& origin = {});

    /// Adds a grid that another slice has, too, under its own name; both keep it alive. Throws as makeGrid() does.
    void addGrid(const Anchor::StrongPtr<Grid>& grid);

    /// Releases a grid: its entry in the map expires unless somebody else holds the grid. An unknown name is
    /// not an error.
    void removeGrid(const std::string& name);

private:
    /// The entry for a grid that is to be added.
    Anchor::WeakPtr<Grid>& freeEntry(const std::string& name, const std::string& origin);

    double time_;
    GridMap grids_;
    std::map<std::string, Anchor::StrongPtr<Grid>> kept_;
};

} // namespace Sheaf
