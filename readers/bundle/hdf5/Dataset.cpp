// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/Dataset.hpp"

#include "readers/bundle/hdf5/ChunkReader.hpp"
#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/bundle/hdf5/blocks.hpp"
#include "readers/bundle/hdf5/decodeNumbers.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace Tidewatch::Hdf5 {

namespace {

// Four axes, and one for the components of an element.
constexpr std::size_t maxAxes = 5;

// How much is read between two calls of the progress callback.
constexpr std::uint64_t pieceBytes = std::uint64_t{4} << 20;

// Chunks of real files have some kilobytes or more. A chunk that was never written takes no bytes in the
// file, so a moderate number of chunks is accepted whatever the file's size.
constexpr std::uint64_t chunksWithoutFile = std::uint64_t{1} << 20;
constexpr std::uint64_t minChunkBytes = 8;

/// The product; nothing if it exceeds 64 bits. A zero factor makes it zero.
std::optional<std::uint64_t> checkedProduct(std::span<const std::uint64_t> factors, std::uint64_t start) {
    if (std::find(factors.begin(), factors.end(), std::uint64_t{0}) != factors.end())
        return 0;
    for (const std::uint64_t factor : factors) {
        if (__builtin_mul_overflow(start, factor, &start))
            return std::nullopt;
    }
    return start;
}

} // namespace

Dataset::Dataset(Object object) : object_(std::move(object)), number_(numberOf(object_)) {
    const LibraryCall call;
    readShape();
    readLayout();
}

NumberType Dataset::numberOf(const Object& object) {
    const LibraryCall call;
    if (!object.isDataset())
        object.fail("is not a dataset");
    const DatatypeHandle type(H5Dget_type(object.id()));
    if (!type)
        object.failWithReason("the number type cannot be read");
    const auto number = NumberType::of(type.get());
    if (!number)
        object.fail("its values are of a type that is not supported (integers of 8 to 64 bits and IEEE "
                    "numbers are)");
    return *number;
}

void Dataset::readShape() {
    const DataspaceHandle space(H5Dget_space(object_.id()));
    if (!space)
        object_.failWithReason("the extents cannot be read");
    const int axes = H5Sget_simple_extent_ndims(space.get());
    if (H5Sget_simple_extent_type(space.get()) != H5S_SIMPLE || axes < 1 ||
        static_cast<std::size_t>(axes) > maxAxes)
        object_.fail("has no extents that an array could have");
    hsize_t extents[maxAxes] = {};
    hsize_t most[maxAxes] = {};
    if (H5Sget_simple_extent_dims(space.get(), extents, most) != axes)
        object_.failWithReason("the extents cannot be read");
    for (int axis = 0; axis < axes; ++axis) {
        if (most[axis] != H5S_UNLIMITED && extents[axis] > most[axis])
            object_.fail("has extents beyond what it says is their maximum");
    }
    extents_.assign(extents, extents + axes);
    // The largest number type has 16 bytes, so the size in bytes cannot overflow later.
    if (!checkedProduct(extents_, sizeof(long double)))
        object_.fail("has extents whose product exceeds 64 bits");
}

void Dataset::readLayout() {
    const PropertiesHandle properties(H5Dget_create_plist(object_.id()));
    if (!properties)
        object_.failWithReason("the storage layout cannot be read");
    const std::uint64_t bytes = product(extents_) * number_.size();
    const std::uint64_t fileSize = object_.file().size();
    switch (H5Pget_layout(properties.get())) {
    case H5D_COMPACT:
        layout_ = Layout::Compact;
        if (H5Dget_storage_size(object_.id()) != bytes)
            object_.fail("its data and its extents differ in size");
        break;
    case H5D_CONTIGUOUS: {
        layout_ = Layout::Contiguous;
        if (H5Pget_external_count(properties.get()) != 0)
            object_.fail("its data lies in other files (external storage)");
        // A dataset that was never written reads as its fill value; its size is limited all the same.
        if (bytes > fileSize)
            object_.fail("its extents need more bytes than the file has");
        const haddr_t address = H5Dget_offset(object_.id());
        if (address == HADDR_UNDEF || bytes == 0)
            break;
        if (address > fileSize - bytes)
            object_.fail("its data lies beyond the end of the file");
        if (H5Dget_storage_size(object_.id()) != bytes)
            object_.fail("its data and its extents differ in size");
        break;
    }
    case H5D_CHUNKED:
        layout_ = Layout::Chunked;
        readChunkShape(properties.get());
        requireBuiltInFilters(properties.get());
        break;
    case H5D_VIRTUAL:
        object_.fail("is a virtual dataset, whose data lies in other files");
    default:
        object_.failWithReason("the storage layout cannot be read");
    }
}

void Dataset::readChunkShape(hid_t properties) {
    hsize_t extents[maxAxes] = {};
    const int axes = H5Pget_chunk(properties, static_cast<int>(maxAxes), extents);
    chunk_.assign(extents, extents + std::clamp(axes, 0, static_cast<int>(maxAxes)));
    if (chunk_.size() != extents_.size() || static_cast<std::size_t>(axes) != extents_.size() ||
        std::find(chunk_.begin(), chunk_.end(), std::uint64_t{0}) != chunk_.end() ||
        !checkedProduct(chunk_, sizeof(long double)))
        object_.fail("has chunks of an impossible size");
    std::vector<std::uint64_t> counts(extents_.size());
    for (std::size_t axis = 0; axis < counts.size(); ++axis)
        counts[axis] = extents_[axis] / chunk_[axis] + (extents_[axis] % chunk_[axis] != 0 ? 1 : 0);
    const auto count = checkedProduct(counts, 1);
    if (!count || (*count > chunksWithoutFile && *count > object_.file().size() / minChunkBytes))
        object_.fail("has more chunks than a file of this size can hold");
}

void Dataset::requireBuiltInFilters(hid_t properties) const {
    const int count = H5Pget_nfilters(properties);
    if (count < 0)
        object_.failWithReason("the filters cannot be read");
    for (int i = 0; i < count; ++i) {
        unsigned flags = 0;
        unsigned configuration = 0;
        std::size_t valueCount = 0;
        char name[64] = {};
        const H5Z_filter_t filter = H5Pget_filter2(properties, static_cast<unsigned>(i), &flags, &valueCount,
                                                   nullptr, sizeof name - 1, name, &configuration);
        if (filter < H5Z_FILTER_DEFLATE || filter > H5Z_FILTER_SCALEOFFSET)
            object_.fail("its data is filtered by \"" + std::string(name) + "\" (filter " +
                         std::to_string(filter) + "), which is not one of HDF5's own");
    }
}

void Dataset::read(const std::type_info& elementType, ArrayMemory& target, std::uint64_t most,
                   const Tick& tick) const {
    if (target.size() == 0)
        return;
    if (layout_ != Layout::Chunked) {
        readByLibrary(elementType, target, tick);
        return;
    }
    if (product(chunk_) * number_.size() > most)
        object_.fail<Anchor::LimitError>("has chunks of " + std::to_string(product(chunk_) * number_.size()) +
                                         " bytes, and " + std::to_string(most) + " are allowed");
    ChunkReader chunks(object_, number_, extents_, chunk_);
    if (chunks.canDecode()) {
        chunks.read(elementType, target, tick);
    } else {
        chunks.requireAllInFile();
        readByLibrary(elementType, target, tick);
    }
}

void Dataset::readByLibrary(const std::type_info& elementType, ArrayMemory& target, const Tick& tick) const {
    // Pieces are slabs along the first axis with more than one entry, made of whole chunks so that none is
    // decoded twice.
    std::size_t axis = 0;
    while (axis + 1 < extents_.size() && extents_[axis] == 1)
        ++axis;
    const std::span<const std::uint64_t> inner = std::span(extents_).subspan(axis + 1);
    const std::uint64_t perRow = product(inner);
    const std::uint64_t step = chunk_.empty() ? 1 : chunk_[axis];
    const std::uint64_t steps = std::max<std::uint64_t>(1, pieceBytes / number_.size() / perRow / step);
    const std::uint64_t rows =
        std::min(steps > extents_[axis] / step ? extents_[axis] : steps * step, extents_[axis]);
    const std::size_t elementSize = target.size() / (extents_[axis] * perRow);
    const bool isDirect = number_.type() == elementType;
    std::vector<std::byte> staging(isDirect ? 0 : rows * perRow * number_.size());
    std::vector<hsize_t> start(extents_.size(), 0);
    std::vector<hsize_t> count(extents_.begin(), extents_.end());
    for (std::uint64_t row = 0; row < extents_[axis]; row += count[axis]) {
        start[axis] = row;
        count[axis] = std::min(rows, extents_[axis] - row);
        const std::uint64_t numbers = count[axis] * perRow;
        const double share = static_cast<double>(row) / static_cast<double>(extents_[axis]);
        const auto piece =
            target.piece(row * perRow * elementSize, numbers * elementSize, [&] { tick(share); });
        {
            const LibraryCall call;
            const DataspaceHandle space(H5Dget_space(object_.id()));
            const DataspaceHandle memory(
                H5Screate_simple(static_cast<int>(count.size()), count.data(), nullptr));
            if (!space || !memory ||
                H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, start.data(), nullptr, count.data(),
                                    nullptr) < 0 ||
                H5Dread(object_.id(), memoryType(number_.type()), memory.get(), space.get(), H5P_DEFAULT,
                        isDirect ? piece.data() : staging.data()) < 0)
                object_.failWithReason("the data cannot be read");
        }
        if (!isDirect)
            decodeNumbers(object_, number_.inMemory(), std::span(staging).first(numbers * number_.size()),
                          elementType, piece);
        tick(static_cast<double>(row + count[axis]) / static_cast<double>(extents_[axis]));
    }
}

} // namespace Tidewatch::Hdf5
