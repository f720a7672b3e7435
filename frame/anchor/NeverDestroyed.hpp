// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>

namespace Anchor {

/// A static object without a destructor, for what others may still use while the process or a library ends.
///
/// It lies in static storage and not on the heap, so a library that is loaded and unloaded many times does not
/// lose it each time. What the object itself has on the heap is its own matter: a map that is empty by then
/// has nothing there.
template <class T>
class NeverDestroyed {
public:
    NeverDestroyed() { new (storage_) T; }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    [[nodiscard]] T& get() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }

private:
    alignas(T) std::byte storage_[sizeof(T)];
};

} // namespace Anchor
