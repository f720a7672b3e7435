// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/NewFile.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/blocks.hpp"
#include "readers/bundle/hdf5/isUtf8.hpp"

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>

namespace Tidewatch::Hdf5 {

namespace {

// Below this size compression gains little, and the chunk index would be larger than the data.
constexpr std::uint64_t minChunkedBytes = 16384;

// Fits the library's chunk cache (1 MiB) and the processor's.
constexpr std::uint64_t chunkBytes = std::uint64_t{512} << 10;

// How much is written between two calls of the progress callback.
constexpr std::uint64_t numbersBetweenTicks = std::uint64_t{1} << 18;

/// The extents of a chunk: full along the fast axes, 1 along the slow ones, and as many rows in between as
/// fit.
std::vector<std::uint64_t> chunkShape(const std::vector<std::uint64_t>& extents, std::size_t numberSize) {
    std::vector<std::uint64_t> chunk(extents.size(), 1);
    std::uint64_t room = chunkBytes / numberSize;
    for (std::size_t axis = extents.size(); axis-- > 0 && room > 0;) {
        chunk[axis] = std::min(extents[axis], room);
        room = chunk[axis] == extents[axis] ? room / extents[axis] : 0;
    }
    return chunk;
}

/// A copy of long doubles with zeroed padding, which would otherwise write bits of this process's memory into
/// the file.
std::vector<std::byte> withoutPadding(std::span<const std::byte> data) {
    constexpr std::size_t valueBytes = 10;
    std::vector<std::byte> copy(data.begin(), data.end());
    for (std::size_t i = 0; i < copy.size(); i += sizeof(long double)) {
        const auto padding = std::span(copy).subspan(i, sizeof(long double)).subspan(valueBytes);
        std::fill(padding.begin(), padding.end(), std::byte{0});
    }
    return copy;
}
static_assert(std::numeric_limits<long double>::digits == 64 && sizeof(long double) == 16,
              "the long double of x86-64: ten bytes of value");

/// Creation properties of a kind, without timestamps, so that the same data gives the same bytes.
PropertiesHandle withoutTimes(hid_t kind) {
    PropertiesHandle properties(H5Pcreate(kind));
    return properties && H5Pset_obj_track_times(properties.get(), false) >= 0 ? std::move(properties)
                                                                              : PropertiesHandle();
}

} // namespace

NewFile::NewFile(std::string path) : path_(std::move(path)) {
    const LibraryCall call;
    const PropertiesHandle access = fileAccess(failure_);
    // Version 1.8 of the format has a checksum for every block of metadata, and every HDF5 tool in use reads
    // it.
    require(access && H5Pset_libver_bounds(access.get(), H5F_LIBVER_V18, H5F_LIBVER_V18) >= 0,
            "cannot be made");
    const PropertiesHandle properties = withoutTimes(H5P_FILE_CREATE);
    if (properties)
        handle_ = FileHandle(H5Fcreate(path_.c_str(), H5F_ACC_TRUNC, properties.get(), access.get()));
    require(static_cast<bool>(handle_), "cannot be made");
}

NewFile::Group NewFile::root() const {
    const LibraryCall call;
    GroupHandle handle(H5Gopen2(handle_.get(), "/", H5P_DEFAULT));
    require(static_cast<bool>(handle), "the root group cannot be opened");
    return Group(*this, {}, std::move(handle));
}

void NewFile::close() {
    const LibraryCall call;
    require(handle_.close(), "cannot be closed");
}

void NewFile::require(bool succeeded, const char* what) const {
    if (failure_)
        throw Anchor::FileError(path_ + ": " + failure_.text());
    if (!succeeded)
        throw Anchor::FileError(path_ + ": " + what + ": " + innermostError());
}

NewFile::Group NewFile::Group::addGroup(const std::string& name) const {
    const LibraryCall call;
    const PropertiesHandle links(H5Pcreate(H5P_LINK_CREATE));
    const PropertiesHandle properties = withoutTimes(H5P_GROUP_CREATE);
    GroupHandle handle;
    if (properties && links && H5Pset_char_encoding(links.get(), H5T_CSET_UTF8) >= 0)
        handle =
            GroupHandle(H5Gcreate2(handle_.get(), name.c_str(), links.get(), properties.get(), H5P_DEFAULT));
    file_->require(static_cast<bool>(handle), "a group cannot be made");
    return Group(*file_, path_ + "/" + name, std::move(handle));
}

namespace {

bool writeText(hid_t object, const char* attribute, std::string_view text) {
    const DatatypeHandle type(H5Tcopy(H5T_C_S1));
    const DataspaceHandle space(H5Screate(H5S_SCALAR));
    // A string in HDF5 has at least one byte.
    const std::string bytes = text.empty() ? std::string(1, '\0') : std::string(text);
    if (!type || !space || H5Tset_size(type.get(), bytes.size()) < 0 ||
        H5Tset_strpad(type.get(), H5T_STR_NULLPAD) < 0 ||
        H5Tset_cset(type.get(), isUtf8(text) ? H5T_CSET_UTF8 : H5T_CSET_ASCII) < 0)
        return false;
    const AttributeHandle handle(
        H5Acreate2(object, attribute, type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT));
    return handle && H5Awrite(handle.get(), type.get(), bytes.data()) >= 0;
}

/// The scalar element type with the same representation.
template <class T>
using ElementOf = std::conditional_t<std::is_same_v<T, std::uint64_t>, unsigned long long, T>;

template <class T>
bool writeNumbers(hid_t object, const char* attribute, const DataspaceHandle& space, const T* values) {
    using Element = ElementOf<T>;
    if (!space)
        return false;
    const AttributeHandle handle(
        H5Acreate2(object, attribute, storedType(typeid(Element)), space.get(), H5P_DEFAULT, H5P_DEFAULT));
    return handle && H5Awrite(handle.get(), memoryType(typeid(Element)), values) >= 0;
}

template <class T>
bool writeNumber(hid_t object, const char* attribute, T value) {
    return writeNumbers(object, attribute, DataspaceHandle(H5Screate(H5S_SCALAR)), &value);
}

template <class T>
bool writeList(hid_t object, const char* attribute, std::span<const T> values) {
    const hsize_t count = values.size();
    return writeNumbers(object, attribute, DataspaceHandle(H5Screate_simple(1, &count, nullptr)),
                        values.data());
}

bool writeAttribute(hid_t object, const NewFile::Group::Attribute& attribute) {
    struct Write {
        hid_t object;
        const char* name;
        bool operator()(const std::string& text) const { return writeText(object, name, text); }
        bool operator()(std::uint16_t number) const { return writeNumber(object, name, number); }
        bool operator()(const std::vector<std::uint8_t>& bytes) const {
            return writeList(object, name, std::span<const std::uint8_t>(bytes));
        }
    };
    return std::visit(Write{object, attribute.name}, attribute.value);
}

} // namespace

void NewFile::Group::set(const Attribute& attribute) const {
    const LibraryCall call;
    file_->require(writeAttribute(handle_.get(), attribute), "an attribute cannot be written");
}

void NewFile::Group::setText(const char* attribute, std::string_view text) const {
    const LibraryCall call;
    file_->require(writeText(handle_.get(), attribute, text), "an attribute cannot be written");
}

template <class T>
void NewFile::Group::setNumber(const char* attribute, T value) const {
    const LibraryCall call;
    file_->require(writeNumber(handle_.get(), attribute, value), "an attribute cannot be written");
}

template <class T>
void NewFile::Group::setNumbers(const char* attribute, std::span<const T> values) const {
    const LibraryCall call;
    file_->require(writeList(handle_.get(), attribute, values), "an attribute cannot be written");
}

template void NewFile::Group::setNumber(const char*, std::uint16_t) const;
template void NewFile::Group::setNumber(const char*, std::int32_t) const;
template void NewFile::Group::setNumber(const char*, double) const;
template void NewFile::Group::setNumbers(const char*, std::span<const std::uint8_t>) const;
template void NewFile::Group::setNumbers(const char*, std::span<const std::int32_t>) const;
template void NewFile::Group::setNumbers(const char*, std::span<const std::uint64_t>) const;
template void NewFile::Group::setNumbers(const char*, std::span<const double>) const;

void NewFile::Group::addDataset(const NewDataset& dataset, std::span<const std::byte> data,
                                const std::function<void()>& tick) const {
    const std::vector<std::uint64_t>& extents = dataset.extents;
    const std::size_t axes = extents.size();
    const bool isLarge = data.size() >= minChunkedBytes;
    const std::vector<std::uint64_t> block =
        isLarge ? chunkShape(extents, data.size() / product(extents)) : extents;
    const std::vector<hsize_t> shape(extents.begin(), extents.end());
    DatasetHandle handle;
    {
        const LibraryCall call;
        const PropertiesHandle properties = withoutTimes(H5P_DATASET_CREATE);
        const PropertiesHandle links(H5Pcreate(H5P_LINK_CREATE));
        const DataspaceHandle space(H5Screate_simple(static_cast<int>(axes), shape.data(), nullptr));
        bool isReady = properties && links && space && H5Pset_char_encoding(links.get(), H5T_CSET_UTF8) >= 0;
        if (isReady && isLarge && dataset.compression != 0) {
            const std::vector<hsize_t> chunk(block.begin(), block.end());
            isReady = H5Pset_chunk(properties.get(), static_cast<int>(axes), chunk.data()) >= 0 &&
                      H5Pset_shuffle(properties.get()) >= 0 &&
                      H5Pset_deflate(properties.get(), dataset.compression) >= 0;
        }
        if (isReady)
            handle = DatasetHandle(H5Dcreate2(handle_.get(), dataset.name.c_str(), storedType(dataset.number),
                                              space.get(), links.get(), properties.get(), H5P_DEFAULT));
        file_->require(handle && std::all_of(dataset.attributes.begin(), dataset.attributes.end(),
                                             [&](const Attribute& entry) {
                                                 return writeAttribute(handle.get(), entry);
                                             }),
                       "a dataset cannot be made");
    }
    if (data.empty())
        return;

    std::vector<std::byte> clean;
    if (dataset.number == typeid(long double)) {
        clean = withoutPadding(data);
        data = clean;
    }
    std::vector<std::uint64_t> place(axes, 0);
    std::uint64_t sinceTick = 0;
    do {
        std::uint64_t numbers = 1;
        std::vector<hsize_t> start(axes);
        std::vector<hsize_t> count(axes);
        for (std::size_t axis = 0; axis < axes; ++axis) {
            start[axis] = place[axis];
            count[axis] = std::min(block[axis], extents[axis] - place[axis]);
            numbers *= count[axis];
        }
        {
            const LibraryCall call;
            const DataspaceHandle space(H5Screate_simple(static_cast<int>(axes), shape.data(), nullptr));
            file_->require(space &&
                               H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, start.data(), nullptr,
                                                   count.data(), nullptr) >= 0 &&
                               H5Dwrite(handle.get(), memoryType(dataset.number), space.get(), space.get(),
                                        H5P_DEFAULT, data.data()) >= 0,
                           "a dataset cannot be written");
        }
        sinceTick += numbers;
        if (sinceTick >= numbersBetweenTicks) {
            sinceTick = 0;
            tick();
        }
    } while (advance(place, extents, block));
    const bool isClosed = handle.close();
    file_->require(isClosed, "a dataset cannot be written");
}

} // namespace Tidewatch::Hdf5
