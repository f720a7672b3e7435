// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasExpectation.hpp"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace Tidewatch {

namespace {

/// Calls use(value) with the value of a column at an index, if there is one.
template <class T, class Use>
void with(const LasColumns::Column<T>& column, std::size_t i, Use use) {
    if (column && i < column->base_vector().size())
        use(column->base_vector()[i]);
}

/// The low 16 bits of a whole number; 0 if it does not fit 32 bits.
std::uint16_t low16(double whole) {
    constexpr double limit = 2147483648.0;
    if (!(whole > -limit && whole < limit))
        return 0;
    return static_cast<std::uint16_t>(static_cast<std::int64_t>(whole) & 0xFFFF);
}

} // namespace

LasExpectation::LasExpectation(const ExportLib::LasPlan& plan, const ExportLib::LasSettings& settings,
                               const std::array<double, 3>& offsets)
    : plan_(plan),
      settings_(settings) {
    // 0 steps on each axis, until there is a position.
    point_.position = {offsets[0], offsets[1], offsets[2]};
    point_.extras.resize(plan.extras.size());
}

void LasExpectation::take(LasColumns columns) {
    columns_ = std::move(columns);
    done_ = 0;
}

void LasExpectation::skipTo(std::size_t place) {
    // A value stays until the next one, so the last one of each array is all that is left of it; and of the last point
    // of all there may be something that comes late.
    std::vector<std::size_t> ends{place};
    const auto add = [&](std::size_t size) {
        if (size < place)
            ends.push_back(size);
    };
    columns_.forEach([&](std::string_view, const auto& column) { add(valuesOf(column).size()); });
    for (const LasColumns::Extra& extra : columns_.extras)
        add(extra.size());
    std::sort(ends.begin(), ends.end());
    for (const std::size_t end : ends) {
        if (end > done_)
            static_cast<void>(point(end - 1));
    }
}

const LasPoint& LasExpectation::point(std::size_t i) {
    done_ = i + 1;
    if (!settings_.conforming)
        applyLateValues();
    const bool isExtended = settings_.isExtended();
    // Bits of the fields: 4 in LAS 1.4, 3 before.
    const unsigned returnLimit = isExtended ? 15 : 7;
    const auto limited = [&](unsigned char number) {
        return static_cast<std::uint8_t>(std::min<unsigned>(number, returnLimit));
    };
    constexpr unsigned char legacyClass = 0x1F;

    with(columns_.positions, i, [&](const auto& value) { point_.position = value; });
    with(columns_.classification, i, [&](unsigned char value) {
        point_.classification = static_cast<std::uint8_t>(isExtended ? value : value & legacyClass);
    });
    with(columns_.intensity, i, [&](unsigned short value) { point_.intensity = value; });
    with(columns_.returnNumber, i, [&](unsigned char value) { point_.returnNumber = limited(value); });
    with(columns_.numberOfReturns, i, [&](unsigned char value) { point_.numberOfReturns = limited(value); });
    with(columns_.edgeOfFlightLine, i,
         [&](unsigned char value) { point_.edgeOfFlightLine = static_cast<std::uint8_t>(value & 1); });
    with(columns_.scanDirectionFlag, i,
         [&](unsigned char value) { point_.scanDirection = static_cast<std::uint8_t>(value & 1); });
    with(columns_.scanAngle, i, [&](short value) {
        if (isExtended)
            point_.scanAngle = value;
        else if (settings_.conforming)
            // Steps of 0.006 degrees to whole ones, up to 90.
            point_.scanAngle = static_cast<std::int16_t>(
                std::round(std::min(90.0, std::max(-90.0, static_cast<double>(value) * 6 / 1000))));
    });
    with(columns_.scanAngleRank, i, [&](signed char value) {
        const bool isConverted = isExtended && settings_.conforming;
        point_.scanAngle = static_cast<std::int16_t>(isConverted ? std::round(value * 1000.0 / 6) : value);
    });
    with(columns_.userData, i, [&](unsigned char value) { point_.userData = value; });
    if (settings_.pointSourceID > 0)
        point_.pointSourceID = low16(settings_.pointSourceID);
    else
        with(columns_.pointSourceID, i, [&](unsigned short value) { point_.pointSourceID = value; });
    with(columns_.gpsTime, i, [&](double value) { point_.gpsTime = value; });
    with(columns_.rgb, i, [&](const auto& value) {
        std::transform(value.begin(), value.end(), point_.rgb.begin(), [&](unsigned char channel) {
            return static_cast<std::uint16_t>(settings_.conforming ? channel << 8 : channel);
        });
    });
    if (settings_.carry)
        takeWhatIsCarried(i);

    if (plan_.hasReflectance)
        with(columns_.reflectance, i, [&](float value) {
            // In single precision, like the exporter; only the rounding is in double.
            const float steps = (value + 25.0F) * 2184.0F;
            lateReflectance_ = low16(std::round(static_cast<double>(steps)));
        });
    if (plan_.hasAmplitude) {
        with(columns_.amplitude, i, [&](unsigned short value) { lateAmplitude_ = value; });
        if (!columns_.amplitude)
            with(columns_.amplitudeFloat, i,
                 [&](float value) { lateAmplitude_ = low16(std::trunc(static_cast<double>(value))); });
    }
    if (settings_.conforming)
        applyLateValues();
    return point_;
}

void LasExpectation::takeWhatIsCarried(std::size_t i) {
    const auto flag = [&](const LasColumns::Column<unsigned char>& column, std::uint8_t& target) {
        with(column, i, [&](unsigned char value) { target = value & 1; });
    };
    flag(columns_.synthetic, point_.synthetic);
    flag(columns_.keyPoint, point_.keyPoint);
    flag(columns_.withheld, point_.withheld);
    flag(columns_.overlap, point_.overlap);
    with(columns_.scannerChannel, i, [&](unsigned char value) { point_.scannerChannel = value & 3; });
    with(columns_.nearInfrared, i, [&](unsigned short value) { point_.nearInfrared = value; });
    const LasColumns::Column<unsigned short>* const channels[] = {&columns_.red, &columns_.green,
                                                                  &columns_.blue};
    for (std::size_t channel = 0; channel < point_.rgb.size(); ++channel)
        with(*channels[channel], i, [&](unsigned short value) { point_.rgb[channel] = value; });
    for (std::size_t extra = 0; extra < columns_.extras.size(); ++extra) {
        if (const auto value = columns_.extras[extra].value(i))
            point_.extras[extra] = value;
    }
}

void LasExpectation::applyLateValues() {
    if (const auto value = std::exchange(lateReflectance_, std::nullopt))
        point_.reflectance = *value;
    if (const auto value = std::exchange(lateAmplitude_, std::nullopt))
        point_.amplitude = *value;
}

} // namespace Tidewatch
