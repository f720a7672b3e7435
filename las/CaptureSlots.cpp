// SPDX-License-Identifier: Apache-2.0
#include "las/CaptureSlots.hpp"

#include <algorithm>
#include <array>
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

/// Type-erased access to a slot.
struct SlotAccess {
    const std::type_info& elementType;
    /// The number of elements; nothing for an empty slot.
    std::optional<std::size_t> (*size)(const CaptureSlots& slots);
    /// False, with the slot unchanged, for an array of another element type.
    bool (*fill)(CaptureSlots& slots, const Data& data);
};

template <auto slot>
std::optional<std::size_t> sizeOf(const CaptureSlots& slots) {
    return slots.*slot ? std::optional((slots.*slot)->base_vector().size()) : std::nullopt;
}

template <auto slot>
bool fill(CaptureSlots& slots, const Data& data) {
    auto array = Anchor::dynamicCast<Sheaf::TypedArray<ElementOf<slot>>>(data);
    if (!array)
        return false;
    slots.*slot = std::move(array);
    return true;
}

template <auto slot>
constexpr SlotAccess access{typeid(ElementOf<slot>), sizeOf<slot>, fill<slot>};

using Slots = std::array<const SlotAccess*, 2>;

/// Whether an array in the first of two slots prevents the second from being filled.
enum class FirstSlot { AllowsSecond, BlocksSecond };

/// For which grids an attribute is written, and whether the default rename map contains it.
enum class Scope { Default, ByName, Carried };

/// One LAS attribute.
struct Attribute {
    std::string_view name;
    Slots slots;
    Scope scope = Scope::Default;
    FirstSlot first = FirstSlot::AllowsSecond;
};

// The table of attributes. A new one needs a row here, a slot, and code in PointMaker.
constexpr Attribute attributes[] = {
    {"Positions", {&access<&CaptureSlots::positions>}},
    {"Classification", {&access<&CaptureSlots::classification>}},
    {"Intensity", {&access<&CaptureSlots::intensity>}},
    {"ReturnNumber", {&access<&CaptureSlots::returnNumber>}},
    {"NumberOfReturns", {&access<&CaptureSlots::numberOfReturns>}},
    {"EdgeOfFlightLine", {&access<&CaptureSlots::edgeOfFlightLine>}},
    {"ScanAngleRank",
     {&access<&CaptureSlots::scanAngleRank>, &access<&CaptureSlots::scanAngle>},
     Scope::Default,
     // Angles in whole degrees take precedence over finer ones.
     FirstSlot::BlocksSecond},
    {"ScanDirectionFlag", {&access<&CaptureSlots::scanDirectionFlag>}},
    {"UserData", {&access<&CaptureSlots::userData>}},
    {"PointSourceID", {&access<&CaptureSlots::pointSourceID>}},
    {"GPSTime", {&access<&CaptureSlots::gpsTime>}},
    {"RGB", {&access<&CaptureSlots::rgb>}},
    {"Reflectance", {&access<&CaptureSlots::reflectance>}, Scope::ByName},
    {"Amplitude", {&access<&CaptureSlots::amplitude>, &access<&CaptureSlots::amplitudeFloat>}, Scope::ByName},
    {"Synthetic", {&access<&CaptureSlots::synthetic>}, Scope::Carried},
    {"KeyPoint", {&access<&CaptureSlots::keyPoint>}, Scope::Carried},
    {"Withheld", {&access<&CaptureSlots::withheld>}, Scope::Carried},
    {"Overlap", {&access<&CaptureSlots::overlap>}, Scope::Carried},
    {"ScannerChannel", {&access<&CaptureSlots::scannerChannel>}, Scope::Carried},
    {"NearInfrared", {&access<&CaptureSlots::nearInfrared>}, Scope::Carried},
    {"Red", {&access<&CaptureSlots::red>}, Scope::Carried},
    {"Green", {&access<&CaptureSlots::green>}, Scope::Carried},
    {"Blue", {&access<&CaptureSlots::blue>}, Scope::Carried},
};

bool counts(const Attribute& one, bool carry) {
    return carry || one.scope != Scope::Carried;
}

const Attribute* findAttribute(std::string_view name, bool carry) {
    const auto* const found =
        std::find_if(std::begin(attributes), std::end(attributes),
                     [&](const Attribute& one) { return one.name == name && counts(one, carry); });
    return found != std::end(attributes) ? found : nullptr;
}

} // namespace

void CaptureSlots::capture(std::string_view lasName, const Data& data, bool carry) {
    const Attribute* const found = findAttribute(lasName, carry);
    if (found == nullptr)
        return;
    for (std::size_t number = 0; number < found->slots.size() && found->slots[number] != nullptr; ++number) {
        // The slot may have been filled by an earlier call.
        const bool isBlocked = number != 0 && found->first == FirstSlot::BlocksSecond &&
                               found->slots[0]->size(*this).has_value();
        if (!isBlocked && found->slots[number]->fill(*this, data))
            return;
    }
}

void CaptureSlots::forEachFilled(
    const std::function<void(std::string_view lasName, std::size_t elements)>& visit) const {
    for (const Attribute& one : attributes) {
        std::optional<std::size_t> longest;
        for (const SlotAccess* const slot : one.slots) {
            if (slot != nullptr)
                longest = std::max(longest, slot->size(*this));
        }
        if (longest)
            visit(one.name, *longest);
    }
}

std::optional<std::size_t> CaptureSlots::slotOf(std::string_view lasName, const std::type_info& elementType,
                                                bool carry) {
    const std::vector<const std::type_info*> types = elementTypes(lasName, carry);
    const auto found = std::find_if(types.begin(), types.end(),
                                    [&](const std::type_info* type) { return *type == elementType; });
    return found != types.end() ? std::optional(static_cast<std::size_t>(found - types.begin()))
                                : std::nullopt;
}

std::vector<const std::type_info*> CaptureSlots::elementTypes(std::string_view lasName, bool carry) {
    std::vector<const std::type_info*> types;
    if (const Attribute* const found = findAttribute(lasName, carry)) {
        for (const SlotAccess* const slot : found->slots) {
            if (slot != nullptr)
                types.push_back(&slot->elementType);
        }
    }
    return types;
}

std::vector<std::string> CaptureSlots::names(bool carry) {
    std::vector<std::string> names;
    for (const Attribute& one : attributes) {
        if (counts(one, carry))
            names.emplace_back(one.name);
    }
    return names;
}

bool CaptureSlots::isAttribute(std::string_view lasName, bool carry) {
    return findAttribute(lasName, carry) != nullptr;
}

std::map<std::string, std::string> CaptureSlots::defaultNames() {
    std::map<std::string, std::string> names;
    for (const Attribute& one : attributes) {
        if (one.scope == Scope::Default)
            names.emplace(one.name, one.name);
    }
    return names;
}

} // namespace ExportLib
