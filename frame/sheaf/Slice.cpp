// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Slice.hpp"

#include "anchor/Error.hpp"

#include <algorithm>

namespace Sheaf {

Slice::~Slice() = default;

bool Slice::accessSlice() const {
    return std::any_of(grids_.begin(), grids_.end(),
                       [](const auto& entry) { return !entry.second.expired(); });
}

Anchor::WeakPtr<Grid>& Slice::freeEntry(const std::string& name, const std::string& origin) {
    Anchor::WeakPtr<Grid>& entry = grids_[name];
    if (const auto existing = entry.lock()) {
        std::string message = "two grids named \"" + name + "\" at one time";
        if (!existing->origin().empty() || !origin.empty())
            message += ": " + existing->origin() + " and " + origin;
        throw Anchor::ModelError(message);
    }
    return entry;
}

Anchor::StrongPtr<Grid> Slice::makeGrid(const std::string& name, const std::string& origin) {
    Anchor::WeakPtr<Grid>& entry = freeEntry(name, origin);
    auto grid = Anchor::makeStrong<Grid>(name, origin);
    entry = grid;
    kept_[name] = grid;
    return grid;
}

void Slice::addGrid(const Anchor::StrongPtr<Grid>& grid) {
    freeEntry(grid->name(), grid->origin()) = grid;
    kept_[grid->name()] = grid;
}

void Slice::removeGrid(const std::string& name) {
    kept_.erase(name);
}

} // namespace Sheaf
