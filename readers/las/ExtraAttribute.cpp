// SPDX-License-Identifier: Apache-2.0
#include "readers/las/ExtraAttribute.hpp"

#include "anchor/printable.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tidewatch::Las {

namespace {

namespace Place = Formats::Las::ExtraBytes;

constexpr unsigned scalarTypes = 10;
constexpr unsigned highestType = 30;
constexpr std::array<std::uint16_t, scalarTypes> scalarSizes{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};

std::string text(std::span<const std::uint8_t> field) {
    return {field.begin(), std::find(field.begin(), field.end(), std::uint8_t{0})};
}

std::uint16_t sizeOf(unsigned type, std::uint8_t options) noexcept {
    if (type == 0)
        return options; // the field has this meaning where no type is stated
    const unsigned components = 1 + (type - 1) / scalarTypes;
    return static_cast<std::uint16_t>(components * scalarSizes[(type - 1) % scalarTypes]);
}

} // namespace

void ExtraAttribute::parse(std::span<const std::uint8_t> payload, std::uint16_t available,
                           std::string_view path, std::vector<ExtraAttribute>& attributes) {
    constexpr std::string_view object = "extra bytes";
    if (payload.size() % entrySize != 0)
        failFormat(path, object, "their description has {} bytes, which is no multiple of {}", payload.size(),
                   entrySize);
    std::uint32_t used =
        attributes.empty() ? 0U : attributes.back().offset + std::uint32_t{attributes.back().size};
    for (std::size_t begin = 0; begin < payload.size(); begin += entrySize) {
        const std::size_t index = begin / entrySize;
        const auto entry = payload.subspan(begin, entrySize);
        ExtraAttribute attribute;
        attribute.name = text(entry.subspan(Place::name, Place::textSize));
        attribute.description = text(entry.subspan(Place::description, Place::textSize));
        const std::uint8_t type = entry[Place::type];
        const std::uint8_t options = entry[Place::options];
        if (type > highestType)
            failFormat(path, object, "entry {} (\"{}\") has the data type {}, which is not known", index,
                       Anchor::printable(attribute.name), type);
        attribute.size = sizeOf(type, options);
        if (attribute.size == 0)
            continue;
        attribute.offset = static_cast<std::uint16_t>(used);
        used += attribute.size;
        if (used > available)
            failFormat(path, object, "entry {} (\"{}\") ends at byte {}, but a point has {} extra bytes",
                       index, Anchor::printable(attribute.name), used, available);
        if (type >= 1 && type <= scalarTypes) {
            attribute.type = static_cast<Type>(type);
            if ((options & Place::optionScale) != 0)
                attribute.scale = Formats::loadLittleEndian<double>(entry.data() + Place::scale);
            if ((options & Place::optionOffset) != 0)
                attribute.shift = Formats::loadLittleEndian<double>(entry.data() + Place::offset);
            const double scale = attribute.scale.value_or(1.0);
            const double shift = attribute.shift.value_or(0.0);
            if (!std::isfinite(scale) || scale == 0.0 || !std::isfinite(shift))
                failFormat(path, object, "entry {} (\"{}\") has the scale {} and the offset {}", index,
                           Anchor::printable(attribute.name), scale, shift);
        }
        attributes.push_back(std::move(attribute));
    }
}

} // namespace Tidewatch::Las
