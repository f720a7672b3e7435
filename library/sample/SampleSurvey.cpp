// SPDX-License-Identifier: Apache-2.0
#include "library/sample/SampleSurvey.hpp"

#include "anchor/WeakPtr.hpp"
#include "library/sample/CoastModel.hpp"
#include "library/sample/SampleScan.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;

/// The lower left corner of the coast, similar to UTM zone 32.
constexpr PhysicalSpace::vector corner{431000.0, 5921000.0, 0.0};

struct Tide {
    double hours;
    double level;
};
constexpr std::array<Tide, 3> tides{{{0.0, -1.6}, {3.0, 0.1}, {6.0, 1.7}}};

constexpr std::uint64_t stripCount = 4;
constexpr std::uint64_t fragmentPoints = 250'000;
constexpr std::uint64_t thinning = 8;

class ScanCreator;

/// One fragment of the scan: its generator, and the creators of its fields, all of which are filled in one
/// pass.
struct ScanFragment {
    SampleScan scan;
    std::vector<Anchor::WeakPtr<ScanCreator>> creators;
};

/// The array of one field of a fragment of the scan.
class ScanCreator final : public Sheaf::CachedCreator {
public:
    ScanCreator(std::shared_ptr<ScanFragment> fragment, std::size_t column)
        : CachedCreator(SampleScan::columns()[column].elementType, Sheaf::Extents{fragment->scan.size()}),
          fragment_(std::move(fragment)),
          column_(column) {}

protected:
    [[nodiscard]] Made make() const override {
        std::vector<Anchor::StrongPtr<Sheaf::MemBase>> arrays = fragment_->scan.make();
        Made made{arrays[column_]};
        for (const auto& weak : fragment_->creators) {
            const auto creator = weak.lock();
            if (creator && creator.get() != this)
                made.siblings.push_back({creator, arrays[creator->column_]});
        }
        return made;
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override {
        return fragment_->scan.size() * SampleScan::bytesPerPoint();
    }

private:
    std::shared_ptr<ScanFragment> fragment_;
    std::size_t column_;
};

/// An array that a function creates.
template <class T>
class FunctionCreator final : public Sheaf::CachedCreator {
public:
    FunctionCreator(const Sheaf::Extents& extents, std::function<std::vector<T>()> elements)
        : CachedCreator(typeid(T), extents),
          elements_(std::move(elements)) {}

protected:
    [[nodiscard]] Made make() const override { return {Sheaf::makeArray(*extents(), elements_())}; }
    [[nodiscard]] std::uint64_t bytesToMake() const override {
        return extents()->byteCount(sizeof(T)).value_or(0);
    }

private:
    std::function<std::vector<T>()> elements_;
};

Sheaf::Representation& makeVertices(Sheaf::Grid& grid, std::vector<std::int32_t> refinement) {
    return *grid.skeletons()
                .make({0, std::move(refinement)})
                ->representations()
                .make(grid.declareCartesianChart(std::string(Sheaf::Grid::standardChart)));
}

/// Adds the fields of a scan with a number of points. Fragments have the same names at every refinement.
void addScan(Sheaf::Grid& grid, std::vector<std::int32_t> refinement,
             const std::shared_ptr<const CoastModel>& coast, std::uint64_t seed, std::size_t slice,
             std::uint64_t points) {
    const auto level = static_cast<std::uint64_t>(refinement.front());
    Sheaf::Representation& vertices = makeVertices(grid, std::move(refinement));
    std::vector<Anchor::StrongPtr<Sheaf::Field>> fields;
    for (const SampleScan::Column& column : SampleScan::columns())
        fields.push_back(vertices.makeField(column.name, column.elementType));

    const std::uint64_t pieces = (points / stripCount + fragmentPoints) / fragmentPoints;
    for (std::uint64_t strip = 0; strip < stripCount; ++strip) {
        for (std::uint64_t piece = 0; piece < pieces; ++piece) {
            // Divided so that the numbers always add up.
            const std::uint64_t number = strip * pieces + piece;
            const auto cut = [&](std::uint64_t k) {
                const std::uint64_t whole = points / (stripCount * pieces);
                return whole * k + std::min(k, points % (stripCount * pieces));
            };
            SampleScan::Area area{};
            area.x0 = CoastModel::length * static_cast<double>(piece) / static_cast<double>(pieces);
            area.x1 = CoastModel::length * static_cast<double>(piece + 1) / static_cast<double>(pieces);
            area.y0 = CoastModel::width * static_cast<double>(strip) / static_cast<double>(stripCount);
            area.y1 = CoastModel::width * static_cast<double>(strip + 1) / static_cast<double>(stripCount);
            const CountedRandom random(seed, slice << 40 | level << 36 | number);
            auto fragment = std::make_shared<ScanFragment>(
                ScanFragment{SampleScan(coast, random, area, corner, static_cast<unsigned short>(101 + strip),
                                        tides[slice].level,
                                        tides[slice].hours * 3600.0 + static_cast<double>(strip) * 300.0,
                                        cut(number + 1) - cut(number)),
                             {}});
            const auto identifier = grid.makeFragment(fmt::format("strip{}-{:03}", strip + 1, piece));
            for (std::size_t column = 0; column < fields.size(); ++column) {
                auto creator = Anchor::makeStrong<ScanCreator>(fragment, column);
                fragment->creators.emplace_back(creator);
                fields[column]->addFragment(identifier, std::move(creator));
            }
        }
    }
}

constexpr double cell = 2.0;
constexpr std::uint64_t columnCount = 600;
constexpr std::uint64_t rowCount = 400;

/// The values of the elevation grid at the centre of a cell.
struct Cell {
    float height;
    double waterDepth;
    unsigned char type;
};

Cell cellAt(const CoastModel& coast, double tide, std::uint64_t column, std::uint64_t row) {
    const double x = (static_cast<double>(column) + 0.5) * cell;
    const double y = (static_cast<double>(row) + 0.5) * cell;
    const CoastModel::Ground ground = coast.ground(x, y);
    // Water behind the dyke, where the tide does not reach, does not belong to the sea.
    const bool isSea = y < 640.0 && ground.height < tide;
    Cell result{static_cast<float>(ground.height), isSea ? tide - ground.height : 0.0, 1};
    if (isSea)
        result.type = 3;
    else if (ground.cover == CoastModel::Cover::Flat || ground.cover == CoastModel::Cover::Seabed)
        result.type = 2;
    if (!CoastModel::isCovered(x, y))
        result.type = 0;
    return result;
}

/// Adds the columns from `first` to before `last` as a fragment; `low` and `high` are the columns shared with
/// neighbours.
void addLattice(Sheaf::Grid& grid, Sheaf::Representation& vertices, const std::string& name,
                const std::shared_ptr<const CoastModel>& coast, double tide, std::uint64_t first,
                std::uint64_t last, std::uint64_t low, std::uint64_t high) {
    const auto fragment = grid.makeFragment(name);
    Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<2>>::set(*fragment, {low, 0, 0});
    Sheaf::FragmentLocation<3, Sheaf::FragmentProperty<3>>::set(*fragment, {high, 0, 0});

    const Sheaf::MultiIndex<3> extents{last - first, rowCount, 1};
    const PhysicalSpace::point origin{corner.x + (static_cast<double>(first) + 0.5) * cell,
                                      corner.y + 0.5 * cell, 0.0};
    vertices.Positions()->addFragment(
        fragment, Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                      origin, PhysicalSpace::vector{cell, cell, 1.0}, extents)));

    const auto addField = [&]<class T>(const char* field, T Cell::*member) {
        const auto elements = [=] {
            std::vector<T> values;
            values.reserve((last - first) * rowCount);
            for (std::uint64_t row = 0; row < rowCount; ++row) {
                for (std::uint64_t column = first; column < last; ++column)
                    values.push_back(cellAt(*coast, tide, column, row).*member);
            }
            return values;
        };
        vertices.findField(field)->addFragment(
            fragment, Anchor::makeStrong<FunctionCreator<T>>(Sheaf::Extents(extents), elements));
    };
    addField("Height", &Cell::height);
    addField("WaterDepth", &Cell::waterDepth);
    addField("CellType", &Cell::type);
}

void addElevation(Sheaf::Grid& grid, const std::shared_ptr<const CoastModel>& coast, double tide) {
    Sheaf::Representation& vertices = makeVertices(grid, {});
    vertices.makeField("Positions", typeid(PhysicalSpace::point));
    vertices.makeField("Height", typeid(float));
    vertices.makeField("WaterDepth", typeid(double));
    vertices.makeField("CellType", typeid(unsigned char));
    constexpr std::uint64_t middle = columnCount / 2;
    addLattice(grid, vertices, "west", coast, tide, 0, middle + 1, 0, 1);
    addLattice(grid, vertices, "east", coast, tide, middle, columnCount, 0, 0);
}

} // namespace

Anchor::StrongPtr<Sheaf::Bundle> makeSampleSurvey(const SampleOptions& options) {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    const auto coast = std::make_shared<const CoastModel>(options.seed);
    for (std::size_t slice = 0; slice < tides.size(); ++slice) {
        const auto state = bundle->makeSlice(tides[slice].hours);
        const auto cloud = state->makeGrid("coast");
        addScan(*cloud, {0, 0, 0}, coast, options.seed, slice, options.points / thinning);
        addScan(*cloud, {1, 1, 1}, coast, options.seed, slice, options.points);
        addElevation(*state->makeGrid("elevation"), coast, tides[slice].level);
    }
    return bundle;
}

} // namespace Tidewatch
