// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/LentFiles.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cpl_vsi.h>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <sys/stat.h>

namespace Tidewatch::Raster {

namespace {

// GDAL keeps the pointer.
constexpr char prefixText[] = "/vsitidewatch/";
constexpr std::string_view prefix = prefixText;

} // namespace

/// The callbacks for GDAL. Exceptions must not pass through its C interface.
class Handler {
public:
    static Handler& instance() {
        static auto* const handler = new Handler;
        return *handler;
    }

    std::string add(LentFiles& files) {
        const std::lock_guard lock(mutex_);
        const std::string folder = std::to_string(next_++);
        folders_[folder] = &files;
        return folder;
    }

    void remove(const std::string& folder) {
        const std::lock_guard lock(mutex_);
        folders_.erase(folder);
    }

private:
    /// A file that GDAL has open.
    struct Handle {
        LentFiles* owner;
        int descriptor;
        vsi_l_offset size;
        vsi_l_offset place = 0;
        bool isAtEnd = false;
        // Text formats are read a few bytes at a time.
        std::array<unsigned char, 16384> buffer{};
        vsi_l_offset bufferStart = 0;
        std::size_t bufferSize = 0;
    };

    Handler() {
        VSIFilesystemPluginCallbacksStruct* const calls = VSIAllocFilesystemPluginCallbacksStruct();
        calls->pUserData = this;
        calls->stat = &stat;
        calls->open = &open;
        calls->tell = &tell;
        calls->seek = &seek;
        calls->read = &read;
        calls->eof = &isAtEnd;
        calls->close = &close;
        calls->read_dir = &list;
        VSIInstallPluginHandler(prefixText, calls);
        VSIFreeFilesystemPluginCallbacksStruct(calls);
    }

    /// GDAL passes the path without its prefix: the folder's number and the file's name.
    [[nodiscard]] LentFiles* folderOf(std::string_view path) {
        if (path.starts_with(prefix))
            path.remove_prefix(prefix.size());
        const std::lock_guard lock(mutex_);
        const auto known = folders_.find(std::string(path.substr(0, path.find('/'))));
        return known != folders_.end() ? known->second : nullptr;
    }

    [[nodiscard]] static const SourceFiles::File* fileOf(const LentFiles& folder, std::string_view path) {
        const std::string_view name = path.substr(path.rfind('/') + 1);
        const auto& files = folder.files_.files;
        const auto found = std::find_if(files.begin(), files.end(),
                                        [&](const SourceFiles::File& file) { return file.name == name; });
        return found != files.end() ? &*found : nullptr;
    }

    static int stat(void* self, const char* path, VSIStatBufL* status, int) noexcept {
        try {
            const LentFiles* const folder = static_cast<Handler*>(self)->folderOf(path);
            const std::string_view text(path);
            if (folder == nullptr)
                return -1;
            *status = {};
            if (text.find('/', text.starts_with(prefix) ? prefix.size() : 0) == std::string_view::npos ||
                text.ends_with('/')) {
                status->st_mode = S_IFDIR;
                return 0;
            }
            const SourceFiles::File* const file = fileOf(*folder, text);
            if (file == nullptr)
                return -1;
            status->st_mode = S_IFREG;
            status->st_size = static_cast<off_t>(file->size);
            return 0;
        } catch (...) {
            return -1;
        }
    }

    static void* open(void* self, const char* path, const char* access) noexcept {
        try {
            LentFiles* const folder = static_cast<Handler*>(self)->folderOf(path);
            const SourceFiles::File* const file = folder != nullptr ? fileOf(*folder, path) : nullptr;
            if (file == nullptr || std::string_view(access).find_first_of("wa+") != std::string_view::npos)
                return nullptr;
            return new Handle{folder, file->descriptor, file->size};
        } catch (...) {
            return nullptr;
        }
    }

    static vsi_l_offset tell(void* file) noexcept { return static_cast<Handle*>(file)->place; }

    static int seek(void* file, vsi_l_offset offset, int whence) noexcept {
        auto& handle = *static_cast<Handle*>(file);
        handle.isAtEnd = false;
        handle.place = whence == SEEK_SET   ? offset
                       : whence == SEEK_CUR ? handle.place + offset
                                            : handle.size + offset;
        return 0;
    }

    /// Reads up to `size` bytes at `place`.
    static std::size_t readAt(Handle& handle, vsi_l_offset place, unsigned char* target,
                              std::size_t size) noexcept {
        std::size_t done = 0;
        while (done < size && place + done < handle.size) {
            const ssize_t got =
                ::pread(handle.descriptor, target + done, size - done, static_cast<off_t>(place + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0) {
                int none = 0;
                handle.owner->failure_.compare_exchange_strong(none, errno);
            }
            if (got <= 0)
                break;
            done += static_cast<std::size_t>(got);
        }
        return done;
    }

    static std::size_t read(void* file, void* target, std::size_t size, std::size_t count) noexcept {
        auto& handle = *static_cast<Handle*>(file);
        std::size_t wanted = 0;
        if (size == 0 || __builtin_mul_overflow(size, count, &wanted))
            return 0;
        auto* const bytes = static_cast<unsigned char*>(target);
        std::size_t done = 0;
        if (wanted >= handle.buffer.size()) {
            done = readAt(handle, handle.place, bytes, wanted);
        } else {
            while (done < wanted) {
                const vsi_l_offset place = handle.place + done;
                if (place < handle.bufferStart || place >= handle.bufferStart + handle.bufferSize) {
                    handle.bufferStart = place;
                    handle.bufferSize = readAt(handle, place, handle.buffer.data(), handle.buffer.size());
                    if (handle.bufferSize == 0)
                        break;
                }
                const auto offset = static_cast<std::size_t>(place - handle.bufferStart);
                const std::size_t part = std::min(wanted - done, handle.bufferSize - offset);
                std::memcpy(bytes + done, handle.buffer.data() + offset, part);
                done += part;
            }
        }
        handle.place += done;
        handle.isAtEnd = done < wanted;
        return done / size;
    }

    static int isAtEnd(void* file) noexcept { return static_cast<Handle*>(file)->isAtEnd ? 1 : 0; }

    static int close(void* file) noexcept {
        delete static_cast<Handle*>(file);
        return 0;
    }

    static char** list(void* self, const char* path, int) noexcept {
        try {
            const LentFiles* const folder = static_cast<Handler*>(self)->folderOf(path);
            return folder != nullptr ? CSLDuplicate(folder->names_.List()) : nullptr;
        } catch (...) {
            return nullptr;
        }
    }

    std::mutex mutex_;
    std::map<std::string, LentFiles*> folders_;
    unsigned long next_ = 1;
};

LentFiles::LentFiles(const SourceFiles& files) : files_(files), folder_(Handler::instance().add(*this)) {
    try {
        path_ = std::string(prefix) + folder_ + "/" + files.files.front().name;
        for (const SourceFiles::File& file : files.files)
            names_.AddString(file.name.c_str());
    } catch (...) {
        Handler::instance().remove(folder_);
        throw;
    }
}

LentFiles::~LentFiles() {
    Handler::instance().remove(folder_);
}

} // namespace Tidewatch::Raster
