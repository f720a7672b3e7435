// SPDX-License-Identifier: Apache-2.0
#include "readers/hdf5/OpenFile.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <system_error>

namespace Tidewatch::Hdf5 {

OpenFile::OpenFile(std::string path) : path_(std::move(path)) {
    const LibraryCall call;
    const PropertiesHandle access = fileAccess(failure_);
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
    const struct stat status = look();
    size_ = static_cast<std::uint64_t>(status.st_size);
    written_ = status.st_mtim;
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
    const struct stat status = look();
    if (static_cast<std::uint64_t>(status.st_size) != size_ || status.st_mtim.tv_sec != written_.tv_sec ||
        status.st_mtim.tv_nsec != written_.tv_nsec)
        throw Anchor::FormatError(path_ + ": the file has been changed since it was opened");
}

struct stat OpenFile::look() const {
    const LibraryCall call;
    void* descriptor = nullptr;
    struct stat status {};
    if (H5Fget_vfd_handle(handle_.get(), H5P_DEFAULT, &descriptor) < 0)
        throw Anchor::FileError(path_ + ": cannot look at the open file: " + innermostError());
    if (::fstat(*static_cast<const int*>(descriptor), &status) != 0)
        throw Anchor::FileError(path_ +
                                ": cannot look at the open file: " + std::generic_category().message(errno));
    return status;
}

} // namespace Tidewatch::Hdf5
