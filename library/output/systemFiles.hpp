// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>

#include <sys/stat.h>

/// The calls of the system that putting files in place is made of. Those that are noexcept need no memory of ours.
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

    /// 0, or the error number. Some file systems tell only now that data did not arrive.
    [[nodiscard]] int close() noexcept;

private:
    int number_;
};

/// Writes all bytes, in as many calls as it takes. 0, or the error number.
[[nodiscard]] int writeAll(const Descriptor& file, const char* bytes, std::size_t size) noexcept;

/// Gives a file the permissions of another one, and its owner and group as far as the process may.
/// 0, or the error number of the permissions.
[[nodiscard]] int takeOverMode(const Descriptor& file, const struct stat& from) noexcept;

/// Which mount a file or folder lies on: renames do not lead from one to another, not even within one file system.
struct Mount {
    std::uint64_t device = 0;
    /// 0 where the kernel does not tell.
    std::uint64_t id = 0;

    friend bool operator==(const Mount&, const Mount&) = default;

    /// nullopt if there is nothing at the path, or the system does not say.
    [[nodiscard]] static std::optional<Mount> of(const std::filesystem::path& path) noexcept;
};

/// Removes a folder of `parent` with all that it holds; links in it are removed, not followed. 0, or the error
/// number of the first thing that stayed.
int removeTree(int parent, const char* name) noexcept;

} // namespace Tidewatch
