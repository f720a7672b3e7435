// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <cstdint>

namespace Anchor {

/// Data that the memory cache can hold and count.
class TIDEWATCH_API Cacheable : public ReferenceBase<Cacheable> {
public:
    ~Cacheable() override;

    /// Size of the data in bytes; constant while the cache holds it.
    [[nodiscard]] virtual std::uint64_t byteSize() const noexcept = 0;
};

} // namespace Anchor
