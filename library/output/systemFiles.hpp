// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

/// System calls for writing and placing files. Functions that are noexcept allocate no memory themselves.
namespace Tidewatch {

/// A file descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { (void)close(); }

    [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }
    [[nodiscard]] int number() const noexcept { return number_; }

    /// 0, or the error number. Some file systems report failed writes only now.
    [[nodiscard]] int close() noexcept;

private:
    int number_;
};

/// Writes all bytes, in as many calls as it takes. 0, or the error number.
[[nodiscard]] int writeAll(const Descriptor& file, const char* bytes, std::size_t size) noexcept;

/// Gives a file the permissions of another one, and its owner and group if the process may set them. 0, or
/// the error number of the permissions.
[[nodiscard]] int takeOverMode(const Descriptor& file, const struct stat& from) noexcept;

/// The mount of a file or folder: rename() does not work across mounts, not even within one file system.
struct Mount {
    std::uint64_t device = 0;
    /// 0 if the kernel does not report it.
    std::uint64_t id = 0;

    friend bool operator==(const Mount&, const Mount&) = default;

    /// nullopt if the path does not exist or its mount cannot be determined.
    [[nodiscard]] static std::optional<Mount> of(const std::filesystem::path& path) noexcept;
};

/// Removes a folder in `parent` with its contents; links in it are removed, not followed. 0, or the first
/// error number.
int removeTree(int parent, const char* name) noexcept;

/// The names of the entries of a folder, without "." and "..". Throws std::system_error. (The iterators of
/// std::filesystem terminate the process when memory runs out.)
[[nodiscard]] std::vector<std::string> namesIn(const std::filesystem::path& folder);

/// The relative paths of everything below a folder except folders; links are not followed. Throws
/// std::system_error.
[[nodiscard]] std::vector<std::filesystem::path> filesBelow(const std::filesystem::path& folder);

} // namespace Tidewatch
