// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/ChunkReader.hpp"

#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/bundle/hdf5/blocks.hpp"
#include "readers/bundle/hdf5/decodeNumbers.hpp"

#include <algorithm>
#include <string>

namespace Tidewatch::Hdf5 {

namespace {

// How much is read between two calls of the progress callback.
constexpr std::uint64_t bytesBetweenTicks = std::uint64_t{4} << 20;

/// The filters of the dataset; nothing if this project does not implement one of them.
std::optional<FilterPipeline> pipelineOf(hid_t properties) {
    const int count = H5Pget_nfilters(properties);
    unsigned options = 0;
    // Chunks at the edge may be stored without filters, whatever their mask says.
    if (count < 0 || H5Pget_chunk_opts(properties, &options) < 0 || options != 0)
        return std::nullopt;
    FilterPipeline pipeline;
    for (int i = 0; i < count; ++i) {
        unsigned flags = 0;
        unsigned configuration = 0;
        unsigned values[1] = {};
        std::size_t valueCount = std::size(values);
        const H5Z_filter_t filter = H5Pget_filter2(properties, static_cast<unsigned>(i), &flags, &valueCount,
                                                   values, 0, nullptr, &configuration);
        if (filter == H5Z_FILTER_DEFLATE)
            pipeline.add(FilterPipeline::Filter::Deflate);
        else if (filter == H5Z_FILTER_SHUFFLE && valueCount == 1)
            pipeline.add(FilterPipeline::Filter::Shuffle, values[0]);
        else if (filter == H5Z_FILTER_FLETCHER32)
            pipeline.add(FilterPipeline::Filter::Fletcher32);
        else
            return std::nullopt;
    }
    return pipeline;
}

} // namespace

ChunkReader::ChunkReader(const Object& object, const NumberType& number,
                         const std::vector<std::uint64_t>& extents, const std::vector<std::uint64_t>& chunk)
    : object_(object),
      number_(number),
      extents_(extents),
      chunk_(chunk),
      chunkBytes_(product(chunk) * number.size()),
      place_(extents.size(), 0) {
    const LibraryCall call;
    const PropertiesHandle properties(H5Dget_create_plist(object_.id()));
    if (!properties)
        object_.failWithReason("the filters cannot be read");
    pipeline_ = pipelineOf(properties.get());
}

void ChunkReader::requireAllInFile() const {
    ChunkReader other(object_, number_, extents_, chunk_);
    do
        static_cast<void>(other.locate());
    while (advance(other.place_, extents_, chunk_));
}

void ChunkReader::read(const std::type_info& elementType, ArrayMemory& target,
                       const std::function<void(double share)>& tick) {
    const std::uint64_t allNumbers = product(extents_);
    const std::size_t elementSize = target.size() / allNumbers;
    const bool inOrder = isInOrder();
    Part part{0, {}, elementSize};
    if (!inOrder)
        part.elements = target.piece(0, target.size(), [&] { tick(0); });
    std::uint64_t done = 0;
    std::uint64_t sinceTick = 0;
    do {
        if (inOrder) {
            part.first += part.elements.size() / elementSize;
            std::uint64_t numbers = 1;
            for (std::size_t axis = 0; axis < extents_.size(); ++axis)
                numbers *= std::min(chunk_[axis], extents_[axis] - place_[axis]);
            part.elements = target.piece(part.first * elementSize, numbers * elementSize, [] {});
        }
        if (const auto stored = locate())
            scatter(load(*stored), number_, elementType, part);
        else
            scatter(fillValues(), number_.inMemory(), elementType, part);
        done += chunkBytes_;
        sinceTick += chunkBytes_;
        if (sinceTick >= bytesBetweenTicks) {
            sinceTick = 0;
            const double share = static_cast<double>(done) / static_cast<double>(allNumbers * number_.size());
            tick(std::min(share, 1.0)); // chunks at the edges extend beyond the array
        }
    } while (advance(place_, extents_, chunk_));
}

bool ChunkReader::isInOrder() const {
    // One entry of each axis before some axis, and all entries of each axis after it.
    std::size_t axis = 0;
    while (axis + 1 < extents_.size() && chunk_[axis] == 1)
        ++axis;
    while (++axis < extents_.size()) {
        if (chunk_[axis] < extents_[axis])
            return false;
    }
    return true;
}

std::optional<ChunkReader::Stored> ChunkReader::locate() const {
    const LibraryCall call;
    const std::vector<hsize_t> offset(place_.begin(), place_.end());
    hsize_t size = 0;
    unsigned skipped = 0;
    haddr_t address = HADDR_UNDEF;
    if (H5Dget_chunk_info_by_coord(object_.id(), offset.data(), &skipped, &address, &size) < 0)
        object_.failWithReason("the place of a chunk cannot be read");
    if (address == HADDR_UNDEF)
        return std::nullopt;
    const std::uint64_t fileSize = object_.file().size();
    if (size == 0 || size > fileSize || address > fileSize - size)
        object_.fail("a chunk lies beyond the end of the file");
    return Stored{skipped, size};
}

std::span<const std::byte> ChunkReader::load(const Stored& stored) {
    stored_.resize(stored.size);
    {
        const LibraryCall call;
        const std::vector<hsize_t> offset(place_.begin(), place_.end());
        std::uint32_t skipped = 0;
        if (H5Dread_chunk(object_.id(), H5P_DEFAULT, offset.data(), &skipped, stored_.data()) < 0)
            object_.failWithReason("a chunk cannot be read");
    }
    try {
        return pipeline_->decode(stored_, stored.skippedFilters, chunkBytes_);
    } catch (const Anchor::LimitError& error) {
        object_.fail<Anchor::LimitError>(std::string("a chunk ") + error.what());
    } catch (const Anchor::FormatError& error) {
        object_.fail(std::string("a chunk ") + error.what());
    }
}

std::span<const std::byte> ChunkReader::fillValues() {
    if (!filled_.empty())
        return filled_;
    std::vector<std::byte> value(number_.size());
    {
        const LibraryCall call;
        const PropertiesHandle properties(H5Dget_create_plist(object_.id()));
        H5D_fill_value_t state = H5D_FILL_VALUE_UNDEFINED;
        if (!properties || H5Pfill_value_defined(properties.get(), &state) < 0 ||
            (state != H5D_FILL_VALUE_UNDEFINED &&
             H5Pget_fill_value(properties.get(), memoryType(number_.type()), value.data()) < 0))
            object_.failWithReason("the fill value cannot be read");
    }
    filled_.resize(chunkBytes_);
    for (std::size_t i = 0; i < filled_.size(); ++i)
        filled_[i] = value[i % value.size()];
    return filled_;
}

void ChunkReader::scatter(std::span<const std::byte> content, const NumberType& stands,
                          const std::type_info& elementType, const Part& target) const {
    const std::size_t axes = extents_.size();
    std::vector<std::uint64_t> shape(axes);
    for (std::size_t axis = 0; axis < axes; ++axis)
        shape[axis] = std::min(chunk_[axis], extents_[axis] - place_[axis]);

    // Numbers that are contiguous both in the chunk and in the array are copied as one run: along the last
    // axis, and along each preceding axis as long as the chunk spans all axes after it.
    std::size_t outer = axes - 1;
    std::uint64_t run = shape[outer];
    while (outer > 0 && chunk_[outer] == extents_[outer])
        run *= shape[--outer];

    std::vector<std::uint64_t> inside(axes, 0);
    const std::vector<std::uint64_t> ones(outer, 1);
    do {
        std::uint64_t from = 0;
        std::uint64_t to = 0;
        for (std::size_t axis = 0; axis < axes; ++axis) {
            from = from * chunk_[axis] + inside[axis];
            to = to * extents_[axis] + place_[axis] + inside[axis];
        }
        decodeNumbers(
            object_, stands, content.subspan(from * number_.size(), run * number_.size()), elementType,
            target.elements.subspan((to - target.first) * target.elementSize, run * target.elementSize));
    } while (advance(std::span(inside).first(outer), std::span(shape).first(outer), ones));
}

} // namespace Tidewatch::Hdf5
