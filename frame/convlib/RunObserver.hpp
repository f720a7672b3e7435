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

/// What happens to values when they are written to a file.
enum class ValueChange {
    Rounded,   ///< to the nearest value that the file can state
    Clamped,   ///< to the greatest value that the file can state
    Truncated, ///< only the lowest bits are kept
    Wrapped,   ///< bits that do not fit the field are cut off
    Dropped,   ///< the file has no room for them
    OtherUnit, ///< stored unchanged in a field with another unit
    Shifted,   ///< stored with a neighbour of the point they belong to
    Repeated,  ///< points without a value have that of the point before them
    Surplus,   ///< values without a point, left out
    Thinned,   ///< points left out because others represent them
    Valueless, ///< of cells of type 0, written as other numbers than the one for no value
    AsNoData,  ///< the same as the number that the file uses for no value
    NotFinite  ///< infinite or not a number in the file
};

/// A number of values of a field that changed in the same way.
struct ChangedValues {
    /// The attribute or field of the values: "Positions" for points, "Positions.x" for coordinates along an axis.
    /// Several that are counted together are separated by ", ".
    std::string_view attribute;
    ValueChange change;
    std::uint64_t count;
    /// The total number of values; 0 if that is meaningless.
    std::uint64_t total = 0;
    /// The largest change of a value, in the unit of the attribute; 0 if that is meaningless.
    double most = 0;
};

/// How a file stores the coordinates along one axis: as 32-bit numbers of steps from an offset.
struct StoredAxis {
    /// In coordinate units.
    double offset;
    double step;
    /// The coordinates of the smallest and the largest number.
    double lowest;
    double highest;
    /// The box of the coordinates that the file was laid out for; `lower` above `upper` means none.
    double lower;
    double upper;
};

/// Lets a host observe a run beyond the queries and reports of the exporter's contract: which grid is current, and what
/// happens to values that the files cannot hold unchanged. Exporters count these as they write; without an observer
/// nothing is counted, at no cost.
///
/// Called on the thread of Run(), in the order of the export. Exceptions of an observer pass through Run(). References
/// and views are valid during the call.
class TIDEWATCH_API RunObserver : public Anchor::ReferenceBase<RunObserver> {
public:
    ~RunObserver() override;

    /// A grid that the filters let pass starts. Its files follow, if there are any.
    virtual void gridBegins(double time, const std::string& grid);

    /// Some elements of one fragment of a field are about to be used, or with an empty field name some points with all
    /// their fields. The fragment's name is empty for data without a fragment.
    virtual void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements);

    /// A file that stores coordinates as numbers of steps has been laid out and will be opened next. Gets its axes, x
    /// first.
    virtual void fileBegins(const std::string& path, const std::array<StoredAxis, 3>& axes);

    /// Positions as they were before they were written, in order; there may be several calls.
    virtual void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions);

    /// Values of the current grid that a file does not hold unchanged. May be called repeatedly: counts add up.
    virtual void valuesChanged(const ChangedValues& values);

protected:
    RunObserver() = default;
};

} // namespace ConvLib
