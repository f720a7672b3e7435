// SPDX-License-Identifier: Apache-2.0
#include "convlib/ReferenceVertices.hpp"

#include "support/BundleBuilder.hpp"

#include <gtest/gtest.h>

namespace {

using ConvLib::findReferenceVertices;
using ConvLib::whyNoReference;
using Support::GridBuilder;
using Support::Points;

struct ReferenceVertices : ::testing::Test {
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(ReferenceVertices, AreThoseOfTheHighestHomogeneousRefinementWithinTheBound) {
    GridBuilder grid(*bundle, 0, "g", {1, 1});
    grid.field("Positions", "", Points{{1, 2, 3}}).skeleton({2, 2}).field("Positions", "", Points{{4, 5, 6}});
    const auto expected = grid.currentSkeleton();
    grid.skeleton({3, 4}).skeleton({100000001});
    const auto reference = findReferenceVertices(grid.grid());
    EXPECT_EQ(reference.skeleton, expected);
    EXPECT_EQ(reference.representation, expected->representations()(grid.grid().findCartesianChart("")));
    EXPECT_EQ(whyNoReference(reference), "");
}

TEST_F(ReferenceVertices, NeedARefinementThatIsTheSameInAllDirections) {
    const auto reference = findReferenceVertices(GridBuilder(*bundle, 0, "g", {1, 2}).grid());
    EXPECT_FALSE(reference.skeleton);
    EXPECT_FALSE(reference.representation);
    EXPECT_EQ(whyNoReference(reference), "it has no vertices of one refinement in all directions");
}

TEST_F(ReferenceVertices, NeedPositionsInTheDefaultChart) {
    GridBuilder grid(*bundle, 0, "g");
    grid.field("Height", "", std::vector<float>{1}).chart("zone").field("Positions", "", Points{{1, 2, 3}});
    const auto reference = findReferenceVertices(grid.grid());
    EXPECT_TRUE(reference.skeleton);
    EXPECT_FALSE(reference.representation);
    EXPECT_EQ(whyNoReference(reference), "it has no Positions in its default chart");
}

TEST_F(ReferenceVertices, AreNotThereInAnEmptyGrid) {
    EXPECT_FALSE(findReferenceVertices(*bundle->makeSlice(0)->makeGrid("g")).skeleton);
}

} // namespace
