// SPDX-License-Identifier: Apache-2.0
#include "library/check/LasPointSurvey.hpp"

#include "formats/las/PointLayout.hpp"
#include "formats/littleEndian.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Tidewatch {

namespace {

constexpr double secondsOfWeek = 604'800;

} // namespace

LasPointSurvey::LasPointSurvey(const Las::LasHeader& header) noexcept
    : hasTime_(header.layout().gpsTime != 0),
      largestAngle_(Formats::Las::isExtendedFormat(header.pointFormat) ? std::int16_t{30'000}
                                                                       : std::int16_t{90}) {}

void LasPointSurvey::watch(std::size_t offset) noexcept {
    auto* const free = std::find(watched_.begin(), watched_.end(), std::nullopt);
    if (free != watched_.end())
        *free = offset;
    firstIsZero_ = true;
}

void LasPointSurvey::takeWatched(const std::uint8_t* extraBytes) noexcept {
    const auto isZero = [&](const std::optional<std::size_t>& offset) {
        return !offset || Formats::loadLittleEndian<std::uint16_t>(extraBytes + *offset) == 0;
    };
    const bool areZero = std::all_of(watched_.begin(), watched_.end(), isZero);
    if (points == 0)
        firstIsZero_ = areZero;
    else
        othersAreNot_ = othersAreNot_ || !areZero;
}

void LasPointSurvey::take(std::span<const Las::Point> block) noexcept {
    for (const Las::Point& point : block) {
        stored[0].take(point.x);
        stored[1].take(point.y);
        stored[2].take(point.z);
        ++byReturn[point.returnNumber & 0xFU];
        classes[point.classification].take(points);
        if (point.returnNumber == 0)
            returnsOfNone.take(points);
        if (point.returnNumber > point.numberOfReturns)
            returnsBeyondOwn.take(points);
        angles.take(point.scanAngle);
        if (std::abs(int{point.scanAngle}) > largestAngle_)
            anglesBeyondRange.take(points);
        if (hasTime_) {
            if (!std::isfinite(point.gpsTime))
                timesNotFinite.take(points);
            else
                times.take(point.gpsTime);
            if (!(point.gpsTime >= 0 && point.gpsTime <= secondsOfWeek))
                timesOutsideWeek.take(points);
        }
        colors = static_cast<std::uint16_t>(colors | point.rgb[0] | point.rgb[1] | point.rgb[2]);
        if (watched_[0])
            takeWatched(point.extraBytes);
        ++points;
    }
}

} // namespace Tidewatch
