// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/LasFile.hpp"
#include "readers/las/PointSource.hpp"

#include <memory>
#include <vector>

namespace Tidewatch::Las {

/// The points of a LAS file, whose records stand one behind the other as they are.
class PlainPointSource final : public PointSource {
public:
    /// Opens the file. Throws Anchor::FileError when it is gone or has changed.
    explicit PlainPointSource(std::shared_ptr<const LasFile> file);
    ~PlainPointSource() override;

    void approach(std::uint64_t point) override { position_ = point; }
    void read(std::span<Point> points) override;

private:
    std::shared_ptr<const LasFile> file_;
    InputFile input_;
    std::vector<std::uint8_t> records_;
};

} // namespace Tidewatch::Las
