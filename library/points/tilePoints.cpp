// SPDX-License-Identifier: Apache-2.0
#include "library/points/tilePoints.hpp"

#include "anchor/Error.hpp"
#include "library/points/GridBuilder.hpp"
#include "library/points/TileCreator.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/MemArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <span>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Tile = TileLayout::Tile;
using Point = Geom::PhysicalSpace::point;
using Array = Anchor::StrongPtr<Anchor::Cacheable>;

/// Roughly what a creator and its entry in its field take.
constexpr std::uint64_t bytesPerListedArray = 400;

/// A field that is cut.
struct Column {
    const Sheaf::Representation* representation;
    std::string name;
    const Sheaf::Field* field;
    std::size_t size;
    std::size_t bytesBefore;
};

/// What becomes of the vertices of one skeleton.
struct CutVertices {
    std::vector<Column> columns;
    std::map<Tile, std::shared_ptr<TileData>> tiles;

    /// Of a point with all its values.
    [[nodiscard]] std::size_t pointBytes() const {
        return columns.empty() ? 0 : columns.back().bytesBefore + columns.back().size;
    }
};

/// The representation of vertices in the default chart if it has positions, else null.
Anchor::StrongPtr<Sheaf::Representation> verticesOf(const Sheaf::Grid& grid,
                                                    const Sheaf::Skeleton& skeleton) {
    if (skeleton.dimension() != 0)
        return nullptr;
    auto vertices = skeleton.representations()(grid.findCartesianChart({}));
    return vertices && vertices->Positions() ? vertices : nullptr;
}

bool isLattice(const Sheaf::Field::Creator& positions) {
    return static_cast<bool>(Anchor::dynamicCast<Sheaf::UniformCartesianArray>(positions->available()));
}

std::uint64_t pointsIn(const Sheaf::Field& positions) {
    std::uint64_t points = 0;
    positions.forEachFragment([&](const auto&, const auto& data) {
        const auto extents = data->extents();
        points += extents ? extents->elementCount().value_or(0) : 0;
        return true;
    });
    return points;
}

/// The points of one fragment, grouped by squares; each group keeps the order of its points.
struct Grouping {
    struct Group {
        Tile tile;
        std::size_t first; // in `order`
        std::size_t count;
    };
    std::vector<Group> groups;
    std::vector<std::size_t> order;

    /// Memory that it takes for each point while it is made.
    static constexpr std::size_t bytesOfPoint = sizeof(std::size_t) + sizeof(std::uint32_t);

    /// `before` is how many points of the fragment come before these.
    Grouping(const TileLayout& layout, std::span<const Point> points, std::size_t before,
             const std::string& where) {
        std::vector<std::uint32_t> groupOf(points.size());
        std::map<Tile, std::uint32_t> known;
        std::uint32_t last = 0;
        for (std::size_t i = 0; i < points.size(); ++i) {
            const Point& p = points[i];
            if (!layout.isPlaced(p.x, p.y)) [[unlikely]]
                throw Anchor::ModelError(fmt::format("{}: point {}: x {}, y {} cannot be put into a square",
                                                     where, before + i, p.x, p.y));
            const Tile tile = layout.at(p.x, p.y);
            // Neighbours are mostly in the same square.
            if (groups.empty() || tile != groups[last].tile) {
                last = known.try_emplace(tile, static_cast<std::uint32_t>(groups.size())).first->second;
                if (last == groups.size())
                    groups.push_back({tile, 0, 0});
            }
            groupOf[i] = last;
            ++groups[last].count;
        }
        std::size_t first = 0;
        std::vector<std::size_t> next;
        for (Group& group : groups) {
            group.first = first;
            next.push_back(first);
            first += group.count;
        }
        order.resize(points.size());
        for (std::size_t i = 0; i < points.size(); ++i)
            order[next[groupOf[i]]++] = i;
    }
};

/// Copies elements of an array, which has the stated type and those of the points from `first` on, group by group.
void gather(const Anchor::Cacheable& array, std::size_t first, const Column& column, std::size_t pointBytes,
            const Grouping& grouping, std::byte* target) {
    Sheaf::visitElementType(column.field->getElementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const T* const from = dynamic_cast<const Sheaf::TypedArray<T>&>(array).base_vector().data() + first;
        for (const Grouping::Group& group : grouping.groups) {
            std::byte* to = target + group.first * pointBytes + group.count * column.bytesBefore;
            for (const std::size_t i : std::span(grouping.order).subspan(group.first, group.count)) {
                std::memcpy(to, from + i, sizeof(T));
                to += sizeof(T);
            }
        }
    });
}

class Cutter {
public:
    Cutter(const TileOptions& options, Selection& selection, std::uint64_t memoryLimit,
           Anchor::Workers* workers, Progress& progress, TiledPoints& result)
        : options_(options),
          selection_(selection),
          memoryLimit_(memoryLimit),
          workers_(workers),
          progress_(progress),
          result_(result),
          scratch_(std::make_shared<ScratchFile>(options.scratch)) {}

    /// Cuts a grid and adds what comes of it to a slice of the result.
    void cut(double time, const Sheaf::Grid& grid);

private:
    using Cuts = std::map<Sheaf::Skeleton::Key, CutVertices>;

    [[nodiscard]] bool isCut(const Sheaf::Field& positions) const;
    [[nodiscard]] CutVertices cutVertices(const Sheaf::Skeleton& skeleton,
                                          const Sheaf::Representation& vertices);
    void cutFragment(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                     const Sheaf::Field::Creator& positions, CutVertices& cut);
    [[nodiscard]] static std::size_t pointsAtOnce(const CutVertices& cut);
    void cutPoints(std::span<const Point> points, std::size_t first, const std::vector<Array>& arrays,
                   CutVertices& cut);
    [[nodiscard]] Array arrayOf(const Column& column, const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                std::size_t points);
    void fill(const CutVertices& cut, const Sheaf::Representation& from, Sheaf::Grid& grid,
              Sheaf::Representation& to, const Tile* only) const;
    void addGrid(double time, const Sheaf::Grid& from, const std::string& name, const Cuts& cuts,
                 const Tile* only);
    void note(const std::string& text) { result_.notes.push_back(where_ + ": " + text); }

    const TileOptions& options_;
    Selection& selection_;
    std::uint64_t memoryLimit_;
    Anchor::Workers* workers_;
    Progress& progress_;
    TiledPoints& result_;
    std::shared_ptr<ScratchFile> scratch_;
    std::string where_;
    double done_ = 0;
    std::uint64_t listedArrays_ = 0;
    std::set<std::string> zeros_;
};

void Cutter::cut(double time, const Sheaf::Grid& grid) {
    where_ = originAndGrid(grid, time);
    zeros_.clear();
    Cuts cuts;
    bool hasOthers = false;
    bool hasLattices = false;
    grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
        const auto vertices = verticesOf(grid, skeleton);
        if (vertices && isCut(*vertices->Positions()))
            cuts.emplace(skeleton.key(), cutVertices(skeleton, *vertices));
        else
            (vertices ? hasLattices : hasOthers) = true;
        return true;
    });
    if (cuts.empty()) {
        copyData(grid, *result_.bundle->makeSlice(time)->makeGrid(grid.name(), grid.origin()));
        return;
    }
    if (hasLattices || hasOthers)
        note("only vertices with positions are cut into squares; everything else is left out");
    if (!zeros_.empty())
        note(fmt::format("{} {} zeros where a fragment has no such values",
                         listed({zeros_.begin(), zeros_.end()}), zeros_.size() == 1 ? "is" : "are"));
    if (!options_.areGrids) {
        addGrid(time, grid, grid.name(), cuts, nullptr);
        return;
    }
    std::set<Tile> tiles;
    for (const auto& [key, one] : cuts) {
        for (const auto& [tile, data] : one.tiles)
            tiles.insert(tile);
    }
    for (const Tile& tile : tiles) {
        const std::string square = options_.layout.name(tile);
        const std::string name = grid.name() + "_" + square;
        addGrid(time, grid, name, cuts, &tile);
        result_.tiles.insert_or_assign(name, TiledPoints::Tile{grid.name(), square});
    }
}

bool Cutter::isCut(const Sheaf::Field& positions) const {
    bool hasLattice = false;
    bool hasPoints = false;
    positions.forEachFragment([&](const auto&, const auto& data) {
        (isLattice(data) ? hasLattice : hasPoints) = true;
        return true;
    });
    if (hasLattice && hasPoints)
        throw Anchor::ModelError(where_ +
                                 ": it has lattices and points, and only points are cut into squares");
    return hasPoints && positions.getElementType() == typeid(Point);
}

CutVertices Cutter::cutVertices(const Sheaf::Skeleton& skeleton, const Sheaf::Representation& vertices) {
    CutVertices cut;
    std::size_t bytes = 0;
    skeleton.representations().forEach(
        [&](const Sheaf::BaseSpace&, const Sheaf::Representation& representation) {
            representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
                const bool isPositions = &field == vertices.Positions().get();
                if (!isPositions && !selection_.UseThisField(id.name()))
                    return true;
                Sheaf::visitElementType(field.getElementType(), [&](auto tag) {
                    constexpr std::size_t size = sizeof(typename decltype(tag)::type);
                    cut.columns.push_back({&representation, id.name(), &field, size, bytes});
                    bytes += size;
                });
                return true;
            });
            return true;
        });
    vertices.Positions()->forEachFragment([&](const auto& fragment, const auto& positions) {
        cutFragment(fragment, positions, cut);
        return true;
    });
    return cut;
}

void Cutter::cutFragment(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                         const Sheaf::Field::Creator& positions, CutVertices& cut) {
    const auto stated = positions->extents();
    const auto size = static_cast<double>(stated ? stated->elementCount().value_or(0) : 0);
    progress_.piece(done_, size);
    done_ += size;
    // Held, so that the cache does not drop them in between.
    const auto places = Anchor::dynamicCast<Sheaf::TypedArray<Point>>(positions->create(false));
    if (!places)
        throw Anchor::ModelError(where_ + ": an array of positions is not of the stated type");
    const std::span<const Point> points = places->base_vector();
    std::vector<Array> arrays;
    for (const Column& column : cut.columns)
        arrays.push_back(arrayOf(column, fragment, points.size()));

    for (std::size_t first = 0; first < points.size();) {
        const std::size_t count = std::min(points.size() - first, pointsAtOnce(cut));
        cutPoints(points.subspan(first, count), first, arrays, cut);
        first += count;
    }
    if (listedArrays_ > memoryLimit_ / bytesPerListedArray)
        throw Anchor::LimitError(fmt::format("{}: squares of {} are too many for the limit of {} bytes; make "
                                             "--tile-size larger",
                                             where_, shortestText(options_.layout.size()), memoryLimit_));
}

/// How many points are copied together: enough for a square to get some hundred in most cases, few enough for little memory.
std::size_t Cutter::pointsAtOnce(const CutVertices& cut) {
    constexpr std::size_t bytes = std::size_t{16} << 20;
    return std::max<std::size_t>(1, bytes / (cut.pointBytes() + Grouping::bytesOfPoint));
}

/// Cuts some points of a fragment: those of its arrays from `first` on.
void Cutter::cutPoints(std::span<const Point> points, std::size_t first, const std::vector<Array>& arrays,
                       CutVertices& cut) {
    const std::size_t pointBytes = cut.pointBytes();
    const Grouping grouping(options_.layout, points, first, where_);
    std::vector<std::byte> bytes(points.size() * pointBytes);
    Anchor::runPieces(workers_, arrays.size(), [&](std::size_t i) {
        if (arrays[i])
            gather(*arrays[i], first, cut.columns[i], pointBytes, grouping, bytes.data());
    });
    progress_.check();
    const std::uint64_t begin = scratch_->append(bytes);
    for (const Grouping::Group& group : grouping.groups) {
        auto& data = cut.tiles[group.tile];
        if (!data) {
            data = std::make_shared<TileData>();
            data->file = scratch_;
            listedArrays_ += cut.columns.size();
        }
        data->blocks.push_back({begin + group.first * pointBytes, group.count});
        data->points += group.count;
    }
}

/// Null where a fragment has no values of a field: these are zeros.
Array Cutter::arrayOf(const Column& column, const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                      std::size_t points) {
    const auto creator = column.field->getCreator(fragment);
    if (!creator) {
        zeros_.insert(column.name);
        return nullptr;
    }
    auto array = creator->create(false);
    const auto values = Anchor::dynamicCast<Sheaf::MemBase>(array);
    const std::uint64_t count = values ? values->extents().elementCount().value_or(0) : 0;
    if (!values || values->elementType() != column.field->getElementType() || count != points)
        throw Anchor::ModelError(fmt::format("{}: {} has {} for {}", where_, column.name,
                                             counted(count, "value"), counted(points, "point")));
    return array;
}

void Cutter::fill(const CutVertices& cut, const Sheaf::Representation& from, Sheaf::Grid& grid,
                  Sheaf::Representation& to, const Tile* only) const {
    for (const Column& column : cut.columns) {
        if (column.representation != &from)
            continue;
        const auto field = GridBuilder::addField(to, column.name, *column.field);
        const auto add = [&](const Tile& tile, const std::shared_ptr<TileData>& data) {
            field->addFragment(grid.makeFragment(options_.layout.name(tile)),
                               Anchor::makeStrong<TileCreator>(data, column.field->getElementType(),
                                                               column.size, column.bytesBefore));
        };
        if (only == nullptr) {
            for (const auto& [tile, data] : cut.tiles)
                add(tile, data);
        } else if (const auto found = cut.tiles.find(*only); found != cut.tiles.end()) {
            add(*only, found->second);
        }
    }
}

/// Adds a grid with all squares, or only one.
void Cutter::addGrid(double time, const Sheaf::Grid& from, const std::string& name, const Cuts& cuts,
                     const Tile* only) {
    const auto grid = result_.bundle->makeSlice(time)->makeGrid(name, from.origin());
    GridBuilder(from, *grid)
        .build([&](const Sheaf::Skeleton& skeleton) { return cuts.contains(skeleton.key()); },
               [&](const Sheaf::Skeleton& skeleton, const Sheaf::Representation& fields,
                   Sheaf::Representation& to) { fill(cuts.at(skeleton.key()), fields, *grid, to, only); });
}

} // namespace

TiledPoints tilePoints(const Sheaf::Bundle& from, const TileOptions& options, Selection& selection,
                       std::uint64_t memoryLimit, Anchor::Workers* workers,
                       const Anchor::StrongPtr<Progress>& progress) {
    const auto told = progress ? progress : Anchor::makeStrong<Progress>();
    std::set<const Sheaf::Grid*> selected;
    std::uint64_t points = 0;
    selection.forEachGrid(from, [&](double, const std::string&, const Sheaf::Grid& grid) {
        selected.insert(&grid);
        grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
            if (const auto vertices = verticesOf(grid, skeleton))
                points += pointsIn(*vertices->Positions());
            return true;
        });
    });
    told->begin("cutting into squares", static_cast<double>(points), "points");
    TiledPoints result{Anchor::makeStrong<Sheaf::Bundle>()};
    Cutter cutter(options, selection, memoryLimit, workers, *told, result);
    Selection(Filters{}).forEachGrid(
        from, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
            if (selected.contains(&grid))
                cutter.cut(time, grid);
            else
                copyData(grid, *result.bundle->makeSlice(time)->makeGrid(name, grid.origin()));
        });
    return result;
}

} // namespace Tidewatch
