// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/MultiIndex.hpp"

#include <optional>
#include <string>
#include <utility>

namespace Sheaf {

/// Names one piece of a grid. The data of one piece in several fields has the same name there.
///
/// A piece of a uniform grid may say how many places at the low and at the high end of each axis it shares
/// with its neighbours: its overlaps.
class TIDEWATCH_API FragmentID : public Anchor::ReferenceBase<FragmentID> {
public:
    explicit FragmentID(std::string name) : name_(std::move(name)) {}
    ~FragmentID() override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

    /// Overlap counts along x, y, z; nullopt where none are stated.
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
    /// Stores the property in `index`; false (and `index` untouched) for a null fragment and for one without
    /// it.
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
