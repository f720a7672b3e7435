// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Skeleton.hpp"

#include <functional>
#include <map>
#include <string>

namespace Sheaf {

/// A visitor over the fields of all skeletons of a grid.
class TIDEWATCH_API ConstSkeletonIterator {
public:
    virtual ~ConstSkeletonIterator();

    /// Called once per field and fragment with the skeleton, the field's name and the creator of the data;
    /// false ends the traversal. Not called for a field without any fragment.
    virtual bool apply(const Skeleton& skeleton, const std::string& fieldName,
                       const Anchor::StrongPtr<CreativeArrayBase, Anchor::Creature>& data) = 0;
};

/// One item in the traversal of everything in a grid. The references are valid during the call.
struct FieldFragment {
    const Skeleton& skeleton;
    const BaseSpace& space;
    const Representation& representation;
    const FieldID& id;
    const Field& field;
    const Anchor::StrongPtr<FragmentID>& fragment;
    const Anchor::StrongPtr<CreativeArrayBase, Anchor::Creature>& data;
};

/// The skeletons of a grid, ordered by dimension and then by refinement (lexicographically).
class TIDEWATCH_API SkeletonMap {
public:
    /// The vertex skeleton (dimension 0) of a homogeneous refinement level, or null; -1 finds the one of the
    /// highest homogeneous refinement. If several skeletons have the level, the first.
    [[nodiscard]] Anchor::StrongPtr<Skeleton> findVertices(int level) const;

    /// The vertex skeleton of the highest homogeneous refinement that is at most `bound`, or null.
    [[nodiscard]] Anchor::StrongPtr<Skeleton> findHighestVertices(int bound) const;

    /// Visits every fragment of every field in every representation of every skeleton.
    void iterate(ConstSkeletonIterator& visitor) const;

    /// The same traversal with full information about each item; false ends it.
    void iterate_all(const std::function<bool(const FieldFragment&)>& visit) const;

    /// Visits the skeletons in order; false ends the traversal.
    void forEach(const std::function<bool(const Skeleton&)>& visit) const;

    /// The skeleton of a dimension and refinement, or null.
    [[nodiscard]] Anchor::StrongPtr<Skeleton> find(const Skeleton::Key& key) const;

    /// Adds a skeleton. Throws Anchor::ModelError if there already is one of that dimension and refinement.
    Anchor::StrongPtr<Skeleton> make(const Skeleton::Key& key, std::int32_t exclusionMark = 0);

private:
    std::map<Skeleton::Key, Anchor::StrongPtr<Skeleton>> skeletons_;
};

} // namespace Sheaf
