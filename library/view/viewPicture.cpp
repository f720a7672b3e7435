// SPDX-License-Identifier: Apache-2.0
#include "library/view/viewPicture.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "library/view/Canvas.hpp"
#include "library/view/PointClasses.hpp"
#include "library/view/Relief.hpp"
#include "library/view/ViewColumn.hpp"
#include "library/view/ViewFields.hpp"
#include "library/view/viewSystem.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Colors = ViewPictureOptions::Colors;
using Geom::PhysicalSpace;

constexpr ViewColor paper{250, 251, 252};
constexpr ViewColor ink{23, 33, 43};
constexpr ViewColor soft{96, 108, 120};
constexpr ViewColor red{211, 66, 58};

constexpr std::size_t stride = 65'536;

/// A grid to draw: the vertices that exporters use.
struct Drawn {
    std::vector<ViewField> fields;
    Anchor::StrongPtr<Sheaf::Representation> representation;
    bool isSurface = false;
};

struct Chosen {
    double time = 0;
    std::size_t slices = 0;
    std::vector<Drawn> grids;
};

/// The grids of the first chosen slice; lattices only if there are no points.
Chosen choose(const Sheaf::Bundle& bundle, const Filters& filters) {
    Selection selection(filters);
    Chosen chosen;
    std::optional<double> last;
    selection.forEachGrid(bundle, [&](double time, const std::string&, const Sheaf::Grid& grid) {
        const auto vertices = grid.findHighestHomogenousVertexRefinement(std::numeric_limits<int>::max());
        const auto representation = vertices ? vertices->representations()(grid.findCartesianChart(""))
                                             : Anchor::StrongPtr<Sheaf::Representation>();
        if (!representation || !representation->Positions())
            return;
        if (last != time)
            ++chosen.slices;
        last = time;
        if (chosen.slices > 1)
            return;
        chosen.time = time;
        chosen.grids.push_back(
            {viewFields(*representation, selection), representation, isLattice(*representation)});
    });
    const bool hasPoints = std::any_of(chosen.grids.begin(), chosen.grids.end(),
                                       [](const Drawn& grid) { return !grid.isSurface; });
    if (hasPoints)
        std::erase_if(chosen.grids, [](const Drawn& grid) { return grid.isSurface; });
    return chosen;
}

std::string_view roleOf(Colors colors) {
    switch (colors) {
    case Colors::Class:
        return "class";
    case Colors::Intensity:
        return "intensity";
    case Colors::Return:
        return "return";
    case Colors::RGB:
        return "red";
    default:
        return {};
    }
}

bool hasRole(const std::vector<Drawn>& grids, std::string_view role) {
    return std::any_of(grids.begin(), grids.end(), [&](const Drawn& grid) {
        return std::any_of(grid.fields.begin(), grid.fields.end(),
                           [&](const ViewField& field) { return field.role == role; });
    });
}

/// The values of a fragment that pixels store: integers unchanged, colours in three bytes.
class Values {
public:
    Values(const Drawn& grid, Colors colors, const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
        if (roleOf(colors).empty())
            return;
        const auto add = [&](std::string_view role) {
            for (const ViewField& field : grid.fields) {
                const auto creator =
                    field.role == role ? field.field->getCreator(fragment) : Sheaf::Field::Creator();
                if (creator)
                    parts_.push_back(Part(creator->create(false), field.component));
            }
        };
        add(roleOf(colors));
        if (colors == Colors::RGB) {
            add("green");
            add("blue");
        }
    }

    [[nodiscard]] std::uint32_t operator()(std::size_t i) const {
        std::uint32_t value = 0;
        for (const Part& part : parts_)
            value = value << 8 | part(i);
        return value;
    }

private:
    /// A component of an array of one of the types that attributes with roles have.
    class Part {
    public:
        Part(const Anchor::StrongPtr<Anchor::Cacheable>& array, std::size_t component)
            : bytes_(Anchor::dynamicCast<Sheaf::TypedArray<unsigned char>>(array)),
              words_(Anchor::dynamicCast<Sheaf::TypedArray<unsigned short>>(array)),
              colors_(Anchor::dynamicCast<Sheaf::TypedArray<Sheaf::Element::Color>>(array)),
              component_(component) {}

        [[nodiscard]] std::uint32_t operator()(std::size_t i) const {
            if (bytes_)
                return i < bytes_->base_vector().size() ? bytes_->base_vector()[i] : 0U;
            if (words_)
                return i < words_->base_vector().size() ? words_->base_vector()[i] : 0U;
            if (colors_)
                return i < colors_->base_vector().size() ? colors_->base_vector()[i][component_] : 0U;
            return 0;
        }

    private:
        Anchor::StrongPtr<Sheaf::TypedArray<unsigned char>> bytes_;
        Anchor::StrongPtr<Sheaf::TypedArray<unsigned short>> words_;
        Anchor::StrongPtr<Sheaf::TypedArray<Sheaf::Element::Color>> colors_;
        std::size_t component_;
    };

    std::vector<Part> parts_;
};

/// Visits the positions of the grids twice, in the same order.
class Painter {
public:
    Painter(const std::vector<Drawn>& grids, Progress& progress) : grids_(grids), progress_(progress) {}

    /// The box of all positions.
    Geom::BoundingBox survey() {
        Geom::BoundingBox box;
        forEachFragment([&](const Drawn&, const auto&, const Sheaf::Field::Creator& data) {
            if (const auto bounds = Sheaf::boundsOf(*data, true, [this] { progress_.check(); }))
                box.expand(*bounds);
        });
        return box;
    }

    void draw(Relief& relief, Colors colors) {
        forEachFragment([&](const Drawn& grid, const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                            const Sheaf::Field::Creator& data) {
            const auto array = data->create(false);
            if (const auto points = Anchor::dynamicCast<Sheaf::TypedArray<PhysicalSpace::point>>(array))
                drawPoints(relief, points->base_vector(), Values(grid, colors, fragment));
            else if (const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(array))
                drawLattice(relief, grid, *lattice, fragment, Values(grid, colors, fragment));
        });
    }

    [[nodiscard]] std::uint64_t points() const {
        std::uint64_t count = 0;
        for (const Drawn& grid : grids_) {
            grid.representation->Positions()->forEachFragment(
                [&](const auto&, const Sheaf::Field::Creator& data) {
                    if (const auto extents = data->extents())
                        count += extents->elementCount().value_or(0);
                    return true;
                });
        }
        return count;
    }

private:
    template <class Visit>
    void forEachFragment(Visit&& visit) {
        for (const Drawn& grid : grids_) {
            grid.representation->Positions()->forEachFragment(
                [&](const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const Sheaf::Field::Creator& data) {
                    progress_.check();
                    const auto extents = data->extents();
                    const auto size = static_cast<double>(extents ? extents->elementCount().value_or(0) : 0);
                    progress_.piece(done_, size);
                    visit(grid, fragment, data);
                    done_ += size;
                    return true;
                });
        }
    }

    void drawPoints(Relief& relief, std::span<const PhysicalSpace::point> points, const Values& values) {
        for (std::size_t begin = 0; begin < points.size(); begin += stride) {
            progress_.check();
            const std::size_t end = std::min(begin + stride, points.size());
            for (std::size_t i = begin; i < end; ++i)
                relief.take(points[i].x, points[i].y, points[i].z, values(i));
        }
    }

    /// Each pixel gets the values of the nearest place.
    void drawLattice(Relief& relief, const Drawn& grid, const Sheaf::UniformCartesianArray& lattice,
                     const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const Values& values) {
        const std::uint64_t columns = lattice.extents()[0];
        const std::uint64_t rows = lattice.extents()[1];
        std::vector<std::uint32_t> all(columns * rows);
        std::iota(all.begin(), all.end(), 0U);
        const auto columnNamed = [&](const std::string& name) {
            std::unique_ptr<ViewColumn> column;
            const auto& field = grid.representation->findField(name.c_str());
            const auto creator = field ? field->getCreator(fragment) : Sheaf::Field::Creator();
            if (creator && (column = ViewColumn::make(field->getElementType(), 0)))
                column->take(creator->create(false), all);
            return column;
        };
        const auto heights = columnNamed(heightField(grid.fields));
        const auto types = columnNamed(cellTypeField);
        const Relief::Area& area = relief.area();
        for (std::uint32_t row = 0; row < area.height; ++row) {
            progress_.check();
            const double y = area.lowerY + (row + 0.5) * area.edge;
            const double up = std::floor((y - lattice.origin().y) / lattice.spacing().y + 0.5);
            if (!(up >= 0 && up < static_cast<double>(rows)))
                continue;
            for (std::uint32_t column = 0; column < area.width; ++column) {
                const double x = area.lowerX + (column + 0.5) * area.edge;
                const double right = std::floor((x - lattice.origin().x) / lattice.spacing().x + 0.5);
                if (!(right >= 0 && right < static_cast<double>(columns)))
                    continue;
                const std::size_t i =
                    static_cast<std::size_t>(up) * columns + static_cast<std::size_t>(right);
                if (types && types->value(i) == 0)
                    continue;
                relief.take(x, y, heights ? heights->value(i) : 0, values(i));
            }
        }
    }

    const std::vector<Drawn>& grids_;
    Progress& progress_;
    double done_ = 0;
};

/// The largest of 1, 2 and 5 times a power of ten that does not exceed a positive number.
double niceBelow(double value) {
    // Without logarithms, whose last bits differ between systems.
    double power = 1;
    while (power * 10 <= value)
        power *= 10;
    while (power > value)
        power /= 10;
    const double lead = value / power;
    return (lead >= 5 ? 5 : lead >= 2 ? 2 : 1) * power;
}

/// The legend beside the map.
struct Legend {
    std::string title;
    /// For scales.
    const ColorRamp* ramp = nullptr;
    double low = 0;
    double high = 1;
    /// For classes.
    std::vector<std::pair<ViewColor, std::string>> entries;
};

/// The layout in pixels; the text size depends on that of the picture.
struct Layout {
    std::int64_t scale;
    std::int64_t margin;
    std::int64_t top;
    std::int64_t bottom;
    std::int64_t right;

    Layout(const ViewPictureOptions::Size& size, bool hasLegend)
        : scale(std::min(size.width, size.height) >= 1600  ? 3
                : std::min(size.width, size.height) >= 600 ? 2
                                                           : 1),
          margin(8 * scale),
          top(margin + 8 * (scale + 1) + 11 * scale + margin),
          bottom(margin + 22 * scale + margin),
          right(hasLegend ? std::min<std::int64_t>(6 * scale * 25, size.width / 3) : margin) {}
};

Relief::Area areaFor(const Geom::BoundingBox& box, const ViewPictureOptions::Size& size,
                     const Layout& layout) {
    const auto width = static_cast<double>(size.width - layout.margin - layout.right);
    const auto height = static_cast<double>(size.height - layout.top - layout.bottom);
    const double extentX = box.upper().x - box.lower().x;
    const double extentY = box.upper().y - box.lower().y;
    Relief::Area area;
    area.edge = std::max(extentX / (width - 1), extentY / (height - 1));
    if (!(area.edge > 0 && std::isfinite(area.edge)))
        area.edge = 1;
    area.width = static_cast<std::uint32_t>(std::min(width, std::floor(extentX / area.edge) + 1));
    area.height = static_cast<std::uint32_t>(std::min(height, std::floor(extentY / area.edge) + 1));
    area.lowerX = box.lower().x;
    area.lowerY = box.lower().y;
    return area;
}

/// The number that the colour of a pixel shows.
double shownNumber(const Relief& relief, std::size_t pixel, Colors colors) {
    return colors == Colors::Height ? relief.height(pixel) : static_cast<double>(relief.value(pixel));
}

Legend legendOf(const Relief& relief, Colors colors) {
    Legend legend;
    if (colors == Colors::RGB)
        return legend;
    if (colors == Colors::Class) {
        legend.title = "Class";
        std::array<bool, 256> isThere{};
        for (std::size_t pixel = 0; pixel < relief.size(); ++pixel) {
            if (relief.isThere(pixel))
                isThere[relief.value(pixel) & 0xFF] = true;
        }
        for (std::size_t code = 0; code < isThere.size(); ++code) {
            const auto byte = static_cast<std::uint8_t>(code);
            if (isThere[code])
                legend.entries.emplace_back(pointClassColor(byte),
                                            fmt::format("{} {}", code, pointClassName(byte)));
        }
        return legend;
    }
    legend.title = colors == Colors::Height ? "Height" : colors == Colors::Intensity ? "Intensity" : "Return";
    legend.ramp = &colorRamp(colors == Colors::Height      ? "height"
                             : colors == Colors::Intensity ? "intensity"
                                                           : "steps");
    std::vector<double> numbers;
    for (std::size_t pixel = 0; pixel < relief.size(); ++pixel) {
        if (relief.isThere(pixel))
            numbers.push_back(shownNumber(relief, pixel, colors));
    }
    if (numbers.empty())
        return legend;
    // Leaves out one percent at either end, since single outliers would use up the range of colours.
    const std::size_t cut = colors == Colors::Return ? 0 : numbers.size() / 100;
    const auto at = [&](std::size_t rank) {
        std::nth_element(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(rank), numbers.end());
        return numbers[rank];
    };
    legend.low = at(cut);
    legend.high = at(numbers.size() - 1 - cut);
    return legend;
}

ViewColor colorOf(const Relief& relief, std::size_t pixel, Colors colors, const Legend& legend) {
    const std::uint32_t value = relief.value(pixel);
    if (colors == Colors::RGB)
        return {static_cast<std::uint8_t>(value >> 16 & 0xFF), static_cast<std::uint8_t>(value >> 8 & 0xFF),
                static_cast<std::uint8_t>(value & 0xFF)};
    if (colors == Colors::Class)
        return pointClassColor(static_cast<std::uint8_t>(value & 0xFF));
    const double span = legend.high - legend.low;
    return legend.ramp->at(span > 0 ? (shownNumber(relief, pixel, colors) - legend.low) / span : 0.5);
}

void drawMap(Canvas& canvas, const Relief& relief, Colors colors, const Legend& legend, std::int64_t left,
             std::int64_t top) {
    const Relief::Area& area = relief.area();
    // Heights are exaggerated, since large areas are flat.
    constexpr double stretch = 2;
    for (std::uint32_t row = 0; row < area.height; ++row) {
        for (std::uint32_t column = 0; column < area.width; ++column) {
            const std::size_t pixel = std::size_t{row} * area.width + column;
            if (!relief.isThere(pixel))
                continue;
            ViewColor color = colorOf(relief, pixel, colors, legend);
            const double light = 0.45 + 0.75 * relief.light(column, row, stretch);
            for (std::uint8_t& part : color)
                part = static_cast<std::uint8_t>(std::min(255.0, part * light + 0.5));
            canvas.set(left + column, top + area.height - 1 - row, color);
        }
    }
}

std::string cut(const std::string& text, std::int64_t width, std::int64_t scale) {
    if (Canvas::textWidth(text, scale) <= width)
        return text;
    const auto most = static_cast<std::size_t>(std::max<std::int64_t>(width / (6 * scale), 3));
    std::string shorter;
    std::size_t characters = 0;
    for (const char character : text) {
        const bool begins = (static_cast<unsigned char>(character) & 0xC0U) != 0x80U;
        if (begins && ++characters > most - 2)
            break;
        shorter += character;
    }
    return shorter + "..";
}

void drawLegend(Canvas& canvas, const Legend& legend, const Layout& layout, std::int64_t left,
                std::int64_t width, std::int64_t height) {
    const std::int64_t scale = layout.scale;
    std::int64_t y = layout.top;
    canvas.text(left, y, legend.title, scale, ink);
    y += 14 * scale;
    if (legend.ramp != nullptr) {
        const std::int64_t bar = std::min<std::int64_t>(height / 2, 150 * scale);
        for (std::int64_t row = 0; row < bar; ++row)
            canvas.fill(left, y + row, 10 * scale, 1,
                        legend.ramp->at(1 - static_cast<double>(row) / static_cast<double>(bar - 1)));
        const double span = legend.high - legend.low;
        const double step = span > 0 ? niceBelow(span / 3) : 1;
        const double first = std::ceil(legend.low / step - 1e-9);
        for (double k = first; k * step <= legend.high + step * 1e-9 && k - first < 20; ++k) {
            const double share = span > 0 ? (k * step - legend.low) / span : 0.5;
            const std::int64_t at =
                y + static_cast<std::int64_t>((1 - share) * static_cast<double>(bar - 1) + 0.5);
            canvas.fill(left + 10 * scale, at, 3 * scale, scale, ink);
            canvas.text(left + 16 * scale, at - 3 * scale,
                        shortestText(std::round(k * step * 1e9) / 1e9 + 0.0), scale, ink);
        }
        return;
    }
    for (const auto& [color, name] : legend.entries) {
        if (y + 12 * scale > layout.top + height)
            break;
        canvas.fill(left, y, 7 * scale, 7 * scale, color);
        canvas.text(left + 11 * scale, y, cut(name, width - 11 * scale, scale), scale, ink);
        y += 12 * scale;
    }
}

void drawScaleBar(Canvas& canvas, const Layout& layout, double edge, const std::string& unit,
                  std::int64_t bottom) {
    const std::int64_t scale = layout.scale;
    const double length = niceBelow(edge * static_cast<double>(90 * scale));
    const auto pixels = static_cast<std::int64_t>(length / edge + 0.5);
    const std::int64_t y = bottom - layout.margin - 3 * scale;
    canvas.text(layout.margin, y - 13 * scale, shortestText(length) + " " + unit, scale, ink);
    canvas.fill(layout.margin, y, pixels, scale, ink);
    canvas.fill(layout.margin, y - 3 * scale, scale, 4 * scale, ink);
    canvas.fill(layout.margin + pixels - scale, y - 3 * scale, scale, 4 * scale, ink);
}

void drawNorthArrow(Canvas& canvas, const Layout& layout, std::int64_t middle, std::int64_t bottom) {
    const std::int64_t scale = layout.scale;
    const std::int64_t tip = bottom - layout.margin - 20 * scale;
    canvas.arrow(middle, tip, 5 * scale, 14 * scale, red);
    canvas.arrow(middle, tip + 19 * scale, 3 * scale, -5 * scale, soft);
    canvas.text(middle + 8 * scale, tip + 6 * scale, "N", scale, ink);
}

} // namespace

ViewPicture makeViewPicture(const Inputs& inputs, const ViewPictureOptions& options, Progress& progress) {
    const Chosen chosen = choose(*inputs.bundle(), options.filters);
    if (chosen.grids.empty())
        throw Anchor::ModelError("there is nothing to show: no chosen grid has positions");
    Colors colors = options.colors;
    if (colors != Colors::Automatic && colors != Colors::Height && !hasRole(chosen.grids, roleOf(colors)))
        throw Anchor::ModelError("the chosen grids have no field for --color");
    const bool mayBeClass = colors == Colors::Automatic && hasRole(chosen.grids, "class");
    const bool isPicture =
        colors == Colors::Automatic && chosen.grids.front().isSurface && hasRole(chosen.grids, "red");
    if (colors == Colors::Automatic)
        colors = isPicture ? Colors::RGB : mayBeClass ? Colors::Class : Colors::Height;

    Painter painter(chosen.grids, progress);
    ViewPicture picture;
    picture.points = painter.points();
    progress.begin("drawing", 2 * static_cast<double>(picture.points), "points");
    const Geom::BoundingBox box = painter.survey();
    if (box.empty() || !std::isfinite(box.upper().x - box.lower().x) ||
        !std::isfinite(box.upper().y - box.lower().y))
        throw Anchor::ModelError("there is nothing to show: no position has finite coordinates");
    const Layout layout(options.size, colors != Colors::RGB);
    Relief relief(areaFor(box, options.size, layout));
    relief.setZero(std::isfinite(box.lower().z) ? box.lower().z : 0);
    painter.draw(relief, colors);

    // Closes gaps no wider than the distance between neighbouring points.
    const double pixelsPerPoint =
        static_cast<double>(relief.size()) / static_cast<double>(std::max<std::uint64_t>(picture.points, 1));
    constexpr double widest = 12;
    relief.closeGaps(static_cast<unsigned>(std::min(widest, std::ceil(std::sqrt(pixelsPerPoint)))));

    Legend legend = legendOf(relief, colors);
    constexpr std::size_t several = 3;
    if (mayBeClass && legend.entries.size() < several) {
        colors = Colors::Height;
        legend = legendOf(relief, colors);
    }

    ViewImage& image = picture.image;
    image.width = options.size.width;
    image.height = options.size.height;
    image.pixels.resize(std::size_t{3} * image.width * image.height);
    Canvas canvas(image);
    const std::int64_t width = image.width;
    const std::int64_t height = image.height;
    canvas.fill(0, 0, width, height, paper);
    const std::int64_t mapWidth = width - layout.margin - layout.right;
    const std::int64_t mapHeight = height - layout.top - layout.bottom;
    drawMap(canvas, relief, colors, legend, layout.margin + (mapWidth - relief.area().width) / 2,
            layout.top + (mapHeight - relief.area().height) / 2);
    const std::int64_t scale = layout.scale;
    canvas.text(layout.margin, layout.margin, cut(options.title, width - 2 * layout.margin, scale + 1),
                scale + 1, ink);
    std::string line = counted(picture.points, "point");
    if (chosen.slices > 1)
        line += ", time " + shortestText(chosen.time) + fmt::format(", the first of {}", chosen.slices);
    canvas.text(layout.margin, layout.margin + 8 * (scale + 1) + 3 * scale,
                cut(line, width - 2 * layout.margin, scale), scale, soft);
    if (colors != Colors::RGB)
        drawLegend(canvas, legend, layout, width - layout.right + layout.margin,
                   layout.right - 2 * layout.margin, mapHeight);
    const ViewSystem known = viewSystem(*inputs.bundle(), Selection(options.filters));
    // The font has no degree sign.
    const std::string unit = known.unit == "\xC2\xB0" ? "deg" : known.unit;
    drawScaleBar(canvas, layout, relief.area().edge, unit.empty() ? "units" : unit, height);
    drawNorthArrow(canvas, layout, layout.margin + 130 * scale, height);
    const std::string system =
        cut("System: " + (known.title.empty() ? "not stated" : known.title), width / 2, scale);
    canvas.text(width - layout.margin - Canvas::textWidth(system, scale), height - layout.margin - 7 * scale,
                system, scale, soft);
    return picture;
}

} // namespace Tidewatch
