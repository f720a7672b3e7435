// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/CreatorBase.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/MemBase.hpp"

#include <functional>
#include <mutex>
#include <optional>
#include <typeinfo>

namespace Sheaf {

/// Makes the array of one fragment of one field on demand, and says what the array will be like before it is
/// made.
class TIDEWATCH_API CreativeArrayBase : public Anchor::CreatorBase<MemBase> {
public:
    ~CreativeArrayBase() override;

    /// The element type of the array that create() gives.
    [[nodiscard]] virtual const std::type_info& elementType() const noexcept = 0;

    /// The extents of that array, known without making it; nullopt where there is no array.
    [[nodiscard]] virtual std::optional<Extents> extents() const = 0;

    /// The array where it is in memory already, else null; never makes it.
    [[nodiscard]] virtual Anchor::StrongPtr<Anchor::Cacheable> available() const = 0;

    /// Whether a host may edit the elements of the array that it holds, between two exports too. Where it may, nothing
    /// that was found out about them is remembered.
    [[nodiscard]] virtual bool mayBeEdited() const noexcept { return true; }

    /// The bounding box of the positions, where it is known without the array: remembered from the last time that the
    /// array was looked through. Null where it is not known.
    [[nodiscard]] Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> knownBounds() const;

    /// Remembers the bounding box of an array that nobody edits; null forgets it. Code that makes the array anew forgets
    /// it.
    void rememberBounds(Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds) const;

protected:
    CreativeArrayBase() = default;

private:
    mutable std::mutex mutex_;
    mutable Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds_;
};

/// The size (extents) of the array that a creator makes; nullopt where there is no array.
[[nodiscard]] TIDEWATCH_API std::optional<Extents> getSize(const CreativeArrayBase& creator);

/// The bounding box of a creator's array; null for an array without coordinates. Memory arrays of points and uniform
/// lattices have some, and an empty box where there are no points. The box may be the one that the creator remembers, so
/// it must not be changed.
///
/// The array is made where that is needed and `mayCreate` allows it; without permission only what is in memory or
/// remembered is looked at. `mayGoOn`, unless it is empty, is called every 65 536 points, so that a host can stop the
/// work. Throws what create() and `mayGoOn` throw.
[[nodiscard]] TIDEWATCH_API Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>
boundsOf(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn = {});

/// Widens a box by that of a creator's array, where it has one. False where there was no array.
TIDEWATCH_API bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate);

} // namespace Sheaf
