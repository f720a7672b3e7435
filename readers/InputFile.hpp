// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tidewatch {

/// An open file that is read at given places. Reading does not move anything, so one object may serve several
/// threads.
class InputFile {
public:
    /// What tells whether a file opened later is still the one that was looked at.
    struct Stamp {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::uint64_t size = 0;
        std::int64_t modifiedSeconds = 0;
        std::int64_t modifiedNanoseconds = 0;
        friend bool operator==(const Stamp&, const Stamp&) = default;
    };

    /// Opens a regular file. Throws Anchor::FileError naming the path and the system's reason.
    explicit InputFile(std::string path);
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    ~InputFile();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] std::uint64_t size() const noexcept { return stamp_.size; }
    [[nodiscard]] const Stamp& stamp() const noexcept { return stamp_; }

    /// Fills `bytes` from `offset` on. `object` names for messages what is being read. Throws
    /// Anchor::FormatError when the file ends before, Anchor::FileError when the system cannot read.
    void read(std::uint64_t offset, std::span<std::uint8_t> bytes, std::string_view object) const;

    /// The same, but the file may end before: gives how many bytes were read.
    [[nodiscard]] std::size_t readUpTo(std::uint64_t offset, std::span<std::uint8_t> bytes) const;

private:
    std::string path_;
    int descriptor_ = -1;
    Stamp stamp_;
};

} // namespace Tidewatch
