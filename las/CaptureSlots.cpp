// SPDX-License-Identifier: Apache-2.0
#include "las/CaptureSlots.hpp"

#include <algorithm>
#include <iterator>

namespace ExportLib {

namespace {

using Data = Anchor::StrongPtr<Anchor::Cacheable>;

template <class Member>
struct SlotElement;
template <class T>
struct SlotElement<CaptureSlots::Slot<T> CaptureSlots::*> {
    using type = T;
};
template <auto slot>
using ElementOf = typename SlotElement<decltype(slot)>::type;

/// Fills a slot; false, and the slot stays as it was, for an array of another element type.
template <auto slot>
bool fill(CaptureSlots& slots, const Data& data) {
    auto array = Anchor::dynamicCast<Sheaf::TypedArray<ElementOf<slot>>>(data);
    if (!array)
        return false;
    slots.*slot = std::move(array);
    return true;
}

/// One LAS attribute: the element types that it takes are those of its slots.
struct Attribute {
    std::string_view name;
    bool isDefault;
    void (*capture)(CaptureSlots& slots, const Data& data);
    bool (*takes)(const std::type_info& elementType);
};

template <auto... slot>
bool isElementOf(const std::type_info& elementType) {
    return ((elementType == typeid(ElementOf<slot>)) || ...);
}

template <auto slot>
constexpr Attribute attribute(std::string_view name, bool isDefault = true) {
    return {name, isDefault, [](CaptureSlots& slots, const Data& data) { fill<slot>(slots, data); },
            isElementOf<slot>};
}

// The table of attributes; a new one is a row here, a slot, and its lines in the point loop.
constexpr Attribute attributes[] = {
    attribute<&CaptureSlots::positions>("Positions"),
    attribute<&CaptureSlots::classification>("Classification"),
    attribute<&CaptureSlots::intensity>("Intensity"),
    attribute<&CaptureSlots::returnNumber>("ReturnNumber"),
    attribute<&CaptureSlots::numberOfReturns>("NumberOfReturns"),
    attribute<&CaptureSlots::edgeOfFlightLine>("EdgeOfFlightLine"),
    {"ScanAngleRank", true,
     [](CaptureSlots& slots, const Data& data) {
         fill<&CaptureSlots::scanAngleRank>(slots, data);
         // Asked of the slot, not of this attempt: an angle in whole degrees that is there already keeps the
         // finer one out.
         if (!slots.scanAngleRank)
             fill<&CaptureSlots::scanAngle>(slots, data);
     },
     isElementOf<&CaptureSlots::scanAngleRank, &CaptureSlots::scanAngle>},
    attribute<&CaptureSlots::scanDirectionFlag>("ScanDirectionFlag"),
    attribute<&CaptureSlots::userData>("UserData"),
    attribute<&CaptureSlots::pointSourceID>("PointSourceID"),
    attribute<&CaptureSlots::gpsTime>("GPSTime"),
    attribute<&CaptureSlots::rgb>("RGB"),
    attribute<&CaptureSlots::reflectance>("Reflectance", false),
    {"Amplitude", false,
     [](CaptureSlots& slots, const Data& data) {
         if (!fill<&CaptureSlots::amplitude>(slots, data))
             fill<&CaptureSlots::amplitudeFloat>(slots, data);
     },
     isElementOf<&CaptureSlots::amplitude, &CaptureSlots::amplitudeFloat>},
};

const Attribute* findAttribute(std::string_view name) {
    const auto* const found = std::find_if(std::begin(attributes), std::end(attributes),
                                           [&](const Attribute& one) { return one.name == name; });
    return found != std::end(attributes) ? found : nullptr;
}

} // namespace

void CaptureSlots::capture(std::string_view lasName, const Data& data) {
    if (const Attribute* const found = findAttribute(lasName))
        found->capture(*this, data);
}

bool CaptureSlots::takes(std::string_view lasName, const std::type_info& elementType) {
    const Attribute* const found = findAttribute(lasName);
    return found != nullptr && found->takes(elementType);
}

std::map<std::string, std::string> CaptureSlots::defaultNames() {
    std::map<std::string, std::string> names;
    for (const Attribute& one : attributes) {
        if (one.isDefault)
            names.emplace(one.name, one.name);
    }
    return names;
}

} // namespace ExportLib
