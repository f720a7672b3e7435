// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/las/LasFile.hpp"
#include "readers/las/Point.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace Tidewatch::Las {

/// Reads the points of one file in order, block by block. Not thread-safe.
class PointSource {
public:
    /// Opens the file. Throws Anchor::FileError when it is missing or has changed since the LasFile was
    /// created.
    explicit PointSource(std::shared_ptr<const LasFile> file)
        : file_(std::move(file)),
          input_(file_->open()) {}
    PointSource(const PointSource&) = delete;
    PointSource& operator=(const PointSource&) = delete;
    virtual ~PointSource() = default;

    /// The index of the point that read() returns next.
    [[nodiscard]] std::uint64_t position() const noexcept { return position_; }

    /// Seeks to the nearest position at or before a point that needs no decoding, or stays if the current one
    /// is nearer; afterwards position() is not above `point`. Throws Anchor::Error.
    virtual void approach(std::uint64_t point) = 0;

    /// Decodes the next points into `points`; that many must exist. Their extra bytes are valid until the
    /// next call. Throws Anchor::Error, after which the source is no longer usable.
    virtual void read(std::span<Point> points) = 0;

    /// Throws Anchor::FileError when the file has been written to since it was opened.
    void requireUnchanged() const { input_.requireUnchanged(); }

protected:
    std::shared_ptr<const LasFile> file_;
    InputFile input_;
    std::uint64_t position_ = 0;
};

} // namespace Tidewatch::Las
