// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/ReadOptions.hpp"
#include "readers/InputFile.hpp"
#include "readers/raster/RasterFile.hpp"
#include "sheaf/CachedCreator.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Tidewatch {

/// A raster that arrays are made of; shared by their creators and the report. The file is opened for each
/// array, so any number of rasters can be inputs of one run.
struct RasterSource {
    /// Looks at the file; throws what Raster::RasterFile throws.
    RasterSource(std::string file, ConvLib::ReadOptions readOptions);

    /// Opens the file again. Throws Anchor::FileError when it has been changed since.
    [[nodiscard]] Raster::RasterFile open() const;

    /// Description::notCarried, and what has turned up since.
    [[nodiscard]] std::vector<std::string> notCarried() const;

    std::string path;
    ConvLib::ReadOptions options;
    Raster::Description description;
    /// Whether pixels have turned up where some bands have a value and others do not.
    std::atomic<bool> bandsDiffer = false;

    /// When it was looked at.
    Anchor::FileState state;
};

/// Reads one array of a raster, one element a pixel, in ascending order of y and x.
class RasterArrayCreator : public Sheaf::CachedCreator {
public:
    ~RasterArrayCreator() override;

protected:
    RasterArrayCreator(std::shared_ptr<RasterSource> source, const std::type_info& element, std::string name);

    [[nodiscard]] std::uint64_t bytesToMake() const final { return bytes_; }

    /// Makes the array; `fill` is given the open file and a span of elements to fill in the file's order.
    /// `Fill` takes (const Raster::RasterFile&, std::span<T>, const Raster::RasterFile::Tick&).
    template <class T, class Fill>
    [[nodiscard]] Made makeTurned(Fill&& fill) const;

    [[nodiscard]] RasterSource& source() const noexcept { return *source_; }

private:
    std::shared_ptr<RasterSource> source_;
    std::string name_;
    std::uint64_t bytes_;
};

/// The numbers of one band.
class BandCreator final : public RasterArrayCreator {
public:
    /// `band` counts from 0.
    BandCreator(const std::shared_ptr<RasterSource>& source, std::size_t band);
    ~BandCreator() override;

protected:
    [[nodiscard]] Made make() const override;

private:
    std::size_t band_;
};

/// 1 where every band has a value, 0 elsewhere.
class CellTypeCreator final : public RasterArrayCreator {
public:
    explicit CellTypeCreator(std::shared_ptr<RasterSource> source);
    ~CellTypeCreator() override;

protected:
    [[nodiscard]] Made make() const override;
};

} // namespace Tidewatch
