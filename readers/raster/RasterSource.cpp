// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterSource.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/Extents.hpp"
#include "sheaf/Grid.hpp"

#include <algorithm>
#include <cstddef>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

// Keys of arrays: bands count from 1.
constexpr std::uint64_t cellTypes = 0;

constexpr const char* fragment = "000000";

/// Reorders some rows from the file's order to ascending y and x.
template <class T>
void turn(std::span<T> pixels, const Raster::Description& raster) {
    const auto width = static_cast<std::ptrdiff_t>(raster.width);
    const auto height = static_cast<std::ptrdiff_t>(pixels.size()) / width;
    const auto row = [&](std::ptrdiff_t number) { return pixels.begin() + number * width; };
    if (raster.placing.rowsDescend) {
        for (std::ptrdiff_t low = 0, high = height - 1; low < high; ++low, --high)
            std::swap_ranges(row(low), row(low + 1), row(high));
    }
    if (raster.placing.columnsDescend) {
        for (std::ptrdiff_t number = 0; number < height; ++number)
            std::reverse(row(number), row(number + 1));
    }
}

Structure::Field fieldOf(const std::string& name, Structure::Piece piece) {
    Structure::Field field;
    field.name = name;
    field.element = piece.array.element;
    piece.fragment = fragment;
    field.pieces.push_back(std::move(piece));
    return field;
}

} // namespace

RasterSource::RasterSource(const SourceFiles& files)
    : path_(files.path),
      file_(files),
      description_(file_.describe()) {}

Structure RasterSource::structure(const Tick&) {
    const std::vector<std::uint64_t> extents{description_.width, description_.height, 1};
    Structure::Representation fields;
    fields.chart = Sheaf::Grid::standardChart;
    const auto add = [&](const std::string& name, Structure::Piece piece) {
        piece.array.extents = extents;
        fields.fields.push_back(fieldOf(name, std::move(piece)));
    };
    const auto& [corner, spacing, columnsDescend, rowsDescend] = description_.placing;
    add("Positions", {{},
                      {"", 0, std::string(Sheaf::ElementTraits<Sheaf::Element::Point>::name), {}},
                      Structure::Lattice{{corner.x, corner.y, corner.z}, {spacing.x, spacing.y, spacing.z}}});
    for (std::size_t band = 0; band < description_.bands.size(); ++band)
        add(fmt::format("Band{}", band + 1),
            {{},
             {fmt::format("band {}", band + 1),
              band + 1,
              std::string(Sheaf::elementTypeName(*description_.bands[band].element)),
              {}},
             {}});
    add("CellType",
        {{}, {"the cell types", cellTypes, std::string(Sheaf::ElementTraits<unsigned char>::name), {}}, {}});

    Structure structure;
    structure.kind = fmt::format("raster ({}), {} band{}", description_.driver, description_.bands.size(),
                                 description_.bands.size() == 1 ? "" : "s");
    structure.isSingleGrid = true;
    structure.notCarried = description_.notCarried;
    Structure::Skeleton vertices;
    vertices.representations.push_back(std::move(fields));
    Structure::Grid grid;
    grid.charts.push_back({std::string(Sheaf::Grid::standardChart), description_.referenceSystem});
    grid.skeletons.push_back(std::move(vertices));
    structure.slices.emplace_back().grids.push_back(std::move(grid));
    return structure;
}

std::vector<std::string> RasterSource::read(const Structure::Array& array, ArrayMemory& target,
                                            std::uint64_t most, const Tick& tick) {
    const auto refuse = [&](const std::string& reason) {
        throw Anchor::LimitError(
            fmt::format("{}: {}: {}", Anchor::printable(path_), Anchor::printable(array.object), reason));
    };
    if (description_.blockBytes > most)
        refuse(fmt::format("needs {} bytes of memory for a block of the file, and {} are allowed",
                           description_.blockBytes, most));
    const bool isBand = array.key != cellTypes && array.key <= description_.bands.size();
    const std::type_info& element =
        isBand ? *description_.bands[array.key - 1].element : typeid(unsigned char);
    bool bandsDiffer = false;
    bool isRead = false;
    Sheaf::visitElementType(element, [&](auto tag) {
        using T = typename decltype(tag)::type;
        const auto bytes = Sheaf::Extents{description_.width, description_.height}.byteCount(sizeof(T));
        if constexpr (Raster::pixelType<T> != GDT_Unknown) {
            if (array.element != Sheaf::ElementTraits<T>::name || bytes != target.size())
                return;
            std::span<std::byte> memory;
            const Raster::RowTarget rows{
                [&](std::uint64_t first, std::uint64_t count) {
                    const std::uint64_t rowBytes = description_.width * sizeof(T);
                    const std::uint64_t begin =
                        description_.placing.rowsDescend ? description_.height - first - count : first;
                    const double share =
                        static_cast<double>(first) / static_cast<double>(description_.height);
                    return memory = target.piece(begin * rowBytes, count * rowBytes, [&] { tick(share); });
                },
                [&] {
                    turn(std::span(reinterpret_cast<T*>(memory.data()), memory.size() / sizeof(T)),
                         description_);
                }};
            if (isBand)
                file_.readBand<T>(array.key - 1, rows, tick);
            else if constexpr (std::is_same_v<T, unsigned char>)
                bandsDiffer = file_.readValidity(rows, tick);
            isRead = true;
        }
    });
    if (!isRead)
        throw Anchor::FileError(
            fmt::format("{}: has been changed since it was opened", Anchor::printable(path_)));
    return bandsDiffer ? std::vector<std::string>{"values of bands where another band has no-data"}
                       : std::vector<std::string>();
}

} // namespace Tidewatch
