// SPDX-License-Identifier: Apache-2.0
#include "library/sample/SampleScan.hpp"

#include "geom/Color.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace Tidewatch {

namespace {

using Cover = CoastModel::Cover;
using Color = Geom::RGB<unsigned char>;
using Geom::PhysicalSpace;

/// Classes of the LAS specification ("ASPRS Standard Point Classes").
enum Class : unsigned char {
    Unclassified = 1,
    Ground = 2,
    LowPlants = 3,
    MediumPlants = 4,
    HighPlants = 5,
    House = 6,
    Water = 9
};

/// One echo of a pulse.
struct Echo {
    double height;
    Class kind;
    Cover cover;
};

struct Echoes {
    std::array<Echo, 3> list;
    std::size_t count = 0;

    void add(const Echo& echo) { list[count++] = echo; }
};

/// Properties of a surface: its reflectance in decibels and its colour.
struct Surface {
    float reflectance;
    std::array<int, 3> color;
};

Surface surfaceOf(const Echo& echo) {
    switch (echo.kind) {
    case Water:
        return {-21.0F, {52, 84, 104}};
    case House:
        return {-8.0F, {150, 72, 58}};
    case LowPlants:
        return {-7.0F, {110, 130, 70}};
    case MediumPlants:
        return {-6.5F, {84, 116, 58}};
    case HighPlants:
        return {-6.0F, {58, 94, 44}};
    default:
        break;
    }
    switch (echo.cover) {
    case Cover::Seabed:
        return {-18.0F, {92, 96, 84}};
    case Cover::Flat:
        return {-13.0F, {120, 112, 94}};
    case Cover::Beach:
        return {-4.0F, {214, 200, 162}};
    case Cover::Dune:
        return {-4.5F, {204, 194, 150}};
    case Cover::Dyke:
        return {-6.0F, {104, 138, 66}};
    default:
        return {-6.2F, {96, 140, 62}};
    }
}

unsigned char channel(double value) {
    return static_cast<unsigned char>(std::clamp(value, 0.0, 255.0));
}

double toMillimetres(double value) {
    return std::round(value * 1000.0) / 1000.0;
}

/// The fields while they are computed. The order of the members is that of columns().
struct Columns {
    std::vector<PhysicalSpace::point> positions;
    std::vector<unsigned short> intensity;
    std::vector<unsigned char> returnNumber;
    std::vector<unsigned char> numberOfReturns;
    std::vector<unsigned char> classification;
    std::vector<unsigned char> scanDirectionFlag;
    std::vector<unsigned char> edgeOfFlightLine;
    std::vector<unsigned char> userData;
    std::vector<signed char> scanAngleRank;
    std::vector<unsigned short> pointSourceID;
    std::vector<double> gpsTime;
    std::vector<Color> rgb;
    std::vector<float> reflectance;
    std::vector<unsigned short> amplitude;

    template <class Visitor>
    void forEach(Visitor&& visit) {
        visit(positions);
        visit(intensity);
        visit(returnNumber);
        visit(numberOfReturns);
        visit(classification);
        visit(scanDirectionFlag);
        visit(edgeOfFlightLine);
        visit(userData);
        visit(scanAngleRank);
        visit(pointSourceID);
        visit(gpsTime);
        visit(rgb);
        visit(reflectance);
        visit(amplitude);
    }
};

const std::array<SampleScan::Column, 14> columnList{{{"Positions", typeid(PhysicalSpace::point)},
                                                     {"Intensity", typeid(unsigned short)},
                                                     {"ReturnNumber", typeid(unsigned char)},
                                                     {"NumberOfReturns", typeid(unsigned char)},
                                                     {"Classification", typeid(unsigned char)},
                                                     {"ScanDirectionFlag", typeid(unsigned char)},
                                                     {"EdgeOfFlightLine", typeid(unsigned char)},
                                                     {"UserData", typeid(unsigned char)},
                                                     {"ScanAngleRank", typeid(signed char)},
                                                     {"PointSourceID", typeid(unsigned short)},
                                                     {"GPSTime", typeid(double)},
                                                     {"RGB", typeid(Color)},
                                                     {"Reflectance", typeid(float)},
                                                     {"Amplitude", typeid(unsigned short)}}};

/// The surfaces that a pulse at a place hits, highest first. `chance` is a random value in [0, 1).
Echoes echoesAt(const CoastModel& coast, double x, double y, double tide, double chance) {
    Echoes echoes;
    const CoastModel::Ground ground = coast.ground(x, y);
    const double water = ground.cover == Cover::Ditch ? 0.2 : coast.water(x, y, tide);
    const bool isReached = y < 640.0 || ground.cover == Cover::Ditch;
    if (isReached && ground.height < water) {
        echoes.add({water, Water, ground.cover});
        // Green light sometimes reaches the bottom of clear, shallow water.
        if (water - ground.height < 3.0 && chance < 0.3)
            echoes.add({ground.height, Ground, Cover::Seabed});
        return echoes;
    }
    if (const double roof = CoastModel::roof(x, y); roof > 0.0) {
        echoes.add({ground.height + roof, House, ground.cover});
        return echoes;
    }
    const double plants = coast.plants(x, y, ground.cover);
    if (plants > 0.0) {
        const Class kind = plants < 0.6 ? LowPlants : plants < 2.5 ? MediumPlants : HighPlants;
        echoes.add({ground.height + plants, kind, ground.cover});
        if (kind == HighPlants && chance < 0.5)
            echoes.add({ground.height + plants * (0.3 + chance), MediumPlants, ground.cover});
        if (chance > 0.35)
            return echoes;
    }
    echoes.add({ground.height, Ground, ground.cover});
    return echoes;
}

} // namespace

SampleScan::SampleScan(std::shared_ptr<const CoastModel> coast, const CountedRandom& random, const Area& area,
                       const Geom::PhysicalSpace::vector& corner, unsigned short strip, double tide,
                       double time, std::uint64_t points)
    : coast_(std::move(coast)),
      random_(random),
      area_(area),
      corner_(corner),
      strip_(strip),
      tide_(tide),
      time_(time),
      points_(points) {}

std::span<const SampleScan::Column> SampleScan::columns() {
    return columnList;
}

std::uint64_t SampleScan::bytesPerPoint() noexcept {
    std::uint64_t bytes = 0;
    Columns().forEach([&](const auto& column) {
        bytes += sizeof(typename std::remove_cvref_t<decltype(column)>::value_type);
    });
    return bytes;
}

std::vector<Anchor::StrongPtr<Sheaf::MemBase>> SampleScan::make() const {
    Columns columns;
    columns.forEach([&](auto& column) { column.reserve(points_); });

    // Scan lines run across the strip, as far apart as the points on them.
    const double alongLength = area_.x1 - area_.x0;
    const double acrossLength = area_.y1 - area_.y0;
    const double count = static_cast<double>(std::max<std::uint64_t>(points_, 1));
    const double lines = std::max(1.0, std::floor(std::sqrt(count * alongLength / acrossLength)));
    const double shareOfEdge = 1.5 * lines / count;

    std::uint64_t number = 0;
    while (number < points_) {
        // The number of a pulse is that of its first point, so the number of points is exact.
        const auto chance = [&](std::uint64_t which) { return random_.unit(number * 8 + which); };
        const double progress = static_cast<double>(number) / count;
        const double line = std::floor(progress * lines);
        const bool isBackward = std::fmod(line, 2.0) != 0.0;
        const double onLine = progress * lines - line;
        const double across = isBackward ? 1.0 - onLine : onLine;
        const double jitter = 0.5 / lines;
        const double x = area_.x0 + alongLength * std::clamp(progress + (chance(0) - 0.5) * jitter, 0.0, 1.0);
        const double y =
            area_.y0 + acrossLength * std::clamp(across + (chance(1) - 0.5) * shareOfEdge, 0.0, 1.0);

        const Echoes echoes = echoesAt(*coast_, x, y, tide_, chance(2));
        const std::uint64_t kept = std::min<std::uint64_t>(echoes.count, points_ - number);
        const double degrees = (across - 0.5) * 40.0;
        // 100 000 pulses a second, in adjusted standard GPS time of a day in 2021.
        const double time = 297000000.0 + time_ + static_cast<double>(number) * 1e-5;
        for (std::uint64_t echo = 0; echo < kept; ++echo) {
            const Echo& met = echoes.list[echo];
            const Surface surface = surfaceOf(met);
            const double grain = chance(3 + echo);
            const double height = met.height + (grain - 0.5) * 0.04;
            columns.positions.push_back({toMillimetres(corner_.x + x), toMillimetres(corner_.y + y),
                                         toMillimetres(corner_.z + height)});
            const double loss = 1.0 / static_cast<double>(kept);
            const double reflectance = std::clamp(static_cast<double>(surface.reflectance) +
                                                      (grain - 0.5) * 3.0 - (1.0 - loss) * 4.0,
                                                  -25.0, 5.0);
            const double strength = (reflectance + 25.0) / 30.0;
            columns.intensity.push_back(static_cast<unsigned short>(1.0 + strength * strength * 60000.0));
            columns.returnNumber.push_back(static_cast<unsigned char>(echo + 1));
            columns.numberOfReturns.push_back(static_cast<unsigned char>(kept));
            columns.classification.push_back(met.kind);
            columns.scanDirectionFlag.push_back(isBackward ? 0 : 1);
            columns.edgeOfFlightLine.push_back(onLine + shareOfEdge >= 1.0 ? 1 : 0);
            columns.userData.push_back(met.kind == Water ? 1 : 0);
            columns.scanAngleRank.push_back(static_cast<signed char>(degrees));
            columns.pointSourceID.push_back(strip_);
            columns.gpsTime.push_back(time);
            const double shade = 0.85 + 0.3 * grain;
            columns.rgb.push_back({{{channel(surface.color[0] * shade), channel(surface.color[1] * shade),
                                     channel(surface.color[2] * shade)}}});
            columns.reflectance.push_back(static_cast<float>(std::round(reflectance * 100.0) / 100.0));
            columns.amplitude.push_back(static_cast<unsigned short>(200.0 + strength * 3800.0));
        }
        number += kept;
    }

    std::vector<Anchor::StrongPtr<Sheaf::MemBase>> arrays;
    columns.forEach([&](auto& column) { arrays.emplace_back(Sheaf::makeArray(std::move(column))); });
    return arrays;
}

} // namespace Tidewatch
