// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace Tidewatch::Hdf5 {

/// The checksum that HDF5 puts behind a block of metadata: Bob Jenkins' hash "lookup3" with start value 0.
[[nodiscard]] std::uint32_t metadataChecksum(std::span<const unsigned char> block);

} // namespace Tidewatch::Hdf5
