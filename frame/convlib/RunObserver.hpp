// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "geom/PhysicalSpace.hpp"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ConvLib {

/// What becomes of values on their way into a file.
enum class ValueChange {
    Rounded,   ///< to the nearest value that the file can state
    Clamped,   ///< to the greatest value that the file can state
    Truncated, ///< only the lowest bits are kept
    Wrapped,   ///< what does not fit the field's bits is cut off
    Dropped,   ///< the file has no room for them
    OtherUnit, ///< stored as they are in a field of another unit
    Shifted,   ///< stored with a neighbour of the point they belong to
    Repeated,  ///< points without a value have that of the point before them
    Surplus,   ///< values without a point, left out
    Thinned    ///< points left out, since others stand for them
};

/// So many values of a field changed in the same way.
struct ChangedValues {
    /// The attribute or field that they belong to: "Positions" for points, "Positions.x" for coordinates along an
    /// axis. Several that are counted together are separated by ", ".
    std::string_view attribute;
    ValueChange change;
    std::uint64_t count;
    /// How many values there were in all; 0 where that says nothing.
    std::uint64_t total = 0;
    /// The greatest change of a value, in the unit of the attribute; 0 where that says nothing.
    double most = 0;
};

/// How a file stores the coordinates along one axis: as 32-bit numbers of steps from an offset.
struct StoredAxis {
    /// In coordinate units.
    double offset;
    double step;
    /// The coordinates of the smallest and of the greatest number.
    double lowest;
    double highest;
    /// The box of the coordinates that the file was laid out for; `lower` above `upper` stands for none.
    double lower;
    double upper;
};

/// What a host can follow of a run, beyond what the exporter's contract makes it ask and report: which grid is at
/// hand, and what becomes of values that the files cannot hold as they are. Exporters count those where they meet
/// them; without an observer nothing is counted, and nothing costs anything.
///
/// Called on the thread of Run(), in the order of the export. What an observer throws passes through Run().
/// References and views are valid during the call.
class TIDEWATCH_API RunObserver : public Anchor::ReferenceBase<RunObserver> {
public:
    ~RunObserver() override;

    /// A grid that the filters let pass is taken up. Its files follow, if there are any.
    virtual void gridBegins(double time, const std::string& grid);

    /// So many elements of one fragment of a field are about to be used, or with an empty field name so many points
    /// with all their fields. The fragment's name is empty for data without a fragment.
    virtual void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements);

    /// A file that stores coordinates as numbers of steps has been laid out and will be opened next: its axes, x
    /// first.
    virtual void fileBegins(const std::string& path, const std::array<StoredAxis, 3>& axes);

    /// Positions as they were before they were written, in order; they may come in several pieces.
    virtual void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions);

    /// Values of the grid at hand that a file does not hold as they were. Told as often as an exporter likes:
    /// counts add up.
    virtual void valuesChanged(const ChangedValues& values);

protected:
    RunObserver() = default;
};

} // namespace ConvLib
