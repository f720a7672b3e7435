// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "geom/Color.hpp"
#include "geom/PhysicalSpace.hpp"
#include "sheaf/TypedArray.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace ExportLib {

/// The arrays of one fragment that become LAS attributes, each held in its slot until the slots are cleared.
///
/// A slot holds the array object, not only its data: the memory cache uses the references to the object when
/// it counts, and when it selects what to drop.
class CaptureSlots {
public:
    template <class T>
    using Slot = Anchor::StrongPtr<Sheaf::TypedArray<T>>;

    Slot<Geom::PhysicalSpace::point> positions;
    Slot<unsigned char> classification;
    Slot<unsigned short> intensity;
    Slot<unsigned char> returnNumber;
    Slot<unsigned char> numberOfReturns;
    Slot<unsigned char> edgeOfFlightLine;
    Slot<signed char> scanAngleRank;
    Slot<short> scanAngle;
    Slot<unsigned char> scanDirectionFlag;
    Slot<unsigned char> userData;
    Slot<unsigned short> pointSourceID;
    Slot<double> gpsTime;
    Slot<Geom::RGB<unsigned char>> rgb;
    Slot<float> reflectance;
    Slot<unsigned short> amplitude;
    Slot<float> amplitudeFloat;
    // Used only for carried grids.
    Slot<unsigned char> synthetic;
    Slot<unsigned char> keyPoint;
    Slot<unsigned char> withheld;
    Slot<unsigned char> overlap;
    Slot<unsigned char> scannerChannel;
    Slot<unsigned short> nearInfrared;
    Slot<unsigned short> red;
    Slot<unsigned short> green;
    Slot<unsigned short> blue;

    /// Puts an array into the slot of a LAS attribute. An array of an element type that the attribute does
    /// not accept, and a name that is not an attribute, are ignored. Here and below, `carry` includes the
    /// attributes of carried grids.
    void capture(std::string_view lasName, const Anchor::StrongPtr<Anchor::Cacheable>& data,
                 bool carry = false);

    /// Releases all arrays.
    void clear() { *this = {}; }

    /// Calls visit(name, elements) for each attribute with an array, for the longer one if there are two.
    void
    forEachFilled(const std::function<void(std::string_view lasName, std::size_t elements)>& visit) const;

    /// The number of the attribute's slot for an element type; nothing if there is none. Slot 0 takes
    /// precedence over slot 1.
    [[nodiscard]] static std::optional<std::size_t>
    slotOf(std::string_view lasName, const std::type_info& elementType, bool carry = false);

    /// The element types that an attribute accepts, in the order of its slots.
    [[nodiscard]] static std::vector<const std::type_info*> elementTypes(std::string_view lasName,
                                                                         bool carry = false);

    /// The names of all attributes.
    [[nodiscard]] static std::vector<std::string> names(bool carry = false);
    [[nodiscard]] static bool isAttribute(std::string_view lasName, bool carry = false);

    /// The default rename map, from each attribute's name to itself.
    [[nodiscard]] static std::map<std::string, std::string> defaultNames();
};

/// The elements in a slot; none for an empty slot.
template <class T>
[[nodiscard]] std::span<const T> elements(const CaptureSlots::Slot<T>& slot) noexcept {
    return slot ? std::span<const T>(slot->base_vector()) : std::span<const T>();
}

} // namespace ExportLib
