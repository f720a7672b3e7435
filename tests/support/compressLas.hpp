// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/LasFileBuilder.hpp"

#include <cstdint>
#include <string>

namespace Support {

/// The LAZ file of a plain LAS file, compressed by the LASzip library in chunks of that many points. Extended
/// variable length records move behind the chunk table. Throws std::runtime_error with LASzip's text.
[[nodiscard]] std::string compressLas(const LasFileBuilder& file, std::uint32_t chunkSize = 50000);

} // namespace Support
