// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/CreatorBase.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/MemBase.hpp"

#include <functional>
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

    /// The extents of that array, known without making it; nothing where there is no array to be had.
    [[nodiscard]] virtual std::optional<Extents> extents() const = 0;

    /// The array where it is in memory already, else null; never makes it.
    [[nodiscard]] virtual Anchor::StrongPtr<Anchor::Cacheable> available() const = 0;

    /// The bounding box of the positions, where it is known without the array; null where it is not.
    ///
    /// By default it never is: a host may edit an array that it holds, between two exports too. Only creators
    /// whose array is a file's, and so always the same, remember it.
    [[nodiscard]] virtual Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> knownBounds() const;

    /// Offers the bounding box, which ExpandBBox() has found by looking through the array. By default it is
    /// not kept.
    virtual void rememberBounds(Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase> bounds) const;

protected:
    CreativeArrayBase() = default;
};

/// The size (extents) of the array that a creator makes; nothing where there is no array to be had.
[[nodiscard]] TIDEWATCH_API std::optional<Extents> getSize(const CreativeArrayBase& creator);

/// The bounding box of a creator's array; null for an array without coordinates: memory arrays of points and
/// uniform lattices have some, even where there are no points. It may be the one that the creator remembers:
/// not to be changed. The array is made where that is needed and
/// `mayCreate` allows it; without permission only what is in memory or remembered is looked at. `mayGoOn`,
/// unless it is empty, is called every 65 536 points, so that a host can stop the work. Throws what create()
/// and `mayGoOn` throw.
[[nodiscard]] TIDEWATCH_API Anchor::StrongPtr<Geom::BoundingBox, Anchor::InterfaceBase>
boundsOf(const CreativeArrayBase& creator, bool mayCreate, const std::function<void()>& mayGoOn = {});

/// Widens a box by that of a creator's array, where it has one. False where there was no array to look at.
TIDEWATCH_API bool ExpandBBox(Geom::BoundingBox& box, const CreativeArrayBase& creator, bool mayCreate);

} // namespace Sheaf
