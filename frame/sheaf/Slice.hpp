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

    /// The grids by name, bytes ascending. Entries may have expired; pass them over.
    [[nodiscard]] const GridMap& grids() const noexcept { return grids_; }

    /// Prepares the slice for reading. Everything that this framework's readers load is ready from the start,
    /// so the answer only says whether there is a grid.
    bool accessSlice() const;

    /// Adds an empty grid, which the slice keeps alive. `origin` says where it comes from.
    /// Throws Anchor::ModelError when the slice has a grid of that name; the message names both origins.
    Anchor::StrongPtr<Grid> makeGrid(const std::string& name, const std::string& origin = {});

    /// Lets go of a grid: its entry in the map expires unless somebody else holds it. An unknown name is no
    /// error.
    void removeGrid(const std::string& name);

private:
    double time_;
    GridMap grids_;
    std::map<std::string, Anchor::StrongPtr<Grid>> kept_;
};

} // namespace Sheaf
