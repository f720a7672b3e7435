// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/MultiIndex.hpp"

#include <optional>
#include <string>
#include <utility>

namespace Sheaf {

/// Identifies one piece of a grid. The data of the same piece in several fields shares the identifier.
///
/// A piece of a uniform grid may state its overlaps: how many places at the low and the high end of each axis
/// it shares with its neighbours.
class TIDEWATCH_API FragmentID : public Anchor::ReferenceBase<FragmentID> {
public:
    explicit FragmentID(std::string name) : name_(std::move(name)) {}
    ~FragmentID() override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

    /// Overlap counts along x, y, z; nullopt if none are stated.
    std::optional<MultiIndex<3>> overlapLow;
    std::optional<MultiIndex<3>> overlapHigh;

private:
    std::string name_;
};

/// A property of a fragment by its number: 2 is the overlap at the low end, 3 the overlap at the high end.
template <int Number>
struct FragmentProperty;

template <>
struct FragmentProperty<2> {
    static constexpr auto member = &FragmentID::overlapLow;
};

template <>
struct FragmentProperty<3> {
    static constexpr auto member = &FragmentID::overlapHigh;
};

/// Reads and sets a property that has one count per axis.
template <std::size_t Dimensions, class Property>
struct FragmentLocation {
    /// Stores the property in `index`; returns false and leaves `index` unchanged for a null fragment and for
    /// one without the property.
    [[nodiscard]] static bool get(const Anchor::StrongPtr<FragmentID>& fragment,
                                  MultiIndex<Dimensions>& index) {
        if (!fragment || !((*fragment).*Property::member))
            return false;
        index = *((*fragment).*Property::member);
        return true;
    }

    static void set(FragmentID& fragment, const MultiIndex<Dimensions>& index) {
        fragment.*Property::member = index;
    }
};

} // namespace Sheaf
