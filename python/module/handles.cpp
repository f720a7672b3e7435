// SPDX-License-Identifier: Apache-2.0
#include "python/module/handles.hpp"

#include "library/report/Wording.hpp"
#include "python/module/Operation.hpp"
#include "python/module/arrayFrom.hpp"
#include "python/module/errors.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/HeldCreator.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace Tidewatch::Python {

namespace {

constexpr const char* positionsField = "Positions";

std::uint64_t countOf(const Sheaf::CreativeArrayBase& data) {
    const auto extents = data.extents();
    return extents ? extents->elementCount().value_or(0) : 0;
}

bool isLattice(const Creator& data) {
    return data != nullptr && Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data->available()) != nullptr;
}

std::string nameOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) {
    return fragment ? "fragment \"" + fragment->name() + "\"" : std::string("the fragment");
}

std::vector<std::size_t> asSizes(const std::vector<py::ssize_t>& shape) {
    return {shape.begin(), shape.end()};
}

/// Whether values of a shape have three components for each place of an array; nullopt if they do not fit it.
std::optional<bool> isTripleIn(std::vector<std::size_t> shape, std::vector<std::size_t> places) {
    // The axis of a single layer is left out, and may be there.
    if (places.size() == 2 && shape.size() > 2 && shape.front() == 1)
        shape.erase(shape.begin());
    if (shape == places)
        return false;
    places.push_back(3);
    return shape == places ? std::optional(true) : std::nullopt;
}

Creator held(Anchor::StrongPtr<Sheaf::MemBase> array) {
    return Anchor::makeStrong<Sheaf::HeldCreator>(std::move(array));
}

/// The first values of a grid or fragment: they decide about its length.
struct First {
    bool isTriple;
    Sheaf::Extents extents;
};

First firstOf(const Values& values, const std::string& name) {
    const std::vector<std::size_t> shape = values.shape();
    const bool isTriple = shape.size() == 2 && shape[1] == 3;
    if (shape.size() != 1 && !isTriple)
        raise(PyExc_ValueError, name + ": an array of shape " + values.shapeText() +
                                    " is not a list of values, (n,), or of points or colours, (n, 3)");
    if (const auto wanted = isTripleByName(name); wanted && *wanted != isTriple)
        raise(PyExc_ValueError, name + ": takes an array of shape " + (*wanted ? "(n, 3)" : "(n,)") +
                                    ", not " + values.shapeText());
    return {isTriple, Sheaf::Extents{shape[0]}};
}

} // namespace

void requireUnused(const BundleState& state) {
    if (state.users != 0)
        raise(PyExc_RuntimeError,
              "the bundle is in use, by an export or the like in another thread, and must not "
              "change meanwhile");
}

const SharedState& BundleHandle::state() const {
    if (!state_)
        raise(PyExc_ValueError, "the bundle is closed");
    return state_;
}

std::string GridHandle::text() const {
    return (grid->origin().empty() ? std::string() : grid->origin() + ": ") + gridAtTime(grid->name(), time);
}

FieldsHandle::FieldsHandle(GridHandle grid)
    : grid_(std::move(grid)),
      skeleton_(grid_.grid->findHighestHomogenousVertexRefinement(std::numeric_limits<int>::max())) {}

FieldsHandle::FieldsHandle(GridHandle grid, Anchor::StrongPtr<Sheaf::Skeleton> skeleton)
    : grid_(std::move(grid)),
      skeleton_(std::move(skeleton)) {}

Anchor::StrongPtr<Sheaf::Representation> FieldsHandle::representation() const {
    return skeleton_ ? skeleton_->representations()(grid_.grid->findCartesianChart("")) : nullptr;
}

Sheaf::Representation& FieldsHandle::madeRepresentation() {
    // Another thread may have made it meanwhile.
    if (!skeleton_)
        skeleton_ = grid_.grid->skeletons().find({0, {}});
    if (!skeleton_)
        skeleton_ = grid_.grid->skeletons().make({0, {}});
    auto chart = grid_.grid->findCartesianChart("");
    if (!chart)
        chart = grid_.grid->declareCartesianChart(std::string(Sheaf::Grid::standardChart));
    return *skeleton_->representations().make(chart);
}

void FieldsHandle::countChosen() const {
    if (!grid_.state->inputs.isChosen())
        return;
    const InUse used(grid_.state);
    perform(py::none(), [&](const auto&) { grid_.state->inputs.countChosen(); });
}

std::vector<std::string> FieldsHandle::names() const {
    std::vector<std::string> names;
    if (const auto fields = representation())
        fields->forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
            names.push_back(id.name());
            return true;
        });
    return names;
}

bool FieldsHandle::contains(const std::string& name) const {
    const auto fields = representation();
    return fields && fields->findField(name.c_str());
}

Anchor::StrongPtr<Sheaf::Field> FieldsHandle::field(const std::string& name) const {
    const auto fields = representation();
    const auto found = fields ? fields->findField(name.c_str()) : nullptr;
    if (!found)
        raise(PyExc_KeyError, grid_.text() + " has no field \"" + name + "\"; there are " + listed(names()));
    return found;
}

std::vector<FieldsHandle::Piece> FieldsHandle::piecesOf(const std::string& name) const {
    std::vector<Piece> pieces;
    field(name)->forEachFragment([&](const auto& fragment, const Creator& data) {
        pieces.push_back({fragment, data});
        return true;
    });
    return pieces;
}

py::array FieldsHandle::get(const std::string& name) const {
    const auto found = field(name);
    std::vector<Creator> creators;
    for (const Piece& piece : piecesOf(name))
        creators.push_back(piece.data);
    return creators.size() == 1 ? viewOf(creators.front(), textOf(name))
                                : joinedOf(creators, found->getElementType(), textOf(name));
}

std::vector<FieldsHandle::Piece> FieldsHandle::layoutBeside(const std::string& name) const {
    const std::vector<std::string> fields = names();
    if (name != positionsField && std::find(fields.begin(), fields.end(), positionsField) != fields.end())
        return piecesOf(positionsField);
    for (const std::string& other : fields) {
        if (other != name)
            return piecesOf(other);
    }
    return {};
}

void FieldsHandle::replace(const std::string& name, const std::type_info& elementType,
                           const std::vector<Piece>& pieces) {
    Sheaf::Representation& fields = madeRepresentation();
    std::optional<Sheaf::FieldEncoding> encoding;
    const auto adopt = [&](const Anchor::StrongPtr<Sheaf::Field>& from) {
        if (!encoding && from && from->getElementType() == elementType)
            encoding = from->encoding();
    };
    adopt(fields.findField(name.c_str()));
    if (const auto model = grid_.state->models.find(grid_.grid.get()); model != grid_.state->models.end()) {
        const FieldsHandle other({grid_.state, grid_.time, model->second});
        if (other.contains(name))
            adopt(other.field(name));
    }
    fields.removeField(name);
    const auto made = fields.makeField(name, elementType);
    if (encoding)
        made->setEncoding(*encoding);
    for (const Piece& piece : pieces)
        made->addFragment(piece.fragment, piece.data);
}

void FieldsHandle::set(const std::string& name, const py::object& from, const std::string& elementType) {
    requireUnused(*grid_.state);
    const Values values(from, name);
    if (name == positionsField && latticeOf(nullptr))
        raise(PyExc_ValueError, name + ": those of a lattice follow from its origin and spacing");
    countChosen();
    const std::vector<Piece> layout = layoutBeside(name);
    if (layout.empty()) {
        const First first = firstOf(values, name);
        const std::type_info& type = values.elementType(first.isTriple, elementType, nullptr);
        const Creator data = held(values.copy(type, first.extents));
        requireUnused(*grid_.state);
        replace(name, type, {{nullptr, data}});
        return;
    }
    std::vector<Sheaf::Extents> extents;
    std::uint64_t elements = 0;
    for (const Piece& piece : layout) {
        extents.push_back(piece.data->extents().value_or(Sheaf::Extents{0}));
        elements += countOf(*piece.data);
    }
    const std::vector<std::size_t> places =
        layout.size() == 1 ? asSizes(shapeOf(extents.front())) : std::vector<std::size_t>{elements};
    const auto isTriple = isTripleIn(values.shape(), places);
    if (!isTriple)
        raise(PyExc_ValueError, name + ": an array of shape " + values.shapeText() + " does not fit " +
                                    grid_.text() + ", whose fields have the shape " + shapeText(places) +
                                    " (and a 3 behind it for points and colours)");
    const std::type_info& type = values.elementType(*isTriple, elementType, nullptr);
    std::vector<Piece> pieces;
    std::size_t first = 0;
    for (std::size_t i = 0; i < layout.size(); ++i) {
        pieces.push_back({layout[i].fragment, held(values.copy(type, extents[i], first))});
        first += countOf(*layout[i].data);
    }
    requireUnused(*grid_.state);
    replace(name, type, pieces);
}

void FieldsHandle::remove(const std::string& name) {
    static_cast<void>(field(name));
    requireUnused(*grid_.state);
    representation()->removeField(name);
}

std::vector<Anchor::StrongPtr<Sheaf::FragmentID>> FieldsHandle::fragments() const {
    std::vector<Anchor::StrongPtr<Sheaf::FragmentID>> fragments;
    const std::vector<std::string> fields = names();
    if (!fields.empty()) {
        for (const Piece& piece : piecesOf(contains(positionsField) ? positionsField : fields.front()))
            fragments.push_back(piece.fragment);
    }
    return fragments;
}

py::array FieldsHandle::getOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                              const std::string& name) const {
    const Creator data = field(name)->getCreator(fragment);
    if (!data)
        raise(PyExc_KeyError, textOf(name) + ": has nothing for " + nameOf(fragment));
    return viewOf(data, textOf(name));
}

void FieldsHandle::setOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const std::string& name,
                         const py::object& from, const std::string& elementType) {
    requireUnused(*grid_.state);
    const Values values(from, name);
    if (name == positionsField && latticeOf(fragment))
        raise(PyExc_ValueError, name + ": those of a lattice follow from its origin and spacing");
    countChosen();
    // The same fragment of another field decides about the shape, and other fragments of the field about its type.
    Creator beside;
    for (const std::string& other : names()) {
        if (other != name && (beside == nullptr || other == positionsField)) {
            if (const Creator data = field(other)->getCreator(fragment))
                beside = data;
        }
    }
    std::vector<Piece> pieces;
    const std::type_info* existing = nullptr;
    if (contains(name)) {
        for (const Piece& piece : piecesOf(name)) {
            const bool isThis =
                fragment ? piece.fragment && piece.fragment->name() == fragment->name() : !piece.fragment;
            if (!isThis) {
                if ((piece.fragment == nullptr) != (fragment == nullptr))
                    raise(PyExc_ValueError, textOf(name) + ": is not divided into fragments");
                pieces.push_back(piece);
                existing = &field(name)->getElementType();
            }
        }
    }
    bool isTriple = false;
    Sheaf::Extents extents;
    if (beside) {
        extents = beside->extents().value_or(Sheaf::Extents{0});
        const std::vector<std::size_t> places = asSizes(shapeOf(extents));
        const auto fit = isTripleIn(values.shape(), places);
        if (!fit)
            raise(PyExc_ValueError, name + ": an array of shape " + values.shapeText() + " does not fit " +
                                        nameOf(fragment) + ", whose fields have the shape " +
                                        shapeText(places) + " (and a 3 behind it for points and colours)");
        isTriple = *fit;
    } else {
        const First first = firstOf(values, name);
        isTriple = first.isTriple;
        extents = first.extents;
    }
    const std::type_info& type = values.elementType(isTriple, elementType, existing);
    pieces.push_back({fragment, held(values.copy(type, extents))});
    requireUnused(*grid_.state);
    replace(name, type, pieces);
}

std::uint64_t FieldsHandle::points() const {
    if (!contains(positionsField))
        return 0;
    countChosen();
    std::uint64_t points = 0;
    for (const Piece& piece : piecesOf(positionsField))
        points += countOf(*piece.data);
    return points;
}

Creator FieldsHandle::latticeOf(const Anchor::StrongPtr<Sheaf::FragmentID>& fragment) const {
    if (!contains(positionsField))
        return nullptr;
    for (const Piece& piece : piecesOf(positionsField)) {
        const bool isMeant =
            fragment == nullptr || (piece.fragment && piece.fragment->name() == fragment->name());
        if (isMeant && isLattice(piece.data))
            return piece.data;
    }
    return nullptr;
}

} // namespace Tidewatch::Python
