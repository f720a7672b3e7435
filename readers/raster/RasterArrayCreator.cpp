// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterArrayCreator.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

Sheaf::Extents extentsOf(const Raster::Description& raster) {
    return {raster.width, raster.height, 1};
}

std::uint64_t sizeOf(const std::type_info& element) {
    std::uint64_t size = 0;
    Sheaf::visitElementType(element, [&](auto tag) { size = sizeof(typename decltype(tag)::type); });
    return size;
}

/// Turns the file's order of pixels into that of ascending y and x.
template <class T>
void turn(std::vector<T>& pixels, const Raster::Description& raster) {
    const auto width = static_cast<std::ptrdiff_t>(raster.width);
    const auto height = static_cast<std::ptrdiff_t>(raster.height);
    const auto row = [&](std::ptrdiff_t number) { return pixels.begin() + number * width; };
    if (raster.placing.rowsDescend) {
        for (std::ptrdiff_t low = 0, high = height - 1; low < high; ++low, --high)
            std::swap_ranges(row(low), row(low + 1), row(high));
    }
    if (raster.placing.columnsDescend) {
        for (std::ptrdiff_t number = 0; number < height; ++number)
            std::reverse(row(number), row(number + 1));
    }
}

} // namespace

RasterSource::RasterSource(std::string file, ConvLib::ReadOptions readOptions)
    : path(std::move(file)),
      options(std::move(readOptions)),
      state(InputFile(path).state()) {
    description = Raster::RasterFile(path).describe();
}

Raster::RasterFile RasterSource::open() const {
    InputFile(path).requireUnchanged(state);
    Raster::RasterFile file(path);
    if (!file.isAsIn(description))
        throw Anchor::FileError(
            fmt::format("{}: has been changed since it was opened", Anchor::printable(path)));
    return file;
}

std::vector<std::string> RasterSource::notCarried() const {
    std::vector<std::string> list = description.notCarried;
    if (bandsDiffer)
        list.emplace_back("values of bands where another band has no-data");
    return list;
}

RasterArrayCreator::RasterArrayCreator(std::shared_ptr<RasterSource> source, const std::type_info& element,
                                       std::string name)
    : CachedCreator(element, extentsOf(source->description)),
      source_(std::move(source)),
      name_(std::move(name)),
      // Neither extent has more than 31 bits, so the product has at most 65, and only on paper.
      bytes_(extents()->byteCount(sizeOf(element)).value_or(std::numeric_limits<std::uint64_t>::max())) {}

RasterArrayCreator::~RasterArrayCreator() = default;

template <class T, class Fill>
Sheaf::CachedCreator::Made RasterArrayCreator::makeTurned(Fill&& fill) const {
    const auto tick = [this](double share) {
        if (source_->options.Tick)
            source_->options.Tick(source_->path, share);
    };
    tick(0);
    const auto refuse = [this](const std::string& reason) {
        throw Anchor::LimitError(fmt::format("{}: {}: {}", Anchor::printable(source_->path), name_, reason));
    };
    if (bytes_ > source_->options.MaximumArrayBytes)
        refuse(fmt::format("needs {} bytes of memory, and {} are allowed", bytes_,
                           source_->options.MaximumArrayBytes));
    if (const std::uint64_t block = source_->description.blockBytes;
        block > source_->options.MaximumArrayBytes)
        refuse(fmt::format("needs {} bytes of memory for a block of the file, and {} are allowed", block,
                           source_->options.MaximumArrayBytes));
    const Raster::RasterFile file = source_->open();
    std::vector<T> elements;
    try {
        elements.resize(*extents()->elementCount());
    } catch (const std::bad_alloc&) {
        refuse(fmt::format("there is no memory for its {} bytes", bytes_));
    } catch (const std::length_error&) {
        refuse(fmt::format("there is no memory for its {} bytes", bytes_));
    }
    fill(file, std::span<T>(elements), tick);
    InputFile(source_->path).requireUnchanged(source_->state);
    turn(elements, source_->description);
    return {Sheaf::makeArray(*extents(), std::move(elements))};
}

BandCreator::BandCreator(const std::shared_ptr<RasterSource>& source, std::size_t band)
    : RasterArrayCreator(source, *source->description.bands[band].element, fmt::format("band {}", band + 1)),
      band_(band) {}

BandCreator::~BandCreator() = default;

Sheaf::CachedCreator::Made BandCreator::make() const {
    Made made;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        if constexpr (Raster::pixelType<T> != GDT_Unknown)
            made = makeTurned<T>(
                [this](const Raster::RasterFile& file, std::span<T> elements,
                       const Raster::RasterFile::Tick& tick) { file.readBand(band_, elements, tick); });
    });
    return made;
}

CellTypeCreator::CellTypeCreator(std::shared_ptr<RasterSource> source)
    : RasterArrayCreator(std::move(source), typeid(unsigned char), "the cell types") {}

CellTypeCreator::~CellTypeCreator() = default;

Sheaf::CachedCreator::Made CellTypeCreator::make() const {
    return makeTurned<unsigned char>([this](const Raster::RasterFile& file, std::span<unsigned char> elements,
                                            const Raster::RasterFile::Tick& tick) {
        if (file.readValidity(elements, tick))
            source().bandsDiffer = true;
    });
}

} // namespace Tidewatch
