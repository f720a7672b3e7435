// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"

#include <cstddef>
#include <utility>

namespace Anchor {

/// A reference that does not keep its object alive; it expires when the last strong reference is released.
///
/// To use the object, take a strong reference with lock() and test it: that is safe even if another thread
/// releases the object meanwhile.
template <class T, class Root = Creature>
class WeakPtr {
public:
    constexpr WeakPtr() noexcept = default;
    constexpr WeakPtr(std::nullptr_t) noexcept {}
    WeakPtr(T* object) noexcept : object_(object) {
        if (object_ != nullptr) {
            record_ = &static_cast<const Root*>(const_cast<const T*>(object_))->references();
            record_->watch();
        }
    }
    template <class U, class OtherRoot>
    requires std::convertible_to<U*, T*> WeakPtr(const StrongPtr<U, OtherRoot>& reference)
    noexcept : WeakPtr(static_cast<T*>(reference.get())) {}

    WeakPtr(const WeakPtr& other) noexcept : object_(other.object_), record_(other.record_) {
        if (record_ != nullptr)
            record_->watch();
    }
    WeakPtr(WeakPtr&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)),
          record_(std::exchange(other.record_, nullptr)) {}
    ~WeakPtr() {
        if (record_ != nullptr)
            record_->unwatch();
    }

    WeakPtr& operator=(WeakPtr other) noexcept {
        std::swap(object_, other.object_);
        std::swap(record_, other.record_);
        return *this;
    }

    void reset() noexcept { *this = WeakPtr(); }

    /// A strong reference to the object, or null if it has been destroyed.
    [[nodiscard]] StrongPtr<T, Root> lock() const noexcept {
        if (record_ == nullptr || !record_->tryAcquire())
            return {};
        return StrongPtr<T, Root>(object_, typename StrongPtr<T, Root>::Adopt{});
    }

    /// True for a null reference and if the object has been destroyed. False is only a snapshot: use lock()
    /// to access the object.
    [[nodiscard]] bool expired() const noexcept {
        return record_ == nullptr || record_->strong.load(std::memory_order_acquire) == 0;
    }

private:
    T* object_ = nullptr;
    ReferenceRecord* record_ = nullptr;
};

} // namespace Anchor
