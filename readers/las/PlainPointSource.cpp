// SPDX-License-Identifier: Apache-2.0
#include "readers/las/PlainPointSource.hpp"

#include "formats/littleEndian.hpp"

#include <array>
#include <cstddef>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch::Las {

namespace {

/// The parts that all formats have at the same offset.
void parseCommon(const std::uint8_t* record, Point& point) noexcept {
    point.x = Formats::loadLittleEndian<std::int32_t>(record);
    point.y = Formats::loadLittleEndian<std::int32_t>(record + 4);
    point.z = Formats::loadLittleEndian<std::int32_t>(record + 8);
    point.intensity = Formats::loadLittleEndian<std::uint16_t>(record + 12);
}

/// Formats 0 to 5, table "Point Data Record Format 0".
void parseBasic(const std::uint8_t* record, Point& point) noexcept {
    const unsigned returns = record[14];
    point.returnNumber = returns & 7U;
    point.numberOfReturns = (returns >> 3) & 7U;
    point.scanDirection = (returns >> 6) & 1U;
    point.edgeOfFlightLine = (returns >> 7) & 1U;
    point.classification = record[15] & 31U;
    point.flags = static_cast<std::uint8_t>(record[15] >> 5);
    point.scannerChannel = 0;
    point.scanAngle = Formats::loadLittleEndian<std::int8_t>(record + 16);
    point.userData = record[17];
    point.pointSourceId = Formats::loadLittleEndian<std::uint16_t>(record + 18);
}

/// Formats 6 to 10, table "Point Data Record Format 6".
void parseExtended(const std::uint8_t* record, Point& point) noexcept {
    const unsigned returns = record[14];
    const unsigned flags = record[15];
    point.returnNumber = returns & 15U;
    point.numberOfReturns = static_cast<std::uint8_t>(returns >> 4);
    point.flags = flags & 15U;
    point.scannerChannel = (flags >> 4) & 3U;
    point.scanDirection = (flags >> 6) & 1U;
    point.edgeOfFlightLine = (flags >> 7) & 1U;
    point.classification = record[16];
    point.userData = record[17];
    point.scanAngle = Formats::loadLittleEndian<std::int16_t>(record + 18);
    point.pointSourceId = Formats::loadLittleEndian<std::uint16_t>(record + 20);
}

template <unsigned format>
void parseRecords(const std::uint8_t* record, std::size_t recordLength, std::span<Point> points) noexcept {
    constexpr Formats::Las::PointLayout layout = Formats::Las::pointLayouts[format];
    const bool hasExtraBytes = recordLength > layout.naturalSize;
    for (Point& point : points) {
        parseCommon(record, point);
        if constexpr (Formats::Las::isExtendedFormat(format))
            parseExtended(record, point);
        else
            parseBasic(record, point);
        if constexpr (layout.gpsTime != 0)
            point.gpsTime = Formats::loadLittleEndian<double>(record + layout.gpsTime);
        if constexpr (layout.rgb != 0) {
            for (std::size_t channel = 0; channel < point.rgb.size(); ++channel)
                point.rgb[channel] =
                    Formats::loadLittleEndian<std::uint16_t>(record + layout.rgb + 2 * channel);
        }
        if constexpr (layout.nearInfrared != 0)
            point.nearInfrared = Formats::loadLittleEndian<std::uint16_t>(record + layout.nearInfrared);
        point.extraBytes = hasExtraBytes ? record + layout.naturalSize : nullptr;
        record += recordLength;
    }
}

using Parser = void (*)(const std::uint8_t*, std::size_t, std::span<Point>) noexcept;

template <std::size_t... format>
constexpr std::array<Parser, sizeof...(format)> makeParsers(std::index_sequence<format...>) {
    return {&parseRecords<format>...};
}

constexpr auto parsers = makeParsers(std::make_index_sequence<Formats::Las::pointLayouts.size()>());

} // namespace

PlainPointSource::~PlainPointSource() = default;

void PlainPointSource::read(std::span<Point> points) {
    const LasHeader& header = file_->header();
    records_.resize(points.size() * header.recordLength);
    input_.read(header.pointOffset + position_ * header.recordLength, records_,
                fmt::format("points {} to {}", position_, position_ + points.size() - 1));
    parsers[header.pointFormat](records_.data(), header.recordLength, points);
    position_ += points.size();
}

} // namespace Tidewatch::Las
