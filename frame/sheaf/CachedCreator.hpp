// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Cache.hpp"
#include "sheaf/CreativeArrayBase.hpp"

#include <cstdint>
#include <vector>

namespace Sheaf {

/// Base class of creators that read their array from a file: the array belongs to the memory cache of the
/// process, which may drop it whenever nobody holds it, and it is then read again. So it must not be edited:
/// edits would be lost at any time.
///
/// A reader derives a class that creates arrays; this class deals with the cache.
class TIDEWATCH_API CachedCreator : public CreativeArrayBase {
public:
    ~CachedCreator() override;

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool anew) const final;
    [[nodiscard]] const std::type_info& elementType() const noexcept final { return *elementType_; }
    /// Those stated to the constructor, unless a derived class knows them later.
    [[nodiscard]] std::optional<Extents> extents() const override { return extents_; }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const final;

    [[nodiscard]] bool mayBeEdited() const noexcept final { return false; }

protected:
    /// The array of another creator that was created in the same pass.
    struct Sibling {
        /// Held until its array is in the cache: if another thread destroyed the creator in between, the
        /// array would stay there forever.
        Anchor::StrongPtr<const CachedCreator> creator;
        Anchor::StrongPtr<MemBase> array;
    };

    /// The arrays that one pass created.
    struct Made {
        /// This creator's own array.
        Anchor::StrongPtr<MemBase> array;
        std::vector<Sibling> siblings = {};
    };

    CachedCreator(const std::type_info& elementType, const Extents& extents)
        : elementType_(&elementType),
          extents_(extents) {}

    /// Creates this creator's array, and any arrays of other creators that result from the same pass (a
    /// compressed record holds all fields of a point). All of them go into the cache together. Called without
    /// any lock, so possibly by two threads at once. Throws Anchor::Error if the array cannot be created.
    [[nodiscard]] virtual Made make() const = 0;

    /// Bytes that make() is going to allocate; the cache makes room for them beforehand.
    [[nodiscard]] virtual std::uint64_t bytesToMake() const = 0;

private:
    const std::type_info* elementType_;
    Extents extents_;
};

} // namespace Sheaf
