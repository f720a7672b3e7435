// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/Visibility.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tidewatch {

/// An open file that is read at given offsets. Reading moves no file position, so several threads may share
/// an object.
class TIDEWATCH_API InputFile {
public:
    /// Opens a regular file. Throws Anchor::FileError naming the path and the system's reason.
    explicit InputFile(std::string path);
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    ~InputFile();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The file descriptor, valid while this object lives.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    /// Bytes when it was opened.
    [[nodiscard]] std::uint64_t size() const noexcept { return state_.size; }
    /// When it was opened.
    [[nodiscard]] const Anchor::FileState& state() const noexcept { return state_; }

    /// Throws Anchor::FileError when the file has been written to since it was in this state.
    void requireUnchanged(const Anchor::FileState& since) const;

    /// Throws Anchor::FileError when the file has been written to since it was opened.
    void requireUnchanged() const { requireUnchanged(state_); }

    /// Fills `bytes` from `offset` on. `object` names what is being read, for messages. Throws
    /// Anchor::FormatError when the file ends too early, Anchor::FileError when the system cannot read.
    void read(std::uint64_t offset, std::span<std::uint8_t> bytes, std::string_view object) const;

    /// The same, but the file may end earlier: returns how many bytes were read.
    [[nodiscard]] std::size_t readUpTo(std::uint64_t offset, std::span<std::uint8_t> bytes) const;

private:
    [[nodiscard]] Anchor::FileState look() const;

    std::string path_;
    int descriptor_ = -1;
    Anchor::FileState state_;
};

} // namespace Tidewatch
