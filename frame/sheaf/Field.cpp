// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Field.hpp"

#include "anchor/Error.hpp"
#include "sheaf/FieldID.hpp"

#include <utility>

namespace Sheaf {

FragmentID::~FragmentID() = default;
FieldID::~FieldID() = default;
FragmentIterator::~FragmentIterator() = default;
Field::~Field() = default;

namespace {

std::optional<std::string> keyOf(const Anchor::StrongPtr<FragmentID>& fragment) {
    return fragment ? std::optional(fragment->name()) : std::nullopt;
}

} // namespace

const Anchor::StrongPtr<Field>& Field::NullPtrField() {
    static const Anchor::StrongPtr<Field> none;
    return none;
}

void Field::addFragment(Anchor::StrongPtr<FragmentID> fragment, Creator data) {
    if (!data)
        throw Anchor::ModelError("a fragment without a creator for its data");
    const auto key = keyOf(fragment);
    if (!pieces_.try_emplace(key, Piece{std::move(fragment), std::move(data)}).second)
        throw Anchor::ModelError(key ? "two fragments named \"" + *key + "\" in one field"
                                     : std::string("data without a fragment, twice in one field"));
}

std::vector<Anchor::StrongPtr<FragmentID>> Field::getFragmentIDs() const {
    std::vector<Anchor::StrongPtr<FragmentID>> identifiers;
    identifiers.reserve(pieces_.size());
    for (const auto& [key, piece] : pieces_)
        identifiers.push_back(piece.fragment);
    return identifiers;
}

Field::Creator Field::getCreator(const Anchor::StrongPtr<FragmentID>& fragment) const {
    const auto found = pieces_.find(keyOf(fragment));
    return found != pieces_.end() ? found->second.data : nullptr;
}

void Field::iterate(FragmentIterator& visitor, const FragmentSelector& selector) const {
    forEachFragment([&](const Anchor::StrongPtr<FragmentID>& fragment, const Creator& data) {
        return (selector && !selector(fragment)) || visitor.apply(fragment, data);
    });
}

void Field::forEachFragment(
    const std::function<bool(const Anchor::StrongPtr<FragmentID>&, const Creator&)>& visit) const {
    for (const auto& [key, piece] : pieces_) {
        if (!visit(piece.fragment, piece.data))
            return;
    }
}

void expandBoundingBox(const Field& positions, Geom::BoundingBox& box) {
    positions.forEachFragment([&](const Anchor::StrongPtr<FragmentID>&, const Field::Creator& data) {
        ExpandBBox(box, *data, true);
        return true;
    });
}

} // namespace Sheaf
