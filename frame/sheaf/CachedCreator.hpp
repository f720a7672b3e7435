// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cache.hpp"
#include "sheaf/CreativeArrayBase.hpp"

#include <cstdint>
#include <vector>

namespace Sheaf {

/// Base of the creators that make their array from a file: the array belongs to the memory cache of the
/// process, which may drop it at any time when nobody holds it, and it is then made again. So it must not be
/// edited: what the file holds would come back at any time.
///
/// A reader derives one class and says how to make arrays; the dealings with the cache are settled here.
class TIDEWATCH_API CachedCreator : public CreativeArrayBase {
public:
    ~CachedCreator() override;

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool anew) const final;
    [[nodiscard]] const std::type_info& elementType() const noexcept final { return *elementType_; }
    [[nodiscard]] std::optional<Extents> extents() const final { return extents_; }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const final;

    [[nodiscard]] bool mayBeEdited() const noexcept final { return false; }

protected:
    /// The array of another creator that came about in the same pass.
    struct Sibling {
        /// Held until its array is in the cache: a creator that died in between, in another thread, would
        /// leave it there for good.
        Anchor::StrongPtr<const CachedCreator> creator;
        Anchor::StrongPtr<MemBase> array;
    };

    /// What one pass made.
    struct Made {
        /// This creator's own array.
        Anchor::StrongPtr<MemBase> array;
        std::vector<Sibling> siblings = {};
    };

    CachedCreator(const std::type_info& elementType, const Extents& extents)
        : elementType_(&elementType),
          extents_(extents) {}

    /// Makes this creator's array, and whatever other creators' arrays come about in the same pass (a
    /// compressed record holds all fields of a point). All of them go into the cache together. Called without
    /// any lock, so by two threads at once if two ask. Throws Anchor::Error where the array cannot be made.
    [[nodiscard]] virtual Made make() const = 0;

    /// Bytes that make() is going to take; the cache makes room for them beforehand.
    [[nodiscard]] virtual std::uint64_t bytesToMake() const = 0;

private:
    const std::type_info* elementType_;
    Extents extents_;
};

} // namespace Sheaf
