// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/PointSource.hpp"

#include <memory>
#include <vector>

namespace Tidewatch::Las {

/// The points of an uncompressed LAS file.
class PlainPointSource final : public PointSource {
public:
    using PointSource::PointSource;
    ~PlainPointSource() override;

    void approach(std::uint64_t point) override { position_ = point; }
    void read(std::span<Point> points) override;

private:
    std::vector<std::uint8_t> records_;
};

} // namespace Tidewatch::Las
