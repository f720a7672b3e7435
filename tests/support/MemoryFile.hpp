// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

#include <sys/mman.h>

namespace Support {

/// A file in memory that can be opened by a path, for tests and fuzz targets that try very many inputs.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view bytes) : descriptor_(::memfd_create("tidewatch-test", MFD_CLOEXEC)) {
        if (descriptor_ < 0)
            throw std::runtime_error("cannot make a file in memory");
        while (!bytes.empty()) {
            const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
            if (written <= 0) {
                ::close(descriptor_);
                throw std::runtime_error("cannot write a file in memory");
            }
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(descriptor_); }

    /// Valid in this process while the object lives.
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace Support
