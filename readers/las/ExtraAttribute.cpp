// SPDX-License-Identifier: Apache-2.0
#include "readers/las/ExtraAttribute.hpp"

#include "anchor/printable.hpp"
#include "formats/las/extraBytesEntry.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tidewatch::Las {

namespace {

namespace Place = Formats::Las::ExtraBytes;

constexpr auto scalarSizes = Formats::Las::extraBytesSizes;
constexpr unsigned scalarTypes = scalarSizes.size();
constexpr unsigned highestType = 30;
constexpr std::string_view object = "extra bytes";

std::string text(std::span<const std::uint8_t> field) {
    return {field.begin(), std::find(field.begin(), field.end(), std::uint8_t{0})};
}

/// Describes one component, counted from 0, of an entry with a type. If scale or offset are invalid, throws
/// Anchor::FormatError for a scalar, and leaves a component undescribed.
void describe(ExtraAttribute& attribute, std::span<const std::uint8_t> entry, unsigned component,
              std::string_view path) {
    const unsigned type = 1 + (entry[Place::type] - 1U) % scalarTypes;
    const unsigned options = entry[Place::options];
    const std::size_t place = std::size_t{8} * component;
    attribute.type = static_cast<ExtraAttribute::Type>(type);
    if ((options & Place::optionScale) != 0)
        attribute.scale = Formats::loadLittleEndian<double>(entry.data() + Place::scale + place);
    if ((options & Place::optionOffset) != 0)
        attribute.shift = Formats::loadLittleEndian<double>(entry.data() + Place::offset + place);
    if ((options & Place::optionNoData) != 0)
        attribute.noData = Formats::Las::noDataOf(entry.data() + Place::noData + place, type);
    const double scale = attribute.scale.value_or(1.0);
    const double shift = attribute.shift.value_or(0.0);
    if (std::isfinite(scale) && scale != 0.0 && std::isfinite(shift))
        return;
    if (attribute.component == 0)
        failFormat(path, object, "entry {} (\"{}\") has the scale {} and the offset {}", attribute.entry,
                   Anchor::printable(attribute.name), scale, shift);
    // Some writers of the deprecated types fill in the first component only; such files are not damaged.
    attribute.type = ExtraAttribute::Type::Undescribed;
    attribute.scale.reset();
    attribute.shift.reset();
}

} // namespace

void ExtraAttribute::parse(std::span<const std::uint8_t> payload, std::uint16_t available,
                           std::string_view path, std::vector<ExtraAttribute>& attributes) {
    if (payload.size() % entrySize != 0)
        failFormat(path, object, "their description has {} bytes, which is not a multiple of {}",
                   payload.size(), entrySize);
    std::uint32_t used =
        attributes.empty() ? 0U : attributes.back().offset + std::uint32_t{attributes.back().size};
    for (std::size_t index = 0; index < payload.size() / entrySize; ++index) {
        const auto entry = payload.subspan(index * entrySize, entrySize);
        ExtraAttribute attribute;
        attribute.name = text(entry.subspan(Place::name, Formats::Las::textSize));
        attribute.description = text(entry.subspan(Place::description, Formats::Las::textSize));
        const std::uint8_t type = entry[Place::type];
        const std::uint8_t options = entry[Place::options];
        if (type > highestType)
            failFormat(path, object, "entry {} (\"{}\") has the data type {}, which is not known", index,
                       Anchor::printable(attribute.name), type);
        attribute.entry = index;
        const unsigned components = type == 0 ? 1 : 1 + (type - 1U) / scalarTypes;
        // Without a type, the options field is the size.
        attribute.size = type == 0 ? options : scalarSizes[(type - 1U) % scalarTypes];
        if (attribute.size == 0)
            continue;
        const std::uint32_t begin = used;
        used += components * attribute.size;
        if (used > available)
            failFormat(path, object, "entry {} (\"{}\") ends at byte {}, but a point has {} extra bytes",
                       index, Anchor::printable(attribute.name), used, available);
        for (unsigned i = 0; i < components; ++i) {
            ExtraAttribute one = attribute;
            one.component = components > 1 ? i + 1 : 0;
            one.offset = static_cast<std::uint16_t>(begin + i * attribute.size);
            if (type != 0)
                describe(one, entry, i, path);
            attributes.push_back(std::move(one));
        }
    }
}

} // namespace Tidewatch::Las
