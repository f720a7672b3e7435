// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace Support {

/// Watches the sizes that are asked of operator new, by this program and by the libraries that it uses, in
/// the thread that made the object. Link AllocationWatch.cpp, which replaces the operators.
class AllocationWatch {
public:
    AllocationWatch();

    /// The largest single allocation since the object was made, in bytes.
    [[nodiscard]] std::size_t largest() const noexcept;
};

} // namespace Support
