// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cpl_error.h>
#include <string>

namespace Tidewatch::Raster {

/// Captures GDAL's messages of this thread for its lifetime, so that they go into our errors and not to the
/// console.
class Messages {
public:
    Messages();
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// The first failure that GDAL reported, printable; a placeholder if it reported none.
    [[nodiscard]] std::string failure() const;

    /// Whether that failure was running out of memory.
    [[nodiscard]] bool isOutOfMemory() const noexcept { return number_ == CPLE_OutOfMemory; }

private:
    static void CPL_STDCALL take(CPLErr kind, CPLErrorNum number, const char* text);

    std::string failure_;
    CPLErrorNum number_ = CPLE_None;
};

} // namespace Tidewatch::Raster
