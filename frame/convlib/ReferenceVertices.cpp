// SPDX-License-Identifier: Apache-2.0
#include "convlib/ReferenceVertices.hpp"

#include "sheaf/Field.hpp"

namespace ConvLib {

ReferenceVertices findReferenceVertices(const Sheaf::Grid& grid) {
    ReferenceVertices reference;
    reference.skeleton = grid.findHighestHomogenousVertexRefinement(100000000);
    const auto chart = grid.findCartesianChart("");
    if (!reference.skeleton || !chart)
        return reference;
    const auto representation = reference.skeleton->representations()(chart);
    if (representation && representation->Positions())
        reference.representation = representation;
    return reference;
}

std::string whyNoReference(const ReferenceVertices& reference) {
    if (!reference.skeleton)
        return "it has no vertices of one refinement in all directions";
    return reference.representation ? std::string() : "it has no Positions in its default chart";
}

} // namespace ConvLib
