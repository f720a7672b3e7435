// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <compare>
#include <concepts>
#include <cstddef>
#include <utility>

namespace Anchor {

/// An owning reference to a reference-counted object; the object is destroyed with its last strong reference.
///
/// The count is inside the object, so a strong reference may be created from a plain pointer at any time,
/// except in the object's own constructor. Counting is atomic; a single StrongPtr object must not be used by
/// two threads at once. `Root` is the base through which the count is reached (Creature or InterfaceBase).
template <class T, class Root = Creature>
class StrongPtr {
public:
    constexpr StrongPtr() noexcept = default;
    constexpr StrongPtr(std::nullptr_t) noexcept {}
    StrongPtr(T* object) noexcept : object_(object) {
        if (object_ != nullptr)
            root()->acquire();
    }
    StrongPtr(const StrongPtr& other) noexcept : StrongPtr(other.object_) {}
    StrongPtr(StrongPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

    template <class U, class OtherRoot>
    requires std::convertible_to<U*, T*> StrongPtr(const StrongPtr<U, OtherRoot>& other)
    noexcept : StrongPtr(static_cast<T*>(other.get())) {}

    ~StrongPtr() {
        if (object_ != nullptr)
            root()->release();
    }

    StrongPtr& operator=(StrongPtr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    void reset() noexcept { StrongPtr().swap(*this); }
    void swap(StrongPtr& other) noexcept { std::swap(object_, other.object_); }

    [[nodiscard]] T* get() const noexcept { return object_; }
    [[nodiscard]] T& operator*() const noexcept { return *object_; }
    [[nodiscard]] T* operator->() const noexcept { return object_; }
    [[nodiscard]] explicit operator bool() const noexcept { return object_ != nullptr; }

    /// References are equal when they refer to the same object.
    friend bool operator==(const StrongPtr& a, const StrongPtr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator==(const StrongPtr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

private:
    template <class U, class OtherRoot>
    friend class WeakPtr;

    struct Adopt {};
    StrongPtr(T* object, Adopt) noexcept : object_(object) {}

    [[nodiscard]] const InterfaceBase* root() const noexcept {
        return static_cast<const Root*>(const_cast<const T*>(object_));
    }

    T* object_ = nullptr;
};

/// Creates an object and returns the first strong reference to it.
template <class T, class... Arguments>
[[nodiscard]] StrongPtr<T> makeStrong(Arguments&&... arguments) {
    return StrongPtr<T>(new T(std::forward<Arguments>(arguments)...));
}

/// The same object as a T, or null if it is not a T.
template <class T, class U, class Root>
[[nodiscard]] StrongPtr<T, Root> dynamicCast(const StrongPtr<U, Root>& reference) noexcept {
    return StrongPtr<T, Root>(dynamic_cast<T*>(reference.get()));
}

} // namespace Anchor
