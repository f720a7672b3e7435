// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/Point.hpp"

#include <cstdint>
#include <span>

namespace Tidewatch::Las {

/// Delivers the points of one file in order, block by block. Not safe for several threads at once.
class PointSource {
public:
    PointSource(const PointSource&) = delete;
    PointSource& operator=(const PointSource&) = delete;
    virtual ~PointSource() = default;

    /// The number of the point that read() gives next.
    [[nodiscard]] std::uint64_t position() const noexcept { return position_; }

    /// Goes as near before a point as is possible without decoding, or stays where that is nearer; afterwards
    /// position() is not above `point`. Throws Anchor::Error.
    virtual void approach(std::uint64_t point) = 0;

    /// Decodes the next points into `points`; there must be as many. Their extra bytes are valid until the
    /// next call. Throws Anchor::Error, after which the source is of no further use.
    virtual void read(std::span<Point> points) = 0;

protected:
    PointSource() = default;

    std::uint64_t position_ = 0;
};

} // namespace Tidewatch::Las
