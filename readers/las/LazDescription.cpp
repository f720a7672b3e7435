// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazDescription.hpp"

#include "formats/las/PointLayout.hpp"
#include "formats/las/layout.hpp"
#include "formats/littleEndian.hpp"
#include "readers/las/FormatFailure.hpp"

namespace Tidewatch::Las {

namespace {

constexpr std::string_view object = "compression record";

namespace Place = Formats::Las::Compression;
using Formats::Las::isExtendedFormat;

using ItemType = LazDescription::ItemType;

bool isKnownVersion(ItemType type, std::uint16_t version) noexcept {
    switch (type) {
    case ItemType::Byte:
    case ItemType::Point10:
    case ItemType::GpsTime11:
    case ItemType::Rgb12:
        return version == 1 || version == 2;
    case ItemType::WavePacket13:
        return version == 1;
    case ItemType::Point14:
    case ItemType::Rgb14:
    case ItemType::RgbNir14:
    case ItemType::WavePacket14:
    case ItemType::Byte14:
        return version == 3 || version == 4;
    }
    return false;
}

std::size_t layersOf(const LazDescription::Item& item) noexcept {
    switch (item.type) {
    case ItemType::Point14:
        return 9;
    case ItemType::RgbNir14:
        return 2;
    case ItemType::Byte14:
        return item.size;
    default:
        return 1;
    }
}

} // namespace

std::size_t LazDescription::layerCount() const noexcept {
    std::size_t count = 0;
    for (const Item& item : items)
        count += layersOf(item);
    return count;
}

std::vector<LazDescription::Item> LazDescription::itemsOf(unsigned pointFormat, std::uint16_t recordLength) {
    const Formats::Las::PointLayout& layout = Formats::Las::pointLayouts[pointFormat];
    const bool extended = isExtendedFormat(pointFormat);
    std::vector<Item> items;
    items.push_back(extended ? Item{ItemType::Point14, 30, 0} : Item{ItemType::Point10, 20, 0});
    if (!extended && layout.gpsTime != 0)
        items.push_back({ItemType::GpsTime11, 8, 0});
    if (layout.nearInfrared != 0)
        items.push_back({ItemType::RgbNir14, 8, 0});
    else if (layout.rgb != 0)
        items.push_back({extended ? ItemType::Rgb14 : ItemType::Rgb12, 6, 0});
    if (layout.wavePacket != 0)
        items.push_back({extended ? ItemType::WavePacket14 : ItemType::WavePacket13, 29, 0});
    if (recordLength > layout.naturalSize)
        items.push_back({extended ? ItemType::Byte14 : ItemType::Byte,
                         static_cast<std::uint16_t>(recordLength - layout.naturalSize), 0});
    return items;
}

LazDescription LazDescription::parse(std::span<const std::uint8_t> payload, unsigned pointFormat,
                                     std::uint16_t recordLength, std::string_view path) {
    if (payload.size() < fixedSize)
        failFormat(path, object, "it has {} bytes, at least {} are needed", payload.size(), fixedSize);
    LazDescription description;
    const auto compressor = Formats::loadLittleEndian<std::uint16_t>(payload.data() + Place::compressor);
    if (compressor < 1 || compressor > 3)
        failFormat(path, object, "the compressor {} is not known", compressor);
    description.compressor = static_cast<Compressor>(compressor);
    // A mismatch would make the decompressor use streams that it never set up.
    if (description.isLayered() != isExtendedFormat(pointFormat))
        failFormat(path, object, "the compressor {} cannot be used with point format {}", compressor,
                   pointFormat);
    const auto coder = Formats::loadLittleEndian<std::uint16_t>(payload.data() + Place::coder);
    if (coder != 0)
        failFormat(path, object, "the coder {} is not known", coder);
    description.chunkSize = Formats::loadLittleEndian<std::uint32_t>(payload.data() + Place::chunkSize);
    if (description.hasChunks() && description.chunkSize == 0)
        failFormat(path, object, "the chunk size is 0");

    const auto itemCount = Formats::loadLittleEndian<std::uint16_t>(payload.data() + Place::itemCount);
    const std::vector<Item> expected = itemsOf(pointFormat, recordLength);
    if (itemCount != expected.size() || payload.size() != fixedSize + itemSize * itemCount)
        failFormat(path, object, "it lists {} items in {} bytes; points of format {} with {} bytes have {}",
                   itemCount, payload.size(), pointFormat, recordLength, expected.size());
    for (std::size_t i = 0; i < itemCount; ++i) {
        const std::uint8_t* bytes = payload.data() + fixedSize + itemSize * i;
        const auto type = Formats::loadLittleEndian<std::uint16_t>(bytes);
        const auto size = Formats::loadLittleEndian<std::uint16_t>(bytes + 2);
        const auto version = Formats::loadLittleEndian<std::uint16_t>(bytes + 4);
        if (type != static_cast<std::uint16_t>(expected[i].type) || size != expected[i].size)
            failFormat(
                path, object, "item {} is of type {} with {} bytes; points of format {} have type {} with {}",
                i, type, size, pointFormat, static_cast<std::uint16_t>(expected[i].type), expected[i].size);
        if (!isKnownVersion(expected[i].type, version))
            failFormat(path, object, "item {} of type {} has the version {}, which is not known", i, type,
                       version);
        description.items.push_back({expected[i].type, size, version});
    }
    return description;
}

} // namespace Tidewatch::Las
