// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "geom/Color.hpp"
#include "geom/PhysicalSpace.hpp"
#include "las/ExtraBytesWriter.hpp"
#include "las/LasPlan.hpp"
#include "las/PointCounts.hpp"
#include "las/lasValues.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include <laswriter.hpp>

namespace ExportLib {

/// The arrays of a fragment that become fields of records; empty where there is none.
struct PointArrays {
    std::span<const Geom::PhysicalSpace::point> positions;
    std::span<const unsigned char> classification;
    std::span<const unsigned short> intensity;
    std::span<const unsigned char> returnNumber;
    std::span<const unsigned char> numberOfReturns;
    std::span<const unsigned char> edgeOfFlightLine;
    std::span<const unsigned char> scanDirectionFlag;
    std::span<const unsigned char> userData;
    std::span<const signed char> scanAngleRank;
    std::span<const short> scanAngle;
    std::span<const unsigned short> pointSourceID;
    std::span<const double> gpsTime;
    std::span<const Geom::RGB<unsigned char>> rgb;
    std::span<const float> reflectance;
    /// At most one of these two.
    std::span<const unsigned short> amplitude;
    std::span<const float> amplitudeFloat;
    // Of carried grids.
    std::span<const unsigned char> synthetic;
    std::span<const unsigned char> keyPoint;
    std::span<const unsigned char> withheld;
    std::span<const unsigned char> overlap;
    std::span<const unsigned char> scannerChannel;
    std::span<const unsigned short> nearInfrared;
    std::array<std::span<const unsigned short>, 3> wideColors;
    /// Of the extra bytes of carried grids.
    std::span<const ExtraBytesWriter> extras;
};

/// How values become fields of records.
struct PointRules {
    LASquantizer quantizer;
    I32 reflectanceStart = -1;
    I32 amplitudeStart = -1;
    bool isConforming = false;
};

/// Makes the points of a fragment from its arrays, one after the other in the point that it is given: a field without an
/// array, or beyond the end of its array, keeps its value. Several threads may use it at the same time, if each has its
/// own point and counts.
///
/// Extended are points of formats 6 and up; beyond is what a host requests beyond the contract.
template <bool isExtended, bool isObserved, bool isBeyond>
class PointMaker {
public:
    PointMaker(const PointArrays& arrays, const PointRules& rules) : arrays_(arrays), rules_(rules) {}

    /// Makes the points `begin` to before `end`, and calls put(point) for each.
    template <class Put>
    void make(LASpoint& point, std::size_t begin, std::size_t end, PointCounts& counts, Put put) const {
        run<false>(point, begin, end, counts, put);
    }

    /// Gives a point the fields that it would have after the points 0 to `last` were made of it.
    void makeLast(LASpoint& point, std::size_t last) const {
        PointCounts none(arrays_.extras.size());
        run<true>(point, last, last + 1, none, [](const LASpoint&) {});
    }

private:
    template <bool isLast, class Put>
    void run(LASpoint& point, std::size_t begin, std::size_t end, PointCounts& all, Put put) const;

    PointArrays arrays_;
    PointRules rules_;
};

/// With `isLast`, of each array its last element up to the point is taken, and nothing is counted.
template <bool isExtended, bool isObserved, bool isBeyond>
template <bool isLast, class Put>
void PointMaker<isExtended, isObserved, isBeyond>::run(LASpoint& point, std::size_t begin, std::size_t end,
                                                       PointCounts& all, Put put) const {
    // The older formats have 3 bits, so 6 and 7 are stored although the format's limit, which the warning
    // names, is 5. Deliberate: sensors that count to 7 keep their numbers.
    constexpr unsigned returnLimit = LasSettings::returnLimit(isExtended);
    constexpr bool isCounted = isObserved && !isLast;

    // Copies: stores to the extra bytes, which are bytes, would make the compiler load members again and again.
    const PointArrays in = arrays_;
    const LASquantizer quantizer = rules_.quantizer;
    const I32 reflectanceStart = rules_.reflectanceStart;
    const I32 amplitudeStart = rules_.amplitudeStart;
    [[maybe_unused]] const bool isConforming = isBeyond && rules_.isConforming;
    std::uint64_t violations = 0;
    [[maybe_unused]] ObservedCounts observed;

    const auto has = [](const auto& array, std::size_t i) {
        return isLast ? !array.empty() : i < array.size();
    };
    const auto indexIn = [](const auto& array, std::size_t i) {
        return isLast ? std::min(i, array.size() - 1) : i;
    };

    const auto limited = [&](unsigned number, [[maybe_unused]] std::size_t i) {
        if (number <= returnLimit)
            return number;
        ++violations;
        if constexpr (isCounted)
            observed.highReturns.note(i);
        return returnLimit;
    };
    const auto flag = [&](unsigned value, [[maybe_unused]] std::size_t i) {
        if constexpr (isCounted) {
            if (value > 1)
                observed.wideFlags.note(i);
        }
        return value;
    };
    const auto storeAttributes = [&](std::size_t i) {
        if (has(in.reflectance, i)) {
            const float value = in.reflectance[indexIn(in.reflectance, i)];
            const std::uint16_t raw = rawReflectance(value);
            point.set_attribute(reflectanceStart, U16{raw});
            if constexpr (isCounted)
                observed.reflectance.note((static_cast<double>(value) + 25) * 2184, raw);
        }
        if (has(in.amplitude, i)) {
            point.set_attribute(amplitudeStart, U16{in.amplitude[indexIn(in.amplitude, i)]});
        } else if (has(in.amplitudeFloat, i)) {
            const float value = in.amplitudeFloat[indexIn(in.amplitudeFloat, i)];
            const std::uint16_t raw = rawAmplitude(value);
            point.set_attribute(amplitudeStart, U16{raw});
            if constexpr (isCounted)
                observed.amplitude.note(static_cast<double>(value), raw);
        }
    };
    const auto takeAngle = [&](std::size_t i) {
        if (!has(in.scanAngle, i))
            return;
        const short angle = in.scanAngle[indexIn(in.scanAngle, i)];
        point.extended_scan_angle = angle;
        if constexpr (isBeyond && !isExtended) {
            if (isConforming) {
                const double degrees = angle * scanAngleStep;
                point.scan_angle_rank = static_cast<I8>(std::lround(std::clamp(degrees, -90.0, 90.0)));
                if constexpr (!isLast) {
                    const double change = std::abs(degrees - point.scan_angle_rank);
                    observed.roundedAngles += change > 0 ? 1U : 0U;
                    observed.maxAngleChange = std::max(observed.maxAngleChange, change);
                }
            }
        }
        if constexpr (isCounted && !isExtended)
            observed.fineAngles += !isConforming && angle != 0 ? 1U : 0U;
    };
    const auto takeRank = [&](std::size_t i) {
        if (!has(in.scanAngleRank, i))
            return;
        const signed char rank = in.scanAngleRank[indexIn(in.scanAngleRank, i)];
        point.scan_angle_rank = static_cast<I8>(rank);
        // Stored unchanged, although the wider field is in steps of 0.006 degrees: files have always
        // been that way, and their readers expect whole degrees. It takes precedence over a finer
        // angle.
        if constexpr (isExtended)
            point.extended_scan_angle =
                isConforming ? static_cast<I16>(std::lround(rank / scanAngleStep)) : I16{rank};
        if constexpr (isCounted && isExtended)
            observed.wholeAngles += !isConforming && rank != 0 ? 1U : 0U;
    };
    const auto takeColors = [&](std::size_t i) {
        if (!has(in.rgb, i))
            return;
        // 0 to 255 unchanged, although LAS requires the full 16 bits: viewers in use expect that.
        const Geom::RGB<unsigned char>& color = in.rgb[indexIn(in.rgb, i)];
        point.rgb[0] = color.red();
        point.rgb[1] = color.green();
        point.rgb[2] = color.blue();
        if constexpr (isBeyond) {
            // LAS 1.4 R15, "Point Data Record Format 2": values of 8 bits are multiplied by 256.
            if (isConforming) {
                for (U16* const channel : {&point.rgb[0], &point.rgb[1], &point.rgb[2]})
                    *channel = static_cast<U16>(*channel * 256U);
            }
        }
    };

    // Bit fields that share a byte are stored together: one by one, each store would wait for the previous
    // one.
    unsigned ownReturn = isExtended ? point.extended_return_number : point.return_number;
    unsigned allReturns = isExtended ? point.extended_number_of_returns : point.number_of_returns;
    unsigned direction = point.scan_direction_flag;
    unsigned edge = point.edge_of_flight_line;
    [[maybe_unused]] int overlapBit = point.extended_classification_flags >> 3;

    for (std::size_t i = begin; i < end; ++i) {
        if (has(in.positions, i)) {
            const Geom::PhysicalSpace::point& p = in.positions[indexIn(in.positions, i)];
            const double x = stepsFromOffset(p.x, quantizer.x_offset, quantizer.x_scale_factor);
            const double y = stepsFromOffset(p.y, quantizer.y_offset, quantizer.y_scale_factor);
            const double z = stepsFromOffset(p.z, quantizer.z_offset, quantizer.z_scale_factor);
            point.X = quantizedSteps(x);
            point.Y = quantizedSteps(y);
            point.Z = quantizedSteps(z);
            if constexpr (isCounted)
                observed.positions.note(std::abs(x - point.X), std::abs(y - point.Y), std::abs(z - point.Z));
        }
        if (has(in.classification, i)) {
            const unsigned char value = in.classification[indexIn(in.classification, i)];
            if constexpr (isExtended)
                point.extended_classification = value;
            else
                point.classification = value & 0x1F;
            if constexpr (isCounted && !isExtended)
                observed.highClasses += value > 0x1F ? 1U : 0U;
        }
        if (has(in.intensity, i))
            point.intensity = in.intensity[indexIn(in.intensity, i)];
        if (has(in.returnNumber, i)) {
            ownReturn = limited(in.returnNumber[indexIn(in.returnNumber, i)], i);
            if (!isLast && !isConforming && ownReturn != 0)
                ++all.byReturn[ownReturn - 1];
        }
        if (has(in.numberOfReturns, i))
            allReturns = limited(in.numberOfReturns[indexIn(in.numberOfReturns, i)], i);
        if (has(in.scanDirectionFlag, i))
            direction = flag(in.scanDirectionFlag[indexIn(in.scanDirectionFlag, i)], i);
        if (has(in.edgeOfFlightLine, i))
            edge = flag(in.edgeOfFlightLine[indexIn(in.edgeOfFlightLine, i)], i);
        if constexpr (isExtended) {
            point.extended_return_number = ownReturn & 0xF;
            point.extended_number_of_returns = allReturns & 0xF;
        } else {
            point.return_number = ownReturn & 0x7;
            point.number_of_returns = allReturns & 0x7;
        }
        point.scan_direction_flag = direction & 1;
        point.edge_of_flight_line = edge & 1;
        // Both may store the angle: the later element counts, and of two of the same point the rank.
        const bool isRankFirst = isLast && has(in.scanAngle, i) && has(in.scanAngleRank, i) &&
                                 indexIn(in.scanAngleRank, i) < indexIn(in.scanAngle, i);
        if (isRankFirst)
            takeRank(i);
        takeAngle(i);
        if (!isRankFirst)
            takeRank(i);
        if (has(in.userData, i))
            point.user_data = in.userData[indexIn(in.userData, i)];
        if (has(in.pointSourceID, i))
            point.point_source_ID = in.pointSourceID[indexIn(in.pointSourceID, i)];
        if (has(in.gpsTime, i))
            point.gps_time = in.gpsTime[indexIn(in.gpsTime, i)];
        takeColors(i);
        if constexpr (isBeyond) {
            for (std::size_t channel = 0; channel < in.wideColors.size(); ++channel) {
                const auto& values = in.wideColors[channel];
                const bool isNarrowLater =
                    isLast && has(values, i) && has(in.rgb, i) && indexIn(values, i) < indexIn(in.rgb, i);
                if (has(values, i) && !isNarrowLater)
                    point.rgb[channel] = values[indexIn(values, i)];
            }
            if (has(in.nearInfrared, i)) {
                point.rgb[3] = in.nearInfrared[indexIn(in.nearInfrared, i)];
                observed.nearInfrared += point.rgb[3] != 0 ? 1U : 0U;
            }
            if (has(in.synthetic, i))
                point.synthetic_flag = flag(in.synthetic[indexIn(in.synthetic, i)], i) & 1;
            if (has(in.keyPoint, i))
                point.keypoint_flag = flag(in.keyPoint[indexIn(in.keyPoint, i)], i) & 1;
            if (has(in.withheld, i))
                point.withheld_flag = flag(in.withheld[indexIn(in.withheld, i)], i) & 1;
            if (has(in.overlap, i)) {
                const unsigned bit = flag(in.overlap[indexIn(in.overlap, i)], i) & 1;
                observed.overlaps += bit;
                overlapBit = static_cast<int>(bit);
            }
            if (has(in.scannerChannel, i)) {
                const unsigned char channel = in.scannerChannel[indexIn(in.scannerChannel, i)];
                observed.scannerChannels += channel != 0 ? 1U : 0U;
                observed.highChannels += channel > 3 ? 1U : 0U;
                if constexpr (isExtended)
                    point.extended_scanner_channel = channel & 3;
            }
            if constexpr (isExtended) {
                // Writers take three of the flags from the older fields, and compressors need both to be
                // equal.
                point.extended_classification_flags = (point.synthetic_flag | point.keypoint_flag << 1 |
                                                       point.withheld_flag << 2 | overlapBit << 3) &
                                                      0xF;
            }
            for (std::size_t number = 0; number < in.extras.size(); ++number) {
                const ExtraBytesWriter& extra = in.extras[number];
                if (has(extra, i))
                    extra.put(indexIn(extra, i), point.extra_bytes, all.extras[number]);
            }
            if (isConforming) {
                storeAttributes(i);
                if constexpr (!isLast) {
                    if (ownReturn != 0)
                        ++all.byReturn[ownReturn - 1];
                    const std::array<I32, 3> stored{point.X, point.Y, point.Z};
                    for (std::size_t axis = 0; axis < stored.size(); ++axis) {
                        all.least[axis] = std::min(all.least[axis], stored[axis]);
                        all.greatest[axis] = std::max(all.greatest[axis], stored[axis]);
                    }
                }
            }
        }

        put(static_cast<const LASpoint&>(point));

        // Only now, so each point is written with the Reflectance and Amplitude of the previous one, and
        // the first of a file with zeros. Existing files are shifted in the same way, and programs
        // compensate for that: keep the order.
        if (!isConforming)
            storeAttributes(i);
    }
    all.violations += violations;
    if constexpr (!isLast)
        all.observed.add(observed);
}

} // namespace ExportLib
