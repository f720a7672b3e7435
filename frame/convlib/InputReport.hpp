// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "geom/PhysicalSpace.hpp"

#include <optional>
#include <string>
#include <vector>

namespace ConvLib {

/// Information about an input file that was read. Some of it is known only once arrays have been created, so
/// query it after the work is done. Safe to call while another thread creates arrays.
class TIDEWATCH_API InputReport : public Anchor::ReferenceBase<InputReport> {
public:
    ~InputReport() override;

    /// The file's path as it was given.
    [[nodiscard]] virtual std::string file() const = 0;

    /// The kind of file as a text for the user: "LAS 1.4, point format 7, compressed".
    [[nodiscard]] virtual std::string kind() const = 0;

    /// The name of the grid that the file became; empty for a file that is a whole bundle.
    [[nodiscard]] virtual std::string grid() const = 0;

    /// What the file states of itself, for people; empty for nothing.
    struct Fact {
        /// "software"; several facts may have one name.
        std::string name;
        std::string text;
    };
    [[nodiscard]] virtual std::vector<Fact> facts() const;

    /// The box of its positions as the file states it, which may be wrong.
    struct Box {
        Geom::PhysicalSpace::point lower;
        Geom::PhysicalSpace::point upper;
    };
    [[nodiscard]] virtual std::optional<Box> statedBox() const;

    /// Contents of the file that are not in the bundle, as far as known by now; one short phrase each, such
    /// as "coordinate reference system".
    [[nodiscard]] virtual std::vector<std::string> notCarried() const = 0;

    /// Contents, as far as known by now, that are lost where only cells of some types are taken; one short phrase each.
    [[nodiscard]] virtual std::vector<std::string> lostByCellTypes() const;

    /// The step in which the file stores coordinates, per axis in coordinate units; nullopt if it stores them
    /// as floating-point numbers.
    [[nodiscard]] virtual std::optional<Geom::PhysicalSpace::vector> coordinateStep() const = 0;
};

} // namespace ConvLib
