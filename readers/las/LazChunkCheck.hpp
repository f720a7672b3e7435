// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/InputFile.hpp"
#include "readers/las/LasFile.hpp"

#include <cstddef>

namespace Tidewatch::Las {

/// Checks the beginning of a chunk before the decompressor sees it.
///
/// A pointwise chunk has the first point uncompressed, then one stream. A layered chunk has the first point,
/// the number of points and the size of each layer (32 bits each), then the layers. The decompressor adds the
/// sizes in 32 bits and allocates their sum, so they must fill the chunk exactly; it also reads past the end
/// of its tables when a stream begins with a code that no encoder writes, so such streams are refused.
///
/// Throws Anchor::FormatError naming the chunk. Cost: a few small reads.
void checkLazChunk(const InputFile& file, const LasHeader& header, const LasFile::Compression& compression,
                   std::size_t chunkIndex);

} // namespace Tidewatch::Las
