// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "geom/BoundingBox.hpp"
#include "sheaf/CreativeArrayBase.hpp"
#include "sheaf/FieldEncoding.hpp"
#include "sheaf/FragmentID.hpp"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Sheaf {

/// A visitor over the fragments of a field.
class TIDEWATCH_API FragmentIterator {
public:
    virtual ~FragmentIterator();

    /// Called once per fragment (with a null identifier for the data of a field without fragments); false
    /// ends the traversal.
    virtual bool apply(const Anchor::StrongPtr<FragmentID>& fragment,
                       const Anchor::StrongPtr<CreativeArrayBase, Anchor::Creature>& data) = 0;
};

/// A quantity on the points of a skeleton, such as "Positions" or "Intensity": the data of its fragments,
/// each created on demand by a creator. Fragments are ordered by name, in ascending byte order; data without
/// a fragment comes first.
class TIDEWATCH_API Field : public Anchor::ReferenceBase<Field> {
public:
    using Creator = Anchor::StrongPtr<CreativeArrayBase, Anchor::Creature>;
    /// Whether to visit a fragment.
    using FragmentSelector = std::function<bool(const Anchor::StrongPtr<FragmentID>& fragment)>;

    explicit Field(const std::type_info& elementType) : elementType_(&elementType) {}
    ~Field() override;

    /// The shared null reference that lookups return when they find nothing.
    [[nodiscard]] static const Anchor::StrongPtr<Field>& NullPtrField();

    /// The element type that the field's arrays should have; exporters select by it. An array of another type
    /// is possible and is skipped by code that cannot use it.
    [[nodiscard]] const std::type_info& getElementType() const noexcept { return *elementType_; }

    /// How the file that it comes from stores its values, where that is known. To be set before others see the field.
    [[nodiscard]] const std::optional<FieldEncoding>& encoding() const noexcept { return encoding_; }
    void setEncoding(FieldEncoding encoding) { encoding_ = std::move(encoding); }

    /// Adds the data of a fragment. A null fragment means the data of a field without fragments. Throws
    /// Anchor::ModelError for a null creator and for a fragment that already exists.
    void addFragment(Anchor::StrongPtr<FragmentID> fragment, Creator data);

    /// The identifiers in fragment order; the one of data without a fragment is null.
    [[nodiscard]] std::vector<Anchor::StrongPtr<FragmentID>> getFragmentIDs() const;

    /// The creator of a fragment's data, found by the fragment's name (null: data without a fragment), or
    /// null.
    [[nodiscard]] Creator getCreator(const Anchor::StrongPtr<FragmentID>& fragment) const;

    /// Visits the fragments in order; an empty selector selects all of them.
    void iterate(FragmentIterator& visitor, const FragmentSelector& selector = {}) const;

    /// The same for a callable.
    void forEachFragment(
        const std::function<bool(const Anchor::StrongPtr<FragmentID>&, const Creator&)>& visit) const;

private:
    struct Piece {
        Anchor::StrongPtr<FragmentID> fragment;
        Creator data;
    };

    const std::type_info* elementType_;
    std::optional<FieldEncoding> encoding_;
    // nullopt, for data without a fragment, sorts before every name.
    std::map<std::optional<std::string>, Piece> pieces_;
};

/// Extends a box by all fragments of a positions field, creating their arrays if needed.
TIDEWATCH_API void expandBoundingBox(const Field& positions, Geom::BoundingBox& box);

} // namespace Sheaf
