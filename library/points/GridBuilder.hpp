// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/input/Filters.hpp"
#include "sheaf/Bundle.hpp"

#include <functional>
#include <optional>
#include <string>

namespace Tidewatch {

/// Copies a grid without its data: statement, charts with their systems, and, for each skeleton for which
/// `takes` is true, the representations. `fill` adds the fields of one representation to its copy.
class GridBuilder {
public:
    using Takes = std::function<bool(const Sheaf::Skeleton& skeleton)>;
    using Fill = std::function<void(const Sheaf::Skeleton& skeleton, const Sheaf::Representation& from,
                                    Sheaf::Representation& to)>;

    GridBuilder(const Sheaf::Grid& from, Sheaf::Grid& to) : from_(from), to_(to) {}

    void build(const Takes& takes, const Fill& fill) const;

    /// The new grid's identifier for a fragment of the other one, with its overlaps; null for null.
    [[nodiscard]] Anchor::StrongPtr<Sheaf::FragmentID>
    fragment(const Anchor::StrongPtr<Sheaf::FragmentID>& from) const;

    /// Adds a field without data, with the name, type and encoding of another.
    static Anchor::StrongPtr<Sheaf::Field> addField(Sheaf::Representation& to, const std::string& name,
                                                    const Sheaf::Field& from);

private:
    [[nodiscard]] Anchor::StrongPtr<Sheaf::BaseSpace> space(const Sheaf::BaseSpace& from) const;

    const Sheaf::Grid& from_;
    Sheaf::Grid& to_;
};

/// Fills a grid with everything that another one has; the data is shared.
void copyData(const Sheaf::Grid& from, Sheaf::Grid& to);

/// A bundle with the slices and grids of another one. Grids that are selected are filled by `build`, all others with the
/// same data.
[[nodiscard]] Anchor::StrongPtr<Sheaf::Bundle>
rebuilt(const Sheaf::Bundle& from, const Selection& selection,
        const std::function<void(double time, const Sheaf::Grid& from, Sheaf::Grid& to)>& build);

/// How errors name a grid: "survey.laz: grid "survey" at time 0".
[[nodiscard]] std::string originAndGrid(const Sheaf::Grid& grid, double time);

/// The name of a fragment; nothing for null.
[[nodiscard]] std::optional<std::string> nameOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment);

} // namespace Tidewatch
