// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "geom/PhysicalSpace.hpp"
#include "library/sample/CoastModel.hpp"
#include "sheaf/MemBase.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <typeinfo>
#include <vector>

namespace Tidewatch {

/// A part of a laser scan of the coast: a number of points in scan order, generated on demand and
/// reproducibly.
class SampleScan {
public:
    /// The part of the coast that is scanned, in its local coordinates; flown along x, scanned across y.
    struct Area {
        double x0, x1, y0, y1;
    };

    /// A field of the scan.
    struct Column {
        const char* name;
        const std::type_info& elementType;
    };

    /// `tide` is the level of the sea, `time` the second at which the part starts; `corner` is added to
    /// coordinates.
    SampleScan(std::shared_ptr<const CoastModel> coast, const CountedRandom& random, const Area& area,
               const Geom::PhysicalSpace::vector& corner, unsigned short strip, double tide, double time,
               std::uint64_t points);

    /// The fields: every attribute of LAS points with the element type that the LAS exporter expects.
    [[nodiscard]] static std::span<const Column> columns();

    /// Bytes of all fields of one point.
    [[nodiscard]] static std::uint64_t bytesPerPoint() noexcept;

    [[nodiscard]] std::uint64_t size() const noexcept { return points_; }

    /// One array per field, in the order of columns().
    [[nodiscard]] std::vector<Anchor::StrongPtr<Sheaf::MemBase>> make() const;

private:
    std::shared_ptr<const CoastModel> coast_;
    CountedRandom random_;
    Area area_;
    Geom::PhysicalSpace::vector corner_;
    unsigned short strip_;
    double tide_;
    double time_;
    std::uint64_t points_;
};

} // namespace Tidewatch
