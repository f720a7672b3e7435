// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/LasPlan.hpp"
#include "library/las/LasColumns.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Tidewatch {

/// One point as a reader of a LAS file should see it.
struct LasPoint {
    Geom::PhysicalSpace::point position{};
    std::uint16_t intensity = 0;
    std::uint8_t returnNumber = 1;
    std::uint8_t numberOfReturns = 1;
    std::uint8_t classification = 0;
    std::uint8_t scanDirection = 0;
    std::uint8_t edgeOfFlightLine = 0;
    std::uint8_t userData = 0;
    /// In the units of the file's own field.
    std::int16_t scanAngle = 0;
    std::uint16_t pointSourceID = 0;
    double gpsTime = 0;
    std::array<std::uint16_t, 3> rgb{};
    std::uint16_t nearInfrared = 0;
    std::uint8_t synthetic = 0;
    std::uint8_t keyPoint = 0;
    std::uint8_t withheld = 0;
    std::uint8_t overlap = 0;
    std::uint8_t scannerChannel = 0;
    /// As stored.
    std::uint16_t reflectance = 0;
    std::uint16_t amplitude = 0;
    /// The values of the plan's extras; nothing while a file's number is still that of its first byte.
    std::vector<std::optional<double>> extras = {};

    bool operator==(const LasPoint&) const = default;
};

/// The points that a file must contain for the fields that were exported, according to the exporter's
/// contract: an attribute without a value keeps that of the point before, values are cut to the width of
/// their field, and Reflectance and Amplitude come one point late, unless files conform. Written independently of the exporter's
/// code, which it serves to check.
class LasExpectation {
public:
    /// For one file with these offsets (x first). `plan` and `settings` must outlive the object.
    LasExpectation(const ExportLib::LasPlan& plan, const ExportLib::LasSettings& settings,
                   const std::array<double, 3>& offsets);

    /// Continues with the next fragment.
    void take(LasColumns columns);

    /// A point of the fragment; must be called in order, once for each point.
    [[nodiscard]] const LasPoint& point(std::size_t i);

    /// Goes on with a later point of the fragment, as if point() had been called for all before it.
    void skipTo(std::size_t place);

private:
    void applyLateValues();
    void takeWhatIsCarried(std::size_t i);

    const ExportLib::LasPlan& plan_;
    const ExportLib::LasSettings& settings_;
    LasColumns columns_;
    /// The number of points of the fragment that are behind.
    std::size_t done_ = 0;
    LasPoint point_;
    std::optional<std::uint16_t> lateReflectance_;
    std::optional<std::uint16_t> lateAmplitude_;
};

} // namespace Tidewatch
