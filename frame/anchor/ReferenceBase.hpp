// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <atomic>
#include <cstdint>

namespace Anchor {

/// The reference counts of one object. The record outlives the object as long as there are weak references to
/// it.
///
/// `strong` counts strong references; when it falls to zero the object is destroyed and the count never rises
/// again. `watchers` counts weak references, and one more for the object itself.
struct TIDEWATCH_API ReferenceRecord {
    std::atomic<std::uint32_t> strong{0};
    std::atomic<std::uint32_t> watchers{1};

    /// Takes a strong reference unless the object has been destroyed or was never held.
    [[nodiscard]] bool tryAcquire() noexcept {
        std::uint32_t count = strong.load(std::memory_order_relaxed);
        while (count != 0) {
            if (strong.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
                return true;
        }
        return false;
    }

    void watch() noexcept { watchers.fetch_add(1, std::memory_order_relaxed); }

    void unwatch() noexcept {
        if (watchers.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
};

/// Root of everything that StrongPtr and WeakPtr refer to: it carries the reference counts.
///
/// The counts belong to the object, not to its value: copies start with their own counts. An object that no
/// strong reference has ever held (a member or a local variable) works like any other, but weak references to
/// it read as expired.
class TIDEWATCH_API InterfaceBase {
public:
    [[nodiscard]] ReferenceRecord& references() const noexcept { return *record_; }

protected:
    InterfaceBase() : record_(new ReferenceRecord) {}
    InterfaceBase(const InterfaceBase&) : InterfaceBase() {}
    // Nothing is assigned. NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    InterfaceBase& operator=(const InterfaceBase&) noexcept { return *this; }
    virtual ~InterfaceBase();

private:
    template <class T, class Root>
    friend class StrongPtr;

    void acquire() const noexcept { record_->strong.fetch_add(1, std::memory_order_relaxed); }
    void release() const noexcept {
        if (record_->strong.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    ReferenceRecord* record_;
};

/// Root of the objects of the data model.
class TIDEWATCH_API Creature : public InterfaceBase {
protected:
    Creature() = default;
    Creature(const Creature&) = default;
    Creature& operator=(const Creature&) = default;
    ~Creature() override;
};

/// Base of a reference-counted class: `class Tile : public Anchor::ReferenceBase<Tile>`.
///
/// The second argument is the root through which references reach the counts; StrongPtr and WeakPtr must use
/// the same one.
template <class Derived, class Root = Creature>
class TIDEWATCH_API ReferenceBase : public Root {
protected:
    ReferenceBase() = default;
    ReferenceBase(const ReferenceBase&) = default;
    ReferenceBase& operator=(const ReferenceBase&) = default;
    ~ReferenceBase() override = default;
};

} // namespace Anchor
