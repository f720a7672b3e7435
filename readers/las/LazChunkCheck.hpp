// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/InputFile.hpp"
#include "readers/las/LasFile.hpp"

#include <cstddef>

namespace Tidewatch::Las {

/// Checks what stands at the beginning of a chunk, before the decompressor sees it.
///
/// Chunk of streams for whole points: the first point as it is, then one stream. Layered chunk: the first
/// point, the number of points and the size of each layer (32 bits each), then the layers. The decompressor
/// adds the sizes in 32 bits and allocates by the sum, so they must fit the chunk exactly; it also leaves its
/// tables when a stream begins with a code that no encoder writes, so no stream may.
///
/// Throws Anchor::FormatError naming the chunk. Cost: a few small reads.
void checkLazChunk(const InputFile& file, const LasHeader& header, const LasFile::Compression& compression,
                   std::size_t chunkIndex);

} // namespace Tidewatch::Las
