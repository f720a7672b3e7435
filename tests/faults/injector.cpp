// SPDX-License-Identifier: Apache-2.0
//
// A library for LD_PRELOAD that lets calls of the system fail. From the program's first call of signal() on it counts the
// calls of one kind and lets one of them fail:
//
//   TIDEWATCH_FAULT=KIND:NUMBER:ERROR  the kind, which call (from 1; 0 for none), and the error number. "short" in place of
//                                      the number writes or reads half; for allocations any number will do.
//   TIDEWATCH_FAULT_LOG=FILE           takes "calls N", and for a call that failed "in LIBRARY" lines, innermost first.
//   TIDEWATCH_FAULT_SIGNAL=NUMBER      sends the process that signal in place of the failure.
//   TIDEWATCH_FAULT_STRAIGHT=FOLDER   creates unfinished files in that folder: a fault of ours that the tests must notice.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <unistd.h>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>

namespace {

enum class Kind { None, Write, Open, Rename, Sync, Close, MakeFolder, Remove, Read, Allocate };

struct Settings {
    Kind kind = Kind::None;
    long number = 0;
    int error = 0;
    bool isShort = false;
    int signal = 0;
    char log[512] = {};
};

Settings settings;
std::atomic<bool> isActive{false};
std::atomic<long> calls{0};
thread_local bool isInside = false;

Kind kindOf(std::string_view name) {
    constexpr struct {
        std::string_view name;
        Kind kind;
    } names[] = {{"write", Kind::Write},   {"open", Kind::Open},   {"rename", Kind::Rename},
                 {"sync", Kind::Sync},     {"close", Kind::Close}, {"mkdir", Kind::MakeFolder},
                 {"remove", Kind::Remove}, {"read", Kind::Read},   {"allocate", Kind::Allocate}};
    for (const auto& entry : names) {
        if (entry.name == name)
            return entry.kind;
    }
    return Kind::None;
}

void logText(const char* text) {
    const long file =
        ::syscall(SYS_openat, AT_FDCWD, settings.log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0)
        return;
    (void)!::syscall(SYS_write, file, text, std::strlen(text));
    ::syscall(SYS_close, file);
}

/// Logs the libraries that the call came through.
void logStack() {
    void* frames[64];
    const int count = ::backtrace(frames, 64);
    char text[4096] = {};
    std::size_t size = 0;
    const char* last = nullptr;
    for (int i = 0; i < count; ++i) {
        Dl_info info{};
        if (::dladdr(frames[i], &info) == 0 || info.dli_fname == nullptr || info.dli_fname == last)
            continue;
        last = info.dli_fname;
        const char* const slash = std::strrchr(last, '/');
        size += static_cast<std::size_t>(
            std::snprintf(text + size, sizeof text - size, "in %s\n", slash != nullptr ? slash + 1 : last));
        if (size >= sizeof text - 256)
            break;
    }
    logText(text);
}

/// Whether this call is the one.
bool isTheOne(Kind kind) {
    if (kind != settings.kind || isInside || !isActive.load(std::memory_order_relaxed))
        return false;
    if (calls.fetch_add(1) + 1 != settings.number)
        return false;
    isInside = true;
    logStack();
    isInside = false;
    if (settings.signal != 0) {
        ::raise(settings.signal);
        return false;
    }
    errno = settings.error;
    return true;
}

template <class Function>
Function* next(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

__attribute__((constructor)) void begin() {
    const char* const fault = std::getenv("TIDEWATCH_FAULT");
    if (fault == nullptr)
        return;
    char kind[32] = {};
    char error[32] = {};
    if (std::sscanf(fault, "%31[^:]:%ld:%31s", kind, &settings.number, error) != 3)
        return;
    settings.kind = kindOf(kind);
    settings.isShort = std::strcmp(error, "short") == 0;
    settings.error = std::atoi(error);
    if (const char* const signal = std::getenv("TIDEWATCH_FAULT_SIGNAL"))
        settings.signal = std::atoi(signal);
    if (const char* const log = std::getenv("TIDEWATCH_FAULT_LOG"))
        std::strncpy(settings.log, log, sizeof settings.log - 1);
    // Its first call loads a library.
    void* frame = nullptr;
    ::backtrace(&frame, 1);
}

__attribute__((destructor)) void end() {
    if (settings.kind == Kind::None)
        return;
    isActive = false;
    char text[64];
    std::snprintf(text, sizeof text, "calls %ld\n", calls.load());
    logText(text);
}

/// Where a path leads when the tests let the program write straight to the place of its output.
const char* straight(const char* path, char* buffer, std::size_t size) {
    static const char* const rule = std::getenv("TIDEWATCH_FAULT_STRAIGHT");
    if (rule == nullptr || std::strncmp(path, "/proc/self/fd/", 14) != 0)
        return path;
    const char* const name = std::strrchr(path, '/') + 1;
    if (std::strlen(name) < 4 && std::strspn(name, "0123456789") == std::strlen(name))
        return path;
    std::snprintf(buffer, size, "%s/%s", rule, name);
    return buffer;
}

std::size_t half(std::size_t size) {
    return size > 1 ? size / 2 : size;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

using Handler = void (*)(int);
Handler signal(int number, Handler handler) noexcept {
    static auto* const real = next<Handler(int, Handler)>(nullptr, "signal");
    isActive = true;
    return real(number, handler);
}

ssize_t write(int file, const void* bytes, size_t size) {
    static auto* const real = next<ssize_t(int, const void*, size_t)>(nullptr, "write");
    // Messages are no data.
    if (file > 2 && isTheOne(Kind::Write)) {
        if (!settings.isShort)
            return -1;
        size = half(size);
    }
    return real(file, bytes, size);
}

ssize_t writev(int file, const iovec* pieces, int count) {
    static auto* const real = next<ssize_t(int, const iovec*, int)>(nullptr, "writev");
    if (file > 2 && isTheOne(Kind::Write)) {
        if (!settings.isShort)
            return -1;
        const iovec piece{pieces[0].iov_base, half(pieces[0].iov_len)};
        return real(file, &piece, 1);
    }
    return real(file, pieces, count);
}

ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t place) {
    static auto* const real = next<ssize_t(int, const void*, size_t, off64_t)>(nullptr, "pwrite64");
    if (isTheOne(Kind::Write)) {
        if (!settings.isShort)
            return -1;
        size = half(size);
    }
    return real(file, bytes, size, place);
}
ssize_t pwrite(int file, const void* bytes, size_t size, off_t place) {
    return pwrite64(file, bytes, size, place);
}

ssize_t read(int file, void* bytes, size_t size) {
    static auto* const real = next<ssize_t(int, void*, size_t)>(nullptr, "read");
    if (isTheOne(Kind::Read)) {
        if (!settings.isShort)
            return -1;
        size = half(size);
    }
    return real(file, bytes, size);
}

ssize_t pread64(int file, void* bytes, size_t size, off64_t place) {
    static auto* const real = next<ssize_t(int, void*, size_t, off64_t)>(nullptr, "pread64");
    if (isTheOne(Kind::Read)) {
        if (!settings.isShort)
            return -1;
        size = half(size);
    }
    return real(file, bytes, size, place);
}
ssize_t pread(int file, void* bytes, size_t size, off_t place) {
    return pread64(file, bytes, size, place);
}

int open64(const char* path, int flags, ...) {
    static auto* const real = next<int(const char*, int, ...)>(nullptr, "open64");
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    if (isTheOne(Kind::Open))
        return -1;
    char buffer[4096];
    return real((flags & O_CREAT) != 0 ? straight(path, buffer, sizeof buffer) : path, flags, mode);
}
int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    return open64(path, flags, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static auto* const real = next<FILE*(const char*, const char*)>(nullptr, "fopen64");
    if (isTheOne(Kind::Open))
        return nullptr;
    char buffer[4096];
    return real(mode[0] != 'r' ? straight(path, buffer, sizeof buffer) : path, mode);
}
FILE* fopen(const char* path, const char* mode) {
    return fopen64(path, mode);
}

int rename(const char* from, const char* to) noexcept {
    static auto* const real = next<int(const char*, const char*)>(nullptr, "rename");
    return isTheOne(Kind::Rename) ? -1 : real(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
    static auto* const real = next<int(int, const char*, int, const char*, unsigned)>(nullptr, "renameat2");
    return isTheOne(Kind::Rename) ? -1 : real(fromFolder, from, toFolder, to, flags);
}

int fsync(int file) {
    static auto* const real = next<int(int)>(nullptr, "fsync");
    return isTheOne(Kind::Sync) ? -1 : real(file);
}

int close(int file) {
    static auto* const real = next<int(int)>(nullptr, "close");
    // As the system does, the descriptor is given back whatever the answer.
    const bool fails = isTheOne(Kind::Close);
    const int error = errno;
    const int result = real(file);
    if (!fails)
        return result;
    errno = error;
    return -1;
}

int fclose(FILE* file) {
    static auto* const real = next<int(FILE*)>(nullptr, "fclose");
    const bool fails = isTheOne(Kind::Close);
    const int error = errno;
    const int result = real(file);
    if (!fails)
        return result;
    errno = error;
    return EOF;
}

int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const real = next<int(const char*, mode_t)>(nullptr, "mkdir");
    return isTheOne(Kind::MakeFolder) ? -1 : real(path, mode);
}

char* mkdtemp(char* pattern) noexcept {
    static auto* const real = next<char*(char*)>(nullptr, "mkdtemp");
    return isTheOne(Kind::MakeFolder) ? nullptr : real(pattern);
}

int mkostemp64(char* pattern, int flags) {
    static auto* const real = next<int(char*, int)>(nullptr, "mkostemp64");
    return isTheOne(Kind::Open) ? -1 : real(pattern, flags);
}
int mkostemp(char* pattern, int flags) {
    return mkostemp64(pattern, flags);
}

int unlinkat(int folder, const char* path, int flags) noexcept {
    static auto* const real = next<int(int, const char*, int)>(nullptr, "unlinkat");
    return isTheOne(Kind::Remove) ? -1 : real(folder, path, flags);
}

int unlink(const char* path) noexcept {
    static auto* const real = next<int(const char*)>(nullptr, "unlink");
    return isTheOne(Kind::Remove) ? -1 : real(path);
}

int rmdir(const char* path) noexcept {
    static auto* const real = next<int(const char*)>(nullptr, "rmdir");
    return isTheOne(Kind::Remove) ? -1 : real(path);
}

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) {
    if (isTheOne(Kind::Allocate)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    if (isTheOne(Kind::Allocate)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    if (isTheOne(Kind::Allocate)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(block, size);
}
}
#pragma GCC visibility pop
