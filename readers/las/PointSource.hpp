// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/LasFile.hpp"
#include "readers/las/Point.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace Tidewatch::Las {

/// Delivers the points of one file in order, block by block. Not safe for several threads at once.
class PointSource {
public:
    /// Opens the file. Throws Anchor::FileError when it is gone or has changed since the LasFile was made.
    explicit PointSource(std::shared_ptr<const LasFile> file)
        : file_(std::move(file)),
          input_(file_->open()) {}
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

    /// Throws Anchor::FileError when the file has been written to since it was opened.
    void requireUnchanged() const { input_.requireUnchanged(); }

protected:
    std::shared_ptr<const LasFile> file_;
    InputFile input_;
    std::uint64_t position_ = 0;
};

} // namespace Tidewatch::Las
