// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/OpenFile.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <utility>

namespace Tidewatch::Hdf5 {

OpenFile::OpenFile(const SourceFiles& files)
    : path_(files.path),
      descriptor_(files.files.front().descriptor),
      size_(files.files.front().size) {
    const LibraryCall call;
    const PropertiesHandle access = fileAccess(failure_, descriptor_);
    if (access)
        handle_ = FileHandle(H5Fopen("input", H5F_ACC_RDONLY, access.get()));
    if (!handle_) {
        throwUnlessDamaged();
        throw Anchor::FormatError(path_ + ": cannot be opened as an HDF5 file: " + innermostError());
    }
    requireParameters();
}

Object OpenFile::root() const {
    const LibraryCall call;
    ObjectHandle handle(H5Oopen(handle_.get(), "/", H5P_DEFAULT));
    if (handle)
        return Object(*this, "/", std::move(handle));
    throwUnlessDamaged();
    throw Anchor::FormatError(path_ + ": the root group cannot be opened: " + innermostError());
}

Object OpenFile::open(const std::string& path) const {
    Object object = root();
    for (std::size_t start = 1; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        object = object.child(path.substr(start, end - start));
        start = end + 1;
    }
    return object;
}

bool OpenFile::fetch(std::uint64_t address, std::span<unsigned char> target) const {
    const std::size_t filled = readFile(descriptor_, address, target, failure_);
    if (failure_)
        throw Anchor::FileError(path_ + ": " + failure_.text());
    return filled == target.size();
}

void OpenFile::throwUnlessDamaged() const {
    if (failure_)
        throw Anchor::FileError(path_ + ": " + failure_.text());
    if (isOutOfMemory())
        throw Anchor::LimitError(path_ + ": there is not enough memory to read it");
}

void OpenFile::requireParameters() const {
    const PropertiesHandle properties(H5Fget_create_plist(handle_.get()));
    hsize_t userBlock = 0;
    std::size_t addressSize = 0;
    std::size_t lengthSize = 0;
    if (!properties || H5Pget_userblock(properties.get(), &userBlock) < 0 ||
        H5Pget_sizes(properties.get(), &addressSize, &lengthSize) < 0)
        throw Anchor::FormatError(path_ + ": the file's parameters cannot be read: " + innermostError());
    if (userBlock != 0)
        throw Anchor::FormatError(path_ + ": does not begin with the HDF5 signature");
    if (addressSize != 8 || lengthSize != 8)
        throw Anchor::FormatError(path_ + ": uses addresses of " + std::to_string(addressSize) +
                                  " bytes and sizes of " + std::to_string(lengthSize) +
                                  "; only 8 bytes are supported");
}

} // namespace Tidewatch::Hdf5
