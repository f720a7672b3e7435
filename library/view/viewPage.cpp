// SPDX-License-Identifier: Apache-2.0
#include "library/view/viewPage.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "library/view/PointClasses.hpp"
#include "library/view/ViewPart.hpp"
#include "library/view/pageTemplate.hpp"
#include "library/view/viewSystem.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Tidewatch {

namespace {

using Geom::PhysicalSpace;
using Json = nlohmann::ordered_json;

/// Small layers get at least an equal share divided by this.
constexpr std::uint64_t minShare = 4;

std::uint64_t elementsOf(const Sheaf::Field& field) {
    std::uint64_t elements = 0;
    field.forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        if (const auto extents = data->extents())
            elements += extents->elementCount().value_or(0);
        return true;
    });
    return elements;
}

/// A skeleton that has positions, with its parts of the page.
struct Layer {
    double time = 0;
    std::string grid;
    std::string origin;
    int dimension = 0;
    std::vector<std::int32_t> refinement;
    bool isDefault = false;
    bool isLattice = false;
    Anchor::StrongPtr<Sheaf::Representation> representation;
    /// Points or places of the input, and how many of them the page should have.
    std::uint64_t of = 0;
    std::uint64_t wanted = 0;
    std::unique_ptr<PointPart> points;
    std::vector<SurfacePart> surfaces;

    /// The part of `wanted` that a fragment of these extents has.
    [[nodiscard]] std::uint64_t shareOf(const Sheaf::Extents& extents) const {
        const std::uint64_t places = extents.elementCount().value_or(0);
        return wanted == of
                   ? places
                   : static_cast<std::uint64_t>(static_cast<double>(wanted) * static_cast<double>(places) /
                                                static_cast<double>(of));
    }

    [[nodiscard]] std::uint64_t chosen() const {
        std::uint64_t count = points ? points->chosen() : 0;
        for (const SurfacePart& surface : surfaces)
            count += surface.chosen();
        return count;
    }
};

std::vector<Layer> findLayers(const Sheaf::Bundle& bundle, const Selection& selection) {
    std::vector<Layer> layers;
    selection.forEachGrid(bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
        const auto chart = grid.findCartesianChart("");
        const auto usual = grid.findHighestHomogenousVertexRefinement(std::numeric_limits<int>::max());
        grid.skeletons().forEach([&](const Sheaf::Skeleton& skeleton) {
            const auto representation = skeleton.representations()(chart);
            if (!representation || !representation->Positions())
                return true;
            Layer layer;
            layer.time = time;
            layer.grid = name;
            layer.origin = grid.origin();
            layer.dimension = skeleton.dimension();
            layer.refinement = skeleton.refinement();
            layer.isDefault = usual.get() == &skeleton;
            layer.representation = representation;
            layer.isLattice = isLattice(*representation);
            layer.of = elementsOf(*representation->Positions());
            if (layer.of > 0)
                layers.push_back(std::move(layer));
            return true;
        });
    });
    return layers;
}

/// Distributes the points among the layers: in proportion, with a minimum for small ones.
void shareOut(std::vector<Layer*> open, std::uint64_t points) {
    if (open.empty())
        return;
    const std::uint64_t least = std::max<std::uint64_t>(points / (minShare * open.size()), 1);
    std::uint64_t room = points;
    for (bool isSettled = false; !isSettled && !open.empty();) {
        std::uint64_t total = 0;
        for (const Layer* layer : open)
            total += layer->of;
        const double share = std::min(1.0, static_cast<double>(room) / static_cast<double>(total));
        isSettled = true;
        std::vector<Layer*> larger;
        for (Layer* layer : open) {
            layer->wanted =
                std::min(layer->of, static_cast<std::uint64_t>(static_cast<double>(layer->of) * share));
            if (layer->wanted < std::min(least, layer->of)) {
                layer->wanted = std::min({least, layer->of, room});
                room -= layer->wanted;
                isSettled = false;
            } else {
                larger.push_back(layer);
            }
        }
        open = std::move(larger);
    }
}

/// How many places a lattice has after thinning to its share.
std::uint64_t placesLeft(const Layer& layer) {
    std::uint64_t places = 0;
    layer.representation->Positions()->forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        if (const auto extents = data->extents(); extents && extents->rank() >= 2) {
            const std::uint64_t step = latticeStep((*extents)[0], (*extents)[1], layer.shareOf(*extents));
            places += (((*extents)[0] + step - 1) / step) * (((*extents)[1] + step - 1) / step);
        }
        return true;
    });
    return places;
}

/// Lattices are thinned by whole rows and columns; what remains of their share goes to the points.
void shareOut(std::vector<Layer>& layers, std::uint64_t points) {
    std::vector<Layer*> all;
    std::vector<Layer*> clouds;
    for (Layer& layer : layers) {
        all.push_back(&layer);
        if (!layer.isLattice)
            clouds.push_back(&layer);
    }
    shareOut(all, points);
    std::uint64_t room = points;
    for (const Layer& layer : layers) {
        if (layer.isLattice)
            room -= std::min(room, placesLeft(layer));
    }
    shareOut(clouds, room);
}

/// Takes what a page holds off the limit of the memory cache, as long as the page is being made.
class CacheShare {
public:
    CacheShare() = default;
    ~CacheShare() { Anchor::Cache::MemCache().setLimit(limit_); }
    CacheShare(const CacheShare&) = delete;
    CacheShare& operator=(const CacheShare&) = delete;

    void hold(std::uint64_t bytes) const {
        Anchor::Cache::MemCache().setLimit(limit_ - std::min(limit_, bytes));
    }

private:
    std::uint64_t limit_ = Anchor::Cache::MemCache().limit();
};

/// Reads the layers one after the other, fragment by fragment.
class LayerReader {
public:
    LayerReader(Selection& selection, Progress& progress, const CacheShare& share)
        : selection_(selection),
          progress_(progress),
          share_(share) {}

    void read(std::vector<Layer>& layers) {
        std::uint64_t total = 0;
        for (const Layer& layer : layers)
            total += layer.of;
        // Packing what was chosen takes about half as long.
        progress_.begin("reading", 1.5 * static_cast<double>(total), "points");
        for (Layer& layer : layers)
            readLayer(layer);
    }

private:
    void readLayer(Layer& layer) {
        const std::uint64_t before = held_;
        const auto fields = viewFields(*layer.representation, selection_);
        layer.representation->Positions()->forEachFragment(
            [&](const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const Sheaf::Field::Creator& data) {
                progress_.check();
                const auto extents = data->extents();
                const std::uint64_t elements = extents ? extents->elementCount().value_or(0) : 0;
                progress_.piece(static_cast<double>(done_), static_cast<double>(elements));
                const auto array = data->create(false);
                if (const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(array))
                    takeLattice(layer, fields, *lattice, fragment);
                else if (const auto points =
                             Anchor::dynamicCast<Sheaf::TypedArray<PhysicalSpace::point>>(array))
                    takePoints(layer, fields, points->base_vector(), fragment);
                done_ += elements;
                // Lattices count little: they are thinned as they are taken.
                held_ = before + (layer.points ? layer.points->bytes() : 0);
                share_.hold(held_);
                return true;
            });
    }

    void takePoints(Layer& layer, const std::vector<ViewField>& fields,
                    std::span<const PhysicalSpace::point> positions,
                    const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
        if (!layer.points)
            layer.points = std::make_unique<PointPart>(fields, layer.of, layer.wanted);
        layer.points->take(positions, fragment, [this] { progress_.check(); });
    }

    void takeLattice(Layer& layer, const std::vector<ViewField>& fields,
                     const Sheaf::UniformCartesianArray& lattice,
                     const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
        const auto& extents = lattice.extents();
        const std::uint64_t columns = extents[0];
        const std::uint64_t rows = extents[1];
        const std::uint64_t places = extents.elementCount().value_or(0);
        if (places == columns * rows) {
            const auto wanted =
                static_cast<std::uint64_t>(static_cast<double>(layer.wanted) * static_cast<double>(places) /
                                           static_cast<double>(layer.of));
            layer.surfaces.emplace_back(fields, *layer.representation, lattice, fragment, wanted);
            return;
        }
        // A three-dimensional lattice is shown as points.
        std::vector<PhysicalSpace::point> positions(places);
        const auto& origin = lattice.origin();
        const auto& spacing = lattice.spacing();
        for (std::uint64_t i = 0; i < places; ++i)
            positions[i] = {origin.x + static_cast<double>(i % columns) * spacing.x,
                            origin.y + static_cast<double>(i / columns % rows) * spacing.y,
                            origin.z + static_cast<double>(i / columns / rows) * spacing.z};
        takePoints(layer, fields, positions, fragment);
    }

    Selection& selection_;
    Progress& progress_;
    const CacheShare& share_;
    std::uint64_t done_ = 0;
    std::uint64_t held_ = 0;
};

Json columnEntry(const NamedPack& pack) {
    Json entry;
    entry["name"] = pack.name;
    if (!pack.role.empty())
        entry["role"] = pack.role;
    const PackedColumn& column = pack.column;
    entry["kind"] = column.kind == PackedColumn::Kind::Integer ? "integer" : "float";
    entry["bytes"] = column.bytes.size();
    if (column.kind == PackedColumn::Kind::Integer) {
        // As strings: they may exceed the exact integers of JavaScript.
        entry["min"] = std::to_string(column.min);
        entry["max"] = std::to_string(column.max);
        entry["decimals"] = column.decimals;
    }
    entry["width"] = column.width;
    if (column.kind == PackedColumn::Kind::Integer)
        entry["gaps"] = column.hasGaps;
    return entry;
}

/// Collects the data elements of a page and creates their entries in the manifest.
class Pieces {
public:
    Json add(const char* kind, std::uint64_t count, const std::vector<NamedPack>& packs) {
        Json entry;
        entry["kind"] = kind;
        entry["data"] = fmt::format("data-{}", elements_.size());
        entry["count"] = count;
        Json& columns = entry["columns"] = Json::array();
        std::string bytes;
        for (const NamedPack& pack : packs) {
            columns.push_back(columnEntry(pack));
            bytes += pack.column.bytes;
        }
        elements_.push_back(
            fmt::format("<script type=\"application/octet-stream\" id=\"data-{}\">{}</script>\n",
                        elements_.size(), base64(bytes)));
        bytes_ += elements_.back().size();
        return entry;
    }

    [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }
    [[nodiscard]] std::vector<std::string> release() { return std::move(elements_); }

private:
    std::vector<std::string> elements_;
    std::uint64_t bytes_ = 0;
};

Json sliceEntries(const std::vector<Layer>& layers, Pieces& pieces, Progress& progress) {
    Json slices = Json::array();
    double done = 0;
    for (const Layer& layer : layers)
        done += static_cast<double>(layer.of);
    progress.piece(done, 0);
    for (const Layer& layer : layers) {
        if (slices.empty() || slices.back()["time"] != layer.time)
            slices.push_back({{"time", layer.time}, {"layers", Json::array()}});
        Json entry;
        entry["grid"] = layer.grid;
        entry["origin"] = layer.origin;
        entry["dimension"] = layer.dimension;
        entry["refinement"] = layer.refinement;
        entry["isDefault"] = layer.isDefault;
        entry["of"] = layer.of;
        Json& list = entry["pieces"] = Json::array();
        progress.check();
        if (layer.points && layer.points->chosen() > 0)
            list.push_back(pieces.add("points", layer.points->chosen(), layer.points->pack()));
        for (const SurfacePart& surface : layer.surfaces) {
            progress.check();
            Json piece = pieces.add("surface", surface.chosen(), surface.pack());
            piece["extents"] = surface.extents();
            piece["origin"] = surface.origin();
            piece["spacing"] = surface.spacing();
            piece["height"] = surface.height();
            list.push_back(std::move(piece));
        }
        slices.back()["layers"].push_back(std::move(entry));
        done += static_cast<double>(layer.of) / 2;
        progress.piece(done, 0);
    }
    return slices;
}

Json classEntries(const std::vector<Layer>& layers) {
    std::array<std::uint64_t, 256> counts{};
    for (const Layer& layer : layers) {
        if (!layer.points)
            continue;
        const auto own = layer.points->classes();
        for (std::size_t code = 0; code < own.size(); ++code)
            counts[code] += own[code];
    }
    Json list = Json::array();
    for (std::size_t code = 0; code < counts.size(); ++code) {
        if (counts[code] == 0)
            continue;
        const auto byte = static_cast<std::uint8_t>(code);
        list.push_back(
            {{"code", code}, {"name", pointClassName(byte)}, {"color", colorText(pointClassColor(byte))}});
    }
    return list;
}

Json rampEntries() {
    Json ramps;
    for (const ColorRamp& ramp : colorRamps()) {
        Json& colors = ramps[std::string(ramp.name)] = Json::array();
        for (const ViewColor& color : ramp.colors)
            colors.push_back(colorText(color));
    }
    return ramps;
}

Json fileEntries(const Inputs& inputs) {
    Json files = Json::array();
    for (const auto& report : inputs.reports())
        files.push_back({{"name", std::filesystem::path(report->file()).filename().string()},
                         {"kind", report->kind()},
                         {"notCarried", report->notCarried()}});
    return files;
}

/// A document on one line. Names come from files: invalid UTF-8 in them is replaced by U+FFFD.
std::string jsonText(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// A manifest as a script element, escaped so that it cannot end the element.
std::string manifestText(const Json& manifest) {
    const std::string json = jsonText(manifest);
    std::string text = "<script type=\"application/json\" id=\"manifest\">";
    for (const char character : json) {
        if (character == '<')
            text += "\\u003c";
        else
            text += character;
    }
    return text + "</script>\n";
}

void choose(std::vector<Layer>& layers, double share, Progress& progress) {
    for (Layer& layer : layers) {
        progress.check();
        if (layer.points) {
            const auto wanted = static_cast<std::uint64_t>(static_cast<double>(layer.wanted) * share);
            layer.points->choose(std::max<std::uint64_t>(wanted, 1));
        }
        for (SurfacePart& surface : layer.surfaces) {
            std::uint64_t step = 1;
            while (static_cast<double>(step * step) * share < 1)
                ++step;
            surface.thin(step);
        }
    }
}

std::uint64_t chosenOf(const std::vector<Layer>& layers) {
    std::uint64_t chosen = 0;
    for (const Layer& layer : layers)
        chosen += layer.chosen();
    return chosen;
}

std::uint64_t templateBytes() {
    std::uint64_t bytes = 0;
    for (const std::string_view piece : pageTemplate())
        bytes += piece.size();
    return bytes;
}

/// Inserts the data elements into the template.
std::vector<std::string> assemble(std::string manifest, std::vector<std::string> elements) {
    std::string page;
    for (const std::string_view piece : pageTemplate())
        page += piece;
    const std::size_t place = page.find(pageDataMark);
    std::vector<std::string> text;
    text.push_back(page.substr(0, place));
    text.push_back(std::move(manifest));
    std::move(elements.begin(), elements.end(), std::back_inserter(text));
    text.push_back(page.substr(place + pageDataMark.size()));
    return text;
}

} // namespace

std::string viewTitle(const std::vector<std::string>& files) {
    constexpr std::size_t most = 3;
    std::vector<std::string> names;
    for (const std::string& file : files) {
        if (names.size() < most)
            names.push_back(std::filesystem::path(file).filename().string());
    }
    std::string title = joined(names);
    if (files.size() > most)
        title += " and " + std::to_string(files.size() - most) + " more";
    return title;
}

bool canMakeViewPages() {
    return !pageTemplate().empty();
}

ViewPage makeViewPage(const Inputs& inputs, const ViewPageOptions& options, Progress& progress) {
    if (!canMakeViewPages())
        throw Anchor::LimitError(
            "this build cannot write pages, since npm's packages were not installed for it "
            "(scripts/setup.sh installs them); -o FILE.png writes a picture");
    Selection selection(options.filters);
    std::vector<Layer> layers = findLayers(*inputs.bundle(), selection);
    if (layers.empty())
        throw Anchor::ModelError("there is nothing to show: no chosen grid has positions");
    const ViewSystem system = viewSystem(*inputs.bundle(), selection);
    shareOut(layers, options.points.value_or(ViewPageOptions::defaultPoints));
    const CacheShare cached;
    LayerReader(selection, progress, cached).read(layers);
    // Nothing is read any more.
    cached.hold(std::numeric_limits<std::uint64_t>::max());

    progress.say("choosing and packing points");
    ViewPage page;
    for (const Layer& layer : layers)
        page.of += layer.of;
    double share = 1;
    bool isReduced = false;
    for (;;) {
        choose(layers, share, progress);
        Pieces pieces;
        Json manifest;
        manifest["format"] = 1;
        manifest["title"] = options.title;
        manifest["program"] = options.program;
        manifest["system"] = system.title.empty() ? Json() : Json(system.title);
        manifest["unit"] = system.unit;
        manifest["files"] = fileEntries(inputs);
        Json slices = sliceEntries(layers, pieces, progress);
        const std::uint64_t bytes = pieces.bytes() + templateBytes() + jsonText(slices).size() + 20'000;
        if (!options.points && bytes > ViewPageOptions::usualBytes && share > 1e-4) {
            share *= 0.97 * static_cast<double>(ViewPageOptions::usualBytes) / static_cast<double>(bytes);
            isReduced = true;
            continue;
        }
        page.points = chosenOf(layers);
        if (page.points < page.of)
            page.notes.push_back(fmt::format(
                "the page shows {} of {}: of points one for each cell of space, of lattices every so many rows and "
                "columns; no class and no time is left out",
                grouped(page.points), counted(page.of, "point")));
        if (isReduced)
            page.notes.push_back(fmt::format("there are fewer than {} points to limit the page to {} MB; "
                                             "--points allows more",
                                             grouped(ViewPageOptions::defaultPoints),
                                             ViewPageOptions::usualBytes / 1'000'000));
        manifest["notes"] = page.notes;
        manifest["classes"] = classEntries(layers);
        manifest["ramps"] = rampEntries();
        manifest["slices"] = std::move(slices);
        page.text = assemble(manifestText(manifest), pieces.release());
        return page;
    }
}

} // namespace Tidewatch
