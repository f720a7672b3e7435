// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/CreatorBase.hpp"
#include "anchor/Workers.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/MemBase.hpp"

#include <functional>
#include <mutex>
#include <optional>
#include <typeinfo>

namespace Sheaf {

/// Creates the array of one fragment of one field on demand, and gives its type and extents before it is created.
class TIDEWATCH_API CreativeArrayBase : public Anchor::CreatorBase<MemBase> {
public:
    ~CreativeArrayBase() override;

    /// The element type of the array that create() returns.
    [[nodiscard]] virtual const std::type_info& elementType() const noexcept = 0;

    /// The extents of that array, known without creating it; nullopt if there is no array.
    [[nodiscard]] virtual std::optional<Extents> extents() const = 0;

    /// The array if it is already in memory, else null; never creates it.
    [[nodiscard]] virtual Anchor::StrongPtr<Anchor::Cacheable> available() const = 0;

    /// Whether a host may edit the elements of the array, even between two exports. If it may, nothing that was
    /// computed from them is remembered.
    [[nodiscard]] virtual bool mayBeEdited() const noexcept { return true; }

    /// The bounding box of the positions if it is remembered from an earlier pass over the array, else null.
    [[nodiscard]] Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> knownBounds() const;

    /// Remembers the bounding box of an array that nobody edits; null forgets it. Code that creates the array again
    /// must forget it.
    void rememberBounds(Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds) const;

protected:
    CreativeArrayBase() = default;

private:
    mutable std::mutex mutex_;
    mutable Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds_;
};

/// The size (extents) of a creator's array; nullopt if there is no array.
[[nodiscard]] TIDEWATCH_API std::optional<Extents> getSize(const CreativeArrayBase& creator);

/// The bounding box of a creator's array; null for an array without coordinates. Memory arrays of points and uniform
/// lattices have coordinates; without points their box is empty. The box may be the one that the creator remembers, so
/// it must not be changed.
///
/// The array is created if that is needed and `mayCreate` is true; otherwise only arrays in memory and remembered boxes
/// are used. `mayGoOn`, unless it is empty, is called every 65 536 points (with workers, at times), so that a host can
/// stop the work by an exception. Throws what create() and `mayGoOn` throw.
[[nodiscard]] TIDEWATCH_API Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>
boundsOf(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn = {},
         Anchor::Workers* workers = nullptr);

/// Extends a box by that of a creator's array, if it has one. False if there was no array.
TIDEWATCH_API bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate);

} // namespace Sheaf
