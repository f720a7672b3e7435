// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/output/systemFiles.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace Tidewatch {

/// A file without a name, for data that does not fit into memory. The system removes it with the last descriptor, even
/// if the process is killed. Thread-safe, except append().
class ScratchFile {
public:
    /// In a folder, or the nearest one above it that exists. Throws Anchor::FileError.
    explicit ScratchFile(const std::filesystem::path& folder);

    /// Writes at the end, and returns where that was. Throws Anchor::FileError.
    std::uint64_t append(std::span<const std::byte> bytes);

    /// Fills `bytes` from an offset on. Throws Anchor::FileError.
    void read(std::uint64_t offset, std::span<std::byte> bytes) const;

    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    std::string name_; // for messages
    Descriptor file_;
    std::uint64_t size_ = 0;
};

} // namespace Tidewatch
