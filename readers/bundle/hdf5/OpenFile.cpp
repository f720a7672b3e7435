// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/OpenFile.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace Tidewatch::Hdf5 {

OpenFile::OpenFile(std::string path) : path_(std::move(path)) {
    const LibraryCall call;
    const PropertiesHandle access = fileAccess(failure_, &guard_);
    if (access)
        handle_ = FileHandle(H5Fopen(path_.c_str(), H5F_ACC_RDONLY, access.get()));
    if (failure_)
        throw Anchor::FileError(path_ + ": " + failure_.text());
    if (!handle_) {
        // The driver leaves a missing file to its caller, the library, whose text has no system error in it.
        struct stat status {};
        if (::stat(path_.c_str(), &status) != 0)
            throw Anchor::FileError(path_ + ": cannot open: " + std::generic_category().message(errno));
        throw Anchor::FormatError(path_ + ": cannot be opened as an HDF5 file: " + innermostError());
    }
    readParameters();
    state_ = look();
}

Object OpenFile::root() const {
    const LibraryCall call;
    ObjectHandle handle(H5Oopen(handle_.get(), "/", H5P_DEFAULT));
    if (!handle)
        throw Anchor::FormatError(path_ + ": the root group cannot be opened: " + innermostError());
    return Object(*this, "/", std::move(handle));
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

void OpenFile::requireUnchanged() const {
    if (look() != state_)
        throw Anchor::FileError(path_ + ": has been changed since it was opened");
}

bool OpenFile::fetch(std::uint64_t address, std::span<unsigned char> target) const {
    return readExactly(descriptor(), address, target);
}

int OpenFile::descriptor() const {
    const LibraryCall call;
    void* descriptor = nullptr;
    if (H5Fget_vfd_handle(handle_.get(), H5P_DEFAULT, &descriptor) < 0)
        throw Anchor::FileError(path_ + ": cannot look at the open file: " + innermostError());
    return *static_cast<const int*>(descriptor);
}

Anchor::FileState OpenFile::look() const {
    struct stat status {};
    if (::fstat(descriptor(), &status) != 0)
        throw Anchor::FileError(path_ +
                                ": cannot look at the open file: " + std::generic_category().message(errno));
    return Anchor::FileState(status);
}

void OpenFile::readParameters() {
    const PropertiesHandle properties(H5Fget_create_plist(handle_.get()));
    hsize_t userBlock = 0;
    std::size_t addressSize = 0;
    std::size_t lengthSize = 0;
    unsigned halfOfChunkNode = 0;
    if (!properties || H5Pget_userblock(properties.get(), &userBlock) < 0 ||
        H5Pget_sizes(properties.get(), &addressSize, &lengthSize) < 0 ||
        H5Pget_istore_k(properties.get(), &halfOfChunkNode) < 0)
        throw Anchor::FormatError(path_ + ": the file's parameters cannot be read: " + innermostError());
    if (userBlock != 0)
        throw Anchor::FormatError(path_ + ": does not begin with the HDF5 signature");
    if (addressSize != 8 || lengthSize != 8)
        throw Anchor::FormatError(path_ + ": uses addresses of " + std::to_string(addressSize) +
                                  " bytes and sizes of " + std::to_string(lengthSize) +
                                  "; only 8 bytes are supported");
    guard_.setEntriesOfChunkNode(std::size_t{2} * halfOfChunkNode);
}

} // namespace Tidewatch::Hdf5
