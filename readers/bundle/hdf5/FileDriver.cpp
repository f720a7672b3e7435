// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/FileDriver.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <new>
#include <span>
#include <system_error>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include <sys/stat.h>

#if H5_VERSION_GE(1, 13, 0)
#include <H5FDdevelop.h>
#endif

namespace Tidewatch::Hdf5 {

std::string FileFailure::text() const {
    return std::string(what) + ": " + std::generic_category().message(number);
}

namespace {

/// What the file-access properties hold for the driver; the library copies it byte by byte.
struct DriverSettings {
    FileFailure* failure;
    int descriptor;
};

/// The driver's state of a file. The library refers to it by its first member.
struct OpenedFile {
    H5FD_t base{};
    int descriptor = -1;
    haddr_t endOfAddresses = 0;
    haddr_t endOfFile = 0;
    dev_t device{};
    ino_t number{};
    FileFailure* failure = nullptr;
    /// The descriptor is the caller's.
    bool isLent = false;

    /// What could not be written, in the order of the writes.
    struct Unwritten {
        haddr_t address;
        std::vector<unsigned char> bytes;
    };
    std::vector<Unwritten> unwritten;
};
static_assert(std::is_standard_layout_v<OpenedFile>); // so it and its first member have the same address

OpenedFile& self(H5FD_t* file) noexcept {
    return *reinterpret_cast<OpenedFile*>(file);
}
const OpenedFile& self(const H5FD_t* file) noexcept {
    return *reinterpret_cast<const OpenedFile*>(file);
}

constexpr haddr_t maxAddress = static_cast<haddr_t>(std::numeric_limits<off_t>::max());

void note(OpenedFile& file, const char* what, int number) noexcept {
    if (file.failure != nullptr && !*file.failure)
        *file.failure = {number, what};
}

H5FD_t* openFile(const char* name, unsigned flags, hid_t access, haddr_t) noexcept {
    const auto* const settings = static_cast<const DriverSettings*>(H5Pget_driver_info(access));
    auto* const file = new (std::nothrow) OpenedFile;
    if (file == nullptr)
        return nullptr;
    if (settings != nullptr) {
        file->failure = settings->failure;
        file->descriptor = settings->descriptor;
        file->isLent = settings->descriptor >= 0;
    }
    if (!file->isLent) {
        int mode = O_CLOEXEC | O_NOCTTY | ((flags & H5F_ACC_RDWR) != 0 ? O_RDWR : O_RDONLY | O_NONBLOCK);
        mode |= (flags & H5F_ACC_TRUNC) != 0 ? O_TRUNC : 0;
        mode |= (flags & H5F_ACC_CREAT) != 0 ? O_CREAT : 0;
        mode |= (flags & H5F_ACC_EXCL) != 0 ? O_EXCL : 0;
        file->descriptor = ::open(name, mode, 0666);
    }
    struct stat status {};
    // A missing file is not a failure yet if the library is going to create it: it first tries to open it.
    if (file->descriptor < 0 || ::fstat(file->descriptor, &status) != 0) {
        if (errno != ENOENT || (flags & H5F_ACC_CREAT) != 0)
            note(*file, "cannot open", errno);
    } else if (!S_ISREG(status.st_mode)) {
        note(*file, "is not a regular file", S_ISDIR(status.st_mode) ? EISDIR : ESPIPE);
    } else {
        file->endOfFile = static_cast<haddr_t>(status.st_size);
        file->device = status.st_dev;
        file->number = status.st_ino;
        return &file->base;
    }
    if (file->descriptor >= 0 && !file->isLent)
        ::close(file->descriptor);
    delete file;
    return nullptr;
}

herr_t closeFile(H5FD_t* base) noexcept {
    OpenedFile& file = self(base);
    if (!file.isLent && ::close(file.descriptor) != 0 && errno != EINTR)
        note(file, "cannot write", errno);
    delete &file;
    return 0;
}

int compareFiles(const H5FD_t* a, const H5FD_t* b) noexcept {
    // The library shares one state between handles of the same file; the descriptor of the first may be
    // closed by then.
    if (self(a).isLent || self(b).isLent)
        return std::less<>()(a, b) ? -1 : std::less<>()(b, a) ? 1 : 0;
    if (self(a).device != self(b).device)
        return self(a).device < self(b).device ? -1 : 1;
    if (self(a).number != self(b).number)
        return self(a).number < self(b).number ? -1 : 1;
    return 0;
}

herr_t tellFeatures(const H5FD_t*, unsigned long* flags) noexcept {
    *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_DATA_SIEVE |
             H5FD_FEAT_AGGREGATE_SMALLDATA;
    return 0;
}

haddr_t tellEndOfAddresses(const H5FD_t* file, H5FD_mem_t) noexcept {
    return self(file).endOfAddresses;
}

herr_t setEndOfAddresses(H5FD_t* file, H5FD_mem_t, haddr_t address) noexcept {
    self(file).endOfAddresses = address;
    return 0;
}

haddr_t tellEndOfFile(const H5FD_t* file, H5FD_mem_t) noexcept {
    return self(file).endOfFile;
}

herr_t tellDescriptor(H5FD_t* file, hid_t, void** handle) noexcept {
    *handle = &self(file).descriptor;
    return 0;
}

bool isAddressable(haddr_t address, std::size_t size) noexcept {
    return address <= maxAddress && size <= maxAddress - address;
}

/// Reads up to `size` bytes; returns their number, or a negative number for an error.
ssize_t readUpTo(int descriptor, unsigned char* target, std::size_t size, haddr_t address) noexcept {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got =
            ::pread(descriptor, target + done, size - done, static_cast<off_t>(address + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

herr_t readBlock(H5FD_t* base, H5FD_mem_t, hid_t, haddr_t address, std::size_t size, void* buffer) noexcept {
    OpenedFile& file = self(base);
    auto* const target = static_cast<unsigned char*>(buffer);
    if (!isAddressable(address, size))
        return -1;
    const ssize_t got = readUpTo(file.descriptor, target, size, address);
    if (got < 0) {
        note(file, "cannot read", errno);
        return -1;
    }
    const auto filled = static_cast<std::size_t>(got);
    if (file.unwritten.empty())
        return filled == size ? 0 : -1;
    std::memset(target + filled, 0, size - filled);
    for (const OpenedFile::Unwritten& block : file.unwritten) {
        const haddr_t low = std::max(address, block.address);
        const haddr_t high = std::min(address + size, block.address + block.bytes.size());
        if (low < high)
            std::memcpy(target + (low - address), block.bytes.data() + (low - block.address), high - low);
    }
    return 0;
}

herr_t writeBlock(H5FD_t* base, H5FD_mem_t, hid_t, haddr_t address, std::size_t size,
                  const void* buffer) noexcept {
    OpenedFile& file = self(base);
    const auto* const source = static_cast<const unsigned char*>(buffer);
    if (!isAddressable(address, size))
        return -1;
    if (file.failure != nullptr && !*file.failure) {
        std::size_t done = 0;
        errno = EIO;
        while (done < size) {
            const ssize_t put =
                ::pwrite(file.descriptor, source + done, size - done, static_cast<off_t>(address + done));
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0)
                break;
            done += static_cast<std::size_t>(put);
        }
        if (done < size)
            note(file, "cannot write", errno);
    }
    if (file.failure != nullptr && *file.failure) {
        try {
            file.unwritten.push_back({address, std::vector<unsigned char>(source, source + size)});
        } catch (const std::bad_alloc&) {
            // The file is lost already; the library may then find its own blocks missing.
        }
    }
    file.endOfFile = std::max(file.endOfFile, address + size);
    return 0;
}

herr_t truncateFile(H5FD_t* base, hid_t, hbool_t) noexcept {
    OpenedFile& file = self(base);
    if (file.endOfFile == file.endOfAddresses)
        return 0;
    if (file.failure != nullptr && !*file.failure &&
        ::ftruncate(file.descriptor, static_cast<off_t>(file.endOfAddresses)) != 0)
        note(file, "cannot write", errno);
    file.endOfFile = file.endOfAddresses;
    return 0;
}

herr_t lockFile(H5FD_t*, hbool_t) noexcept {
    return 0;
}

herr_t unlockFile(H5FD_t*) noexcept {
    return 0;
}

/// The id under which the driver is registered with the library.
hid_t driver() {
    static hid_t registered = H5I_INVALID_HID;
    // A host may have shut the library down in between, which invalidates all ids.
    if (registered >= 0 && H5Iget_type(registered) == H5I_VFL)
        return registered;
    static constexpr H5FD_mem_t everythingInOneFile[H5FD_MEM_NTYPES] = H5FD_FLMAP_DICHOTOMY;
    H5FD_class_t description{};
#if H5_VERSION_GE(1, 13, 0)
    description.version = H5FD_CLASS_VERSION;
    // From the range reserved for drivers outside the library.
    description.value = static_cast<H5FD_class_value_t>(H5_VFD_RESERVED + 84);
#endif
    description.name = "tidewatch";
    description.maxaddr = maxAddress;
    description.fc_degree = H5F_CLOSE_WEAK;
    description.fapl_size = sizeof(DriverSettings);
    description.open = &openFile;
    description.close = &closeFile;
    description.cmp = &compareFiles;
    description.query = &tellFeatures;
    description.get_eoa = &tellEndOfAddresses;
    description.set_eoa = &setEndOfAddresses;
    description.get_eof = &tellEndOfFile;
    description.get_handle = &tellDescriptor;
    description.read = &readBlock;
    description.write = &writeBlock;
    description.truncate = &truncateFile;
    description.lock = &lockFile;
    description.unlock = &unlockFile;
    std::copy(std::begin(everythingInOneFile), std::end(everythingInOneFile), std::begin(description.fl_map));
    registered = H5FDregister(&description);
    return registered;
}

} // namespace

std::size_t readFile(int descriptor, std::uint64_t address, std::span<unsigned char> target,
                     FileFailure& failure) {
    if (!isAddressable(address, target.size()))
        return 0;
    const ssize_t got = readUpTo(descriptor, target.data(), target.size(), address);
    if (got < 0)
        failure = {errno, "cannot read"};
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

PropertiesHandle fileAccess(FileFailure& failure, int descriptor) {
    const LibraryCall call;
    PropertiesHandle properties(H5Pcreate(H5P_FILE_ACCESS));
    const DriverSettings settings{&failure, descriptor};
    if (!properties || H5Pset_driver(properties.get(), driver(), &settings) < 0)
        return PropertiesHandle();
    return properties;
}

void prepareDriver() {
    const LibraryCall call;
    static_cast<void>(driver());
}

} // namespace Tidewatch::Hdf5
