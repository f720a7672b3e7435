// SPDX-License-Identifier: Apache-2.0
#include "convlib/ReferenceVertices.hpp"

#include <utility>

namespace ConvLib {

namespace {

/// Higher refinements are ignored.
constexpr int highestRefinement = 100000000;

} // namespace

ReferenceVertices findReferenceVertices(const Sheaf::Grid& grid) {
    ReferenceVertices reference{grid.findHighestHomogenousVertexRefinement(highestRefinement), nullptr};
    if (!reference.skeleton)
        return reference;
    auto representation = reference.skeleton->representations()(grid.findCartesianChart(""));
    if (representation && representation->Positions())
        reference.representation = std::move(representation);
    return reference;
}

std::string whyNoReference(const ReferenceVertices& reference) {
    if (!reference.skeleton)
        return "it has no vertices of one refinement in all directions";
    return reference.representation ? "" : "it has no Positions in its default chart";
}

} // namespace ConvLib
