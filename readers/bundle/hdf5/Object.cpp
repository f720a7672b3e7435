// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/Object.hpp"

#include "anchor/printable.hpp"
#include "readers/bundle/hdf5/NumberType.hpp"
#include "readers/bundle/hdf5/OpenFile.hpp"
#include "readers/bundle/hdf5/isUtf8.hpp"
#include "readers/bundle/hdf5/storedAttribute.hpp"

#include <algorithm>
#include <new>

namespace Tidewatch::Hdf5 {

namespace {

// Far more than our attributes have; limits the allocation for hostile ones.
constexpr std::size_t maxValues = 4096;

struct Listing {
    std::vector<std::string> names;
    std::uint64_t most;
    bool isTooLong = false;
    bool isOutOfMemory = false;
    bool hasOtherLink = false;
};

herr_t collect(hid_t, const char* name, const H5L_info_t* info, void* data) noexcept {
    auto& listing = *static_cast<Listing*>(data);
    if (listing.names.size() >= listing.most) {
        listing.isTooLong = true;
        return 1;
    }
    try {
        listing.names.emplace_back(name);
    } catch (const std::bad_alloc&) {
        listing.isOutOfMemory = true;
        return 1;
    }
    listing.hasOtherLink = info->type != H5L_TYPE_HARD;
    return listing.hasOtherLink ? 1 : 0;
}

const char* const otherLink = "is not a hard link (only hard links are allowed)";

std::string joined(const std::string& path, const std::string& name) {
    return path == "/" ? path + name : path + "/" + name;
}

std::string quoted(const char* attribute) {
    return "attribute \"" + std::string(attribute) + "\"";
}

/// The address of an object's header in its file.
haddr_t headerAddress(hid_t object) {
#if H5_VERSION_GE(1, 12, 0)
    H5O_info2_t info{};
    haddr_t address = HADDR_UNDEF;
    if (H5Oget_info3(object, &info, H5O_INFO_BASIC) < 0 ||
        H5VLnative_token_to_addr(object, info.token, &address) < 0)
        return HADDR_UNDEF;
    return address;
#else
    H5O_info_t info{};
    return H5Oget_info2(object, &info, H5O_INFO_BASIC) >= 0 ? info.addr : HADDR_UNDEF;
#endif
}

} // namespace

bool Object::isGroup() const {
    const LibraryCall call;
    return H5Iget_type(id()) == H5I_GROUP;
}

bool Object::isDataset() const {
    const LibraryCall call;
    return H5Iget_type(id()) == H5I_DATASET;
}

std::vector<std::string> Object::links(std::uint64_t most) const {
    if (!isGroup())
        fail("is not a group");
    Listing listing{{}, most};
    {
        const LibraryCall call;
        hsize_t place = 0;
        if (H5Literate(id(), H5_INDEX_NAME, H5_ITER_NATIVE, &place, &collect, &listing) < 0)
            failWithReason("the group cannot be read");
    }
    if (listing.isOutOfMemory)
        fail<Anchor::LimitError>("there is not enough memory for the group's names");
    if (listing.isTooLong)
        fail("has more links than a file of this size can hold");
    if (listing.hasOtherLink)
        throw Anchor::FormatError(file_->path() + ": " +
                                  Anchor::printable(joined(path_, listing.names.back())) + ": " + otherLink);
    std::sort(listing.names.begin(), listing.names.end());
    const auto twice = std::adjacent_find(listing.names.begin(), listing.names.end());
    if (twice != listing.names.end())
        fail("has two members \"" + *twice + "\"");
    return std::move(listing.names);
}

Object Object::child(const std::string& name) const {
    auto found = findChild(name);
    if (!found)
        fail("has no member \"" + name + "\"");
    return std::move(*found);
}

std::optional<Object> Object::findChild(const std::string& name) const {
    if (!isGroup())
        fail("is not a group");
    const LibraryCall call;
    const htri_t exists = H5Lexists(id(), name.c_str(), H5P_DEFAULT);
    if (exists < 0)
        failWithReason("the group cannot be read");
    if (exists == 0)
        return std::nullopt;
    Object result(*file_, joined(path_, name), ObjectHandle());
    H5L_info_t info{};
    if (H5Lget_info(id(), name.c_str(), &info, H5P_DEFAULT) < 0)
        result.failWithReason("the link cannot be read");
    if (info.type != H5L_TYPE_HARD)
        result.fail(otherLink);
    result.handle_ = ObjectHandle(H5Oopen(id(), name.c_str(), H5P_DEFAULT));
    if (!result.handle_)
        result.failWithReason("cannot be opened");
    return result;
}

AttributeHandle Object::findAttribute(const char* name) const {
    // Checked before the library decodes it, since that would read past the end of a truncated one.
    const auto found = stored(name);
    const htri_t exists = H5Aexists(id(), name);
    if (exists < 0)
        failWithReason("the attributes cannot be read");
    if (exists == 0)
        return AttributeHandle();
    AttributeHandle attribute(H5Aopen(id(), name, H5P_DEFAULT));
    if (!attribute)
        failWithReason(quoted(name) + " cannot be opened");
    const DatatypeHandle type(H5Aget_type(attribute.get()));
    const std::size_t size = type ? H5Tget_size(type.get()) : 0;
    if (size == 0)
        failWithReason(quoted(name) + " cannot be read");
    // Outside the header, the library checks the size itself.
    if (found && found->data.size() / size < valueCount(attribute.get(), name))
        fail(quoted(name) + " is cut off");
    return attribute;
}

std::optional<StoredAttribute> Object::stored(const char* name) const {
    const haddr_t header = headerAddress(id());
    if (header == HADDR_UNDEF)
        failWithReason("its header cannot be found");
    try {
        return storedAttribute(
            [this](std::uint64_t address, std::span<unsigned char> target) {
                return file_->fetch(address, target);
            },
            header, name);
    } catch (const Anchor::FormatError& error) {
        fail(quoted(name) + " " + error.what());
    }
}

std::size_t Object::valueCount(hid_t attribute, const char* name) const {
    const DataspaceHandle space(H5Aget_space(attribute));
    const hssize_t count = space ? H5Sget_simple_extent_npoints(space.get()) : -1;
    if (count < 0)
        failWithReason(quoted(name) + " cannot be read");
    if (static_cast<std::uint64_t>(count) > maxValues)
        fail(quoted(name) + " has too many values");
    return static_cast<std::size_t>(count);
}

std::optional<std::string> Object::text(const char* name, std::size_t most) const {
    const LibraryCall call;
    const AttributeHandle attribute = findAttribute(name);
    if (!attribute)
        return std::nullopt;
    const DatatypeHandle type(H5Aget_type(attribute.get()));
    if (!type || H5Tget_class(type.get()) != H5T_STRING || valueCount(attribute.get(), name) != 1)
        fail(quoted(name) + " is not a text");
    std::string result = H5Tis_variable_str(type.get()) > 0
                             ? longText(name, most)
                             : shortText(name, attribute.get(), type.get(), most);
    if (H5Tget_cset(type.get()) == H5T_CSET_UTF8 && !isUtf8(result))
        fail(quoted(name) + " is not UTF-8, as it says it is");
    return result;
}

std::string Object::shortText(const char* name, hid_t attribute, hid_t type, std::size_t most) const {
    const std::size_t size = H5Tget_size(type);
    if (size == 0 || size > most)
        fail(quoted(name) + " is too long");
    std::string result(size, '\0');
    if (H5Aread(attribute, type, result.data()) < 0)
        failWithReason(quoted(name) + " cannot be read");
    if (H5Tget_strpad(type) == H5T_STR_SPACEPAD)
        result.erase(result.find_last_not_of(' ') + 1);
    else
        result.erase(std::min(result.find('\0'), result.size()));
    return result;
}

std::string Object::longText(const char* name, std::size_t most) const {
    const auto found = stored(name);
    if (!found)
        fail(quoted(name) + " is not stored in its object's header; a text of fixed length is");
    try {
        return variableText([this](std::uint64_t address,
                                   std::span<unsigned char> target) { return file_->fetch(address, target); },
                            *found, most);
    } catch (const Anchor::FormatError& error) {
        fail(quoted(name) + " " + error.what());
    }
}

template <class T>
std::optional<std::vector<T>> Object::integers(const char* name) const {
    const LibraryCall call;
    const AttributeHandle attribute = findAttribute(name);
    if (!attribute)
        return std::nullopt;
    const std::size_t count = valueCount(attribute.get(), name);
    std::vector<T> result(count);
    // An attribute without values may have any type.
    if (count == 0)
        return result;
    const DatatypeHandle type(H5Aget_type(attribute.get()));
    const auto number = type ? NumberType::of(type.get()) : std::nullopt;
    if (!number || H5Tget_class(type.get()) != H5T_INTEGER)
        fail(quoted(name) + " is not an integer");
    const auto take = [&]<class Wide>(hid_t memory, Wide) {
        std::vector<Wide> values(count);
        if (H5Aread(attribute.get(), memory, values.data()) < 0)
            failWithReason(quoted(name) + " cannot be read");
        for (std::size_t i = 0; i < count; ++i) {
            if (!std::in_range<T>(values[i]))
                fail(quoted(name) + " is out of range: " + std::to_string(values[i]));
            result[i] = static_cast<T>(values[i]);
        }
    };
    if (H5Tget_sign(type.get()) == H5T_SGN_NONE)
        take(H5T_NATIVE_UINT64, std::uint64_t{});
    else
        take(H5T_NATIVE_INT64, std::int64_t{});
    return result;
}

template std::optional<std::vector<std::uint8_t>> Object::integers(const char*) const;
template std::optional<std::vector<std::uint16_t>> Object::integers(const char*) const;
template std::optional<std::vector<std::int32_t>> Object::integers(const char*) const;
template std::optional<std::vector<std::int64_t>> Object::integers(const char*) const;
template std::optional<std::vector<std::uint64_t>> Object::integers(const char*) const;

std::optional<std::vector<double>> Object::numbers(const char* name) const {
    const LibraryCall call;
    const AttributeHandle attribute = findAttribute(name);
    if (!attribute)
        return std::nullopt;
    std::vector<double> result(valueCount(attribute.get(), name));
    const DatatypeHandle type(H5Aget_type(attribute.get()));
    if (!type || !NumberType::of(type.get()))
        fail(quoted(name) + " is not a number");
    if (!result.empty() && H5Aread(attribute.get(), H5T_NATIVE_DOUBLE, result.data()) < 0)
        failWithReason(quoted(name) + " cannot be read");
    return result;
}

void Object::failWithReason(const std::string& what) const {
    file_->throwUnlessDamaged();
    const std::string reason = innermostError();
    fail(reason.empty() ? what : what + ": " + reason);
}

std::string Object::message(const std::string& what) const {
    return file_->path() + ": " + Anchor::printable(path_) + ": " + Anchor::printable(what);
}

} // namespace Tidewatch::Hdf5
