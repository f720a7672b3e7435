// SPDX-License-Identifier: Apache-2.0
#include "library/points/choosePoints.hpp"

#include "anchor/Error.hpp"
#include "library/points/ChosenCreator.hpp"
#include "library/points/GridBuilder.hpp"
#include "library/points/WindowCreator.hpp"
#include "library/points/pointTests.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Lattice = Sheaf::UniformCartesianArray;
using MayGoOn = std::function<void()>;
using Masks = std::vector<Anchor::StrongPtr<const FragmentMask>>;

/// The first place along an axis of a lattice whose coordinate is not below a bound.
std::uint64_t firstPlaceFrom(double bound, double origin, double spacing, std::uint64_t places) {
    std::uint64_t first = 0;
    for (std::uint64_t left = places; left != 0;) {
        const std::uint64_t half = left / 2;
        if (origin + static_cast<double>(first + half) * spacing < bound) {
            first += half + 1;
            left -= half + 1;
        } else {
            left = half;
        }
    }
    return first;
}

/// Ignores z: heights are values of cells, not coordinates of the lattice.
LatticeWindow windowOf(const Lattice& lattice, const PointBox& box) {
    LatticeWindow window{{0, 0, 0}, {0, 0, lattice.extents()[2]}};
    const auto along = [&](std::size_t axis, double lower, double upper, double origin, double spacing) {
        const std::uint64_t places = lattice.extents()[axis];
        window.first[axis] = firstPlaceFrom(lower, origin, spacing, places);
        const std::uint64_t end = firstPlaceFrom(upper, origin, spacing, places);
        window.count[axis] = end > window.first[axis] ? end - window.first[axis] : 0;
    };
    along(0, box.lower.x, box.upper.x, lattice.origin().x, lattice.spacing().x);
    along(1, box.lower.y, box.upper.y, lattice.origin().y, lattice.spacing().y);
    return window;
}

Anchor::StrongPtr<Lattice> partOf(const Lattice& lattice, const LatticeWindow& window) {
    const auto at = [](std::uint64_t place, double origin, double spacing) {
        return origin + static_cast<double>(place) * spacing;
    };
    const auto& origin = lattice.origin();
    const auto& spacing = lattice.spacing();
    return Anchor::makeStrong<Lattice>(
        Geom::PhysicalSpace::point{at(window.first[0], origin.x, spacing.x),
                                   at(window.first[1], origin.y, spacing.y), origin.z},
        spacing, Sheaf::MultiIndex<3>{window.count[0], window.count[1], window.count[2]});
}

/// How one fragment is reduced.
struct Part {
    /// For points.
    std::shared_ptr<ChosenCreator::Family> points;
    /// For a lattice.
    std::optional<LatticeWindow> window;
    Anchor::StrongPtr<Lattice> lattice;
    /// The number of elements of the whole fragment.
    std::uint64_t elements = 0;
    /// Nothing is chosen from it.
    bool isWhole = false;
};

/// The representation of vertices in the default chart if it has positions, else null.
Anchor::StrongPtr<Sheaf::Representation> decidingRepresentation(const Sheaf::Grid& grid,
                                                                const Sheaf::Skeleton& skeleton) {
    if (skeleton.dimension() != 0)
        return nullptr;
    auto deciding = skeleton.representations()(grid.findCartesianChart({}));
    return deciding && deciding->Positions() ? deciding : nullptr;
}

bool isLattice(const Sheaf::Field::Creator& positions) {
    return Anchor::dynamicCast<Lattice>(positions->available()) != nullptr;
}

/// Whether a grid has points to choose from.
bool hasPoints(const Sheaf::Grid& grid) {
    bool has = false;
    grid.skeletons().iterate_all([&](const Sheaf::FieldFragment& item) {
        has = item.skeleton.dimension() == 0 && item.id.name() == "Positions" && !isLattice(item.data);
        return !has;
    });
    return has;
}

class Chooser {
public:
    /// `keepsLattices`: those that have nothing to choose by stay as they are.
    Chooser(const PointChoice& choice, bool keepsLattices, const MayGoOn& mayGoOn, double time,
            const Sheaf::Grid& from, Sheaf::Grid& to, std::vector<std::string>& notes, Masks& masks)
        : choice_(choice),
          keepsLattices_(keepsLattices),
          mayGoOn_(mayGoOn),
          from_(from),
          builder_(from, to),
          notes_(notes),
          masks_(masks),
          where_(originAndGrid(from, time)) {}

    void run();

private:
    /// By fragment name; nullopt for data without a fragment.
    using Parts = std::map<std::optional<std::string>, Part>;

    [[nodiscard]] Parts partsOf(const Sheaf::Representation& deciding);
    [[nodiscard]] Part partOfLattice(const Lattice& lattice) const;
    [[nodiscard]] Part partOfPoints(const Sheaf::Representation& deciding,
                                    const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                    const Sheaf::Field::Creator& positions);
    void fill(const Parts& parts, const Sheaf::Representation& from, Sheaf::Representation& to) const;
    [[nodiscard]] Sheaf::Field::Creator dataOf(const Part& part, const Sheaf::Field::Creator& whole,
                                               const std::string& field) const;
    void note(const std::string& text) const { notes_.push_back(where_ + ": " + text); }

    const PointChoice& choice_;
    bool keepsLattices_;
    const MayGoOn& mayGoOn_;
    const Sheaf::Grid& from_;
    GridBuilder builder_;
    std::vector<std::string>& notes_;
    Masks& masks_;
    std::string where_;
    std::map<Sheaf::Skeleton::Key, Parts> parts_;
};

void Chooser::run() {
    bool hasOthers = false;
    const auto takes = [&](const Sheaf::Skeleton& skeleton) {
        const auto deciding = decidingRepresentation(from_, skeleton);
        if (deciding)
            parts_[skeleton.key()] = partsOf(*deciding);
        hasOthers = hasOthers || !deciding;
        return static_cast<bool>(deciding);
    };
    builder_.build(takes, [&](const Sheaf::Skeleton& skeleton, const Sheaf::Representation& from,
                              Sheaf::Representation& to) { fill(parts_.at(skeleton.key()), from, to); });
    if (hasOthers)
        note("skeletons that are not vertices with positions are left out, since points are chosen");
}

Chooser::Parts Chooser::partsOf(const Sheaf::Representation& deciding) {
    Parts parts;
    bool hasCells = false;
    bool keepsCells = false;
    deciding.Positions()->forEachFragment([&](const auto& fragment, const auto& positions) {
        const auto lattice = Anchor::dynamicCast<Lattice>(positions->available());
        Part part = lattice ? partOfLattice(*lattice) : partOfPoints(deciding, fragment, positions);
        hasCells = hasCells || lattice;
        keepsCells = keepsCells || part.lattice || part.isWhole;
        parts.emplace(nameOf(fragment), std::move(part));
        return true;
    });
    if (hasCells && !keepsCells)
        note("no cell centre is inside the box");
    else if (hasCells && (!choice_.classes.empty() || choice_.returns))
        note("it is a lattice, from which no classes or returns can be chosen; it stays");
    return parts;
}

Part Chooser::partOfLattice(const Lattice& lattice) const {
    if ((!choice_.classes.empty() || choice_.returns) && !keepsLattices_)
        throw Anchor::ModelError(where_ +
                                 ": classes and returns are chosen from points, and this is a lattice; "
                                 "--cells-as-points makes points of its cells");
    Part part;
    part.elements = lattice.extents().elementCount().value_or(0);
    part.isWhole = !choice_.box;
    if (part.isWhole)
        return part;
    part.window = windowOf(lattice, *choice_.box);
    if (part.window->places() != 0)
        part.lattice = Tidewatch::partOf(lattice, *part.window);
    return part;
}

Part Chooser::partOfPoints(const Sheaf::Representation& deciding,
                           const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                           const Sheaf::Field::Creator& positions) {
    Part part;
    part.elements = statedElements(*positions);
    const auto mask = Anchor::makeStrong<FragmentMask>(
        part.elements, pointTests(choice_, deciding, fragment, where_, mayGoOn_));
    masks_.emplace_back(mask);
    part.points = std::make_shared<ChosenCreator::Family>(mask, where_);
    return part;
}

void Chooser::fill(const Parts& parts, const Sheaf::Representation& from, Sheaf::Representation& to) const {
    from.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field& field) {
        const auto copy = GridBuilder::addField(to, id.name(), field);
        field.forEachFragment([&](const auto& fragment, const auto& data) {
            const auto part = parts.find(nameOf(fragment));
            if (part == parts.end())
                note(fmt::format("a part of {} is left out: it belongs to no positions", id.name()));
            else if (auto chosen = dataOf(part->second, data, id.name()))
                copy->addFragment(builder_.fragment(fragment), std::move(chosen));
            return true;
        });
        return true;
    });
}

/// Null if nothing is left of a lattice.
Sheaf::Field::Creator Chooser::dataOf(const Part& part, const Sheaf::Field::Creator& whole,
                                      const std::string& field) const {
    if (part.isWhole)
        return whole;
    if (part.window && !part.lattice)
        return nullptr;
    if (part.window && Anchor::dynamicCast<Lattice>(whole->available()))
        return Anchor::makeStrong<Sheaf::HeldCreator>(part.lattice);
    if (statedElements(*whole) != part.elements)
        throw Anchor::ModelError(fmt::format("{}: {} has {} for {}", where_, field,
                                             counted(statedElements(*whole), "value"),
                                             counted(part.elements, part.window ? "cell" : "point")));
    if (part.window) {
        if (const std::size_t rank = whole->extents()->rank(); rank < 2 || rank > 3)
            throw Anchor::ModelError(
                fmt::format("{}: {} has {} instead of 2 or 3 axes, as a lattice has", where_, field, rank));
        return Anchor::makeStrong<WindowCreator>(whole, *part.window, where_ + ": " + field);
    }
    return ChosenCreator::make(part.points, whole);
}

} // namespace

ChosenPoints choosePoints(const Sheaf::Bundle& from, const PointChoice& choice, const Selection& selection,
                          const MayGoOn& mayGoOn) {
    ChosenPoints result;
    bool keepsLattices = false;
    selection.forEachGrid(from, [&](double, const std::string&, const Sheaf::Grid& grid) {
        keepsLattices = keepsLattices || hasPoints(grid);
    });
    result.bundle = rebuilt(from, selection, [&](double time, const Sheaf::Grid& grid, Sheaf::Grid& copy) {
        Chooser chooser(choice, keepsLattices, mayGoOn, time, grid, copy, result.notes, result.masks);
        chooser.run();
    });
    return result;
}

} // namespace Tidewatch
