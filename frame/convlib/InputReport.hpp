// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "geom/PhysicalSpace.hpp"

#include <optional>
#include <string>
#include <vector>

namespace ConvLib {

/// What is to be said about an input file that was read. Some of it is known only once arrays have been made,
/// so ask after the work is done. Safe to ask while another thread makes arrays.
class TIDEWATCH_API InputReport : public Anchor::ReferenceBase<InputReport> {
public:
    ~InputReport() override;

    /// The file's path as it was given.
    [[nodiscard]] virtual std::string file() const = 0;

    /// What kind of file it is, for people: "LAS 1.4, point format 7, compressed".
    [[nodiscard]] virtual std::string kind() const = 0;

    /// The name of the grid that the file became, where it became one; empty for a file that is a whole
    /// bundle.
    [[nodiscard]] virtual std::string grid() const = 0;

    /// What the file holds and the bundle does not, as far as is known by now; one short phrase each, such as
    /// "coordinate reference system".
    [[nodiscard]] virtual std::vector<std::string> notCarried() const = 0;

    /// The step in which the file itself stores coordinates, per axis in coordinate units; nullopt where it
    /// stores them as floating-point numbers.
    [[nodiscard]] virtual std::optional<Geom::PhysicalSpace::vector> coordinateStep() const = 0;
};

} // namespace ConvLib
