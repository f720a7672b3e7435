// SPDX-License-Identifier: Apache-2.0
#include "library/points/choosePoints.hpp"

#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/bundleQueries.hpp"

#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::arrayOf;
using Support::dataOf;
using Support::gridAt;
using Support::GridBuilder;
using Support::modelErrorOf;
using Support::Points;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

/// A random cloud in fragments, as arrays in plain sight.
struct Cloud {
    struct Fragment {
        std::string name;
        Points positions;
        Bytes classes, numbers, counts;
        std::vector<double> extra;
    };
    std::vector<Fragment> fragments;

    Cloud(unsigned seed, const std::vector<std::size_t>& sizes) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> place(0, 10);
        for (const std::size_t size : sizes) {
            Fragment fragment;
            fragment.name = "f" + std::to_string(fragments.size());
            for (std::size_t i = 0; i < size; ++i) {
                // Whole numbers among them, to try the faces of boxes.
                const auto coordinate = [&] {
                    return random() % 3 == 0 ? std::floor(place(random)) : place(random);
                };
                fragment.positions.push_back({coordinate(), coordinate(), coordinate()});
                fragment.classes.push_back(static_cast<Byte>(random() % 12));
                fragment.counts.push_back(static_cast<Byte>(1 + random() % 4));
                fragment.numbers.push_back(static_cast<Byte>(1 + random() % fragment.counts.back()));
                fragment.extra.push_back(place(random));
            }
            fragments.push_back(std::move(fragment));
        }
    }

    [[nodiscard]] Anchor::StrongPtr<Sheaf::Bundle> bundle() const {
        auto made = Anchor::makeStrong<Sheaf::Bundle>();
        GridBuilder grid(*made, 0, "cloud");
        for (const Fragment& fragment : fragments) {
            grid.field("Positions", fragment.name, fragment.positions)
                .field("Classification", fragment.name, fragment.classes)
                .field("ReturnNumber", fragment.name, fragment.numbers)
                .field("NumberOfReturns", fragment.name, fragment.counts)
                .field("Extra", fragment.name, fragment.extra);
        }
        return made;
    }
};

void expectChosen(const PointChoice& choice,
                  const std::function<bool(const Cloud::Fragment&, std::size_t)>& isExpected) {
    const Cloud cloud(17, {0, 1, 100, 5000});
    const ChosenPoints chosen = choosePoints(*cloud.bundle(), choice, Selection(Filters{}));
    EXPECT_THAT(chosen.notes, IsEmpty());
    std::size_t kept = 0;
    for (const Cloud::Fragment& fragment : cloud.fragments) {
        Points positions;
        Bytes classes;
        std::vector<double> extra;
        for (std::size_t i = 0; i < fragment.positions.size(); ++i) {
            if (!isExpected(fragment, i))
                continue;
            positions.push_back(fragment.positions[i]);
            classes.push_back(fragment.classes[i]);
            extra.push_back(fragment.extra[i]);
        }
        kept += positions.size();
        // Before an array is made, as many are stated as there may be.
        EXPECT_EQ(dataOf(*chosen.bundle, "cloud", "Extra", fragment.name)->extents(),
                  Sheaf::Extents{fragment.positions.size()});
        EXPECT_EQ(arrayOf<double>(*chosen.bundle, "cloud", "Extra", fragment.name), extra);
        EXPECT_EQ(dataOf(*chosen.bundle, "cloud", "Positions", fragment.name)->extents(),
                  Sheaf::Extents{extra.size()});
        EXPECT_EQ(arrayOf<Byte>(*chosen.bundle, "cloud", "Classification", fragment.name), classes);
        const auto got =
            arrayOf<Geom::PhysicalSpace::point>(*chosen.bundle, "cloud", "Positions", fragment.name);
        ASSERT_EQ(got.size(), positions.size());
        for (std::size_t i = 0; i < got.size(); ++i)
            EXPECT_TRUE(got[i].x == positions[i].x && got[i].y == positions[i].y &&
                        got[i].z == positions[i].z);
    }
    EXPECT_GT(kept, 0U);
    EXPECT_LT(kept, 5101U);
}

TEST(ChoosePoints, ClassesAreThoseNamed) {
    PointChoice choice;
    choice.classes = {2, 9};
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) {
        return f.classes[i] == 2 || f.classes[i] == 9;
    });
}

TEST(ChoosePoints, ReturnsAreThoseThatAnyChoiceAdmits) {
    PointChoice choice;
    choice.returns.emplace();
    choice.returns->first = true;
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) { return f.numbers[i] == 1; });
    choice.returns.emplace();
    choice.returns->last = true;
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) { return f.numbers[i] == f.counts[i]; });
    choice.returns.emplace();
    choice.returns->only = true;
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) { return f.counts[i] == 1; });
    choice.returns.emplace();
    choice.returns->numbers = {2, 3};
    choice.returns->only = true;
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) {
        return f.numbers[i] == 2 || f.numbers[i] == 3 || f.counts[i] == 1;
    });
}

TEST(ChoosePoints, BoxHoldsItsLowerFacesAndNotItsUpperOnes) {
    PointChoice choice;
    choice.box = PointBox{{2, 3, 1}, {7, 8, 9}};
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) {
        const auto& p = f.positions[i];
        return p.x >= 2 && p.x < 7 && p.y >= 3 && p.y < 8 && p.z >= 1 && p.z < 9;
    });
    choice.box = PointBox();
    choice.box->lower.x = choice.box->lower.y = 4;
    choice.box->upper.x = choice.box->upper.y = 6;
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) {
        const auto& p = f.positions[i];
        return p.x >= 4 && p.x < 6 && p.y >= 4 && p.y < 6;
    });
}

TEST(ChoosePoints, EveryPointLiesInOneOfTheBoxesSideBySide) {
    const Cloud cloud(3, {2000});
    std::size_t sum = 0;
    for (int column = 0; column < 10; ++column) {
        PointChoice choice;
        choice.box = PointBox();
        choice.box->lower.x = column;
        choice.box->upper.x = column + 1;
        choice.box->upper.y = 10;
        sum += arrayOf<double>(*choosePoints(*cloud.bundle(), choice, Selection(Filters{})).bundle, "cloud",
                               "Extra", "f0")
                   .size();
    }
    EXPECT_EQ(sum, 2000U);
}

TEST(ChoosePoints, AllChoicesHoldAtOnce) {
    PointChoice choice;
    choice.classes = {1, 2, 3, 4, 5, 6};
    choice.returns.emplace().first = true;
    choice.box = PointBox{{1, 1, 0}, {9, 9, 10}};
    EXPECT_EQ(choice.fieldsRead(), (std::set<std::string>{"Positions", "Classification", "ReturnNumber"}));
    expectChosen(choice, [](const Cloud::Fragment& f, std::size_t i) {
        const auto& p = f.positions[i];
        return f.classes[i] >= 1 && f.classes[i] <= 6 && f.numbers[i] == 1 && p.x >= 1 && p.x < 9 &&
               p.y >= 1 && p.y < 9 && p.z >= 0 && p.z < 10;
    });
}

TEST(ChoosePoints, MasksTellHowManyBeforeArraysAreMade) {
    const Cloud cloud(4, {300});
    PointChoice choice;
    choice.classes = {5};
    const ChosenPoints chosen = choosePoints(*cloud.bundle(), choice, Selection(Filters{}));
    const auto data = dataOf(*chosen.bundle, "cloud", "Extra", "f0");
    EXPECT_EQ(data->extents(), Sheaf::Extents{300});
    for (const auto& mask : chosen.masks)
        static_cast<void>(mask->chosen());
    const auto stated = data->extents();
    EXPECT_LT((*stated)[0], 300U);
    EXPECT_EQ((*stated)[0], arrayOf<double>(*chosen.bundle, "cloud", "Extra", "f0").size());
}

TEST(ChoosePoints, ClassesMayBeOfAnyIntegerTypeAndThoseBeyondAByteAreNone) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "", Points(4))
        .field("Classification", "", std::vector<int>{2, -254, 258, 65538});
    PointChoice choice;
    choice.classes = {2};
    EXPECT_THAT(arrayOf<int>(*choosePoints(*bundle, choice, Selection(Filters{})).bundle, "cloud",
                             "Classification", ""),
                ElementsAre(2));
}

TEST(ChoosePoints, MissingOrUnfitFieldIsAnErrorThatNamesGridAndField) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud")
        .field("Positions", "a", Points(4))
        .field("ReturnNumber", "a", std::vector<float>(4))
        .field("NumberOfReturns", "a", Bytes(3));
    PointChoice choice;
    choice.classes = {2};
    EXPECT_THAT(
        modelErrorOf([&] { static_cast<void>(choosePoints(*bundle, choice, Selection(Filters{}))); }),
        AllOf(HasSubstr("grid \"cloud\" at time 0"), HasSubstr("Classification"), HasSubstr("missing")));
    choice = {};
    choice.returns.emplace().first = true;
    EXPECT_THAT(modelErrorOf([&] { static_cast<void>(choosePoints(*bundle, choice, Selection(Filters{}))); }),
                AllOf(HasSubstr("ReturnNumber"), HasSubstr("float32")));
    choice.returns.emplace().only = true;
    EXPECT_THAT(modelErrorOf([&] { static_cast<void>(choosePoints(*bundle, choice, Selection(Filters{}))); }),
                AllOf(HasSubstr("NumberOfReturns"), HasSubstr("3 values for 4 points")));
}

TEST(ChoosePoints, FieldOfAnotherLengthThanPositionsIsAnError) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud").field("Positions", "", Points(4)).field("Echo", "", Bytes(5));
    PointChoice choice;
    choice.box = PointBox{{0, 0, 0}, {1, 1, 1}};
    EXPECT_THAT(modelErrorOf([&] { static_cast<void>(choosePoints(*bundle, choice, Selection(Filters{}))); }),
                HasSubstr("Echo has 5 values for 4 points"));
}

void addLattice(Sheaf::Bundle& bundle) {
    std::vector<float> heights(20);
    for (std::size_t i = 0; i < heights.size(); ++i)
        heights[i] = static_cast<float>(i);
    GridBuilder(bundle, 0, "dem")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{100, 200, 0}, Geom::PhysicalSpace::vector{2, 3, 1},
                   Sheaf::MultiIndex<3>{5, 4, 1})))
        .field("Height", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Sheaf::Extents{5, 4, 1}, heights)));
}

Anchor::StrongPtr<Sheaf::Bundle> latticeBundle() {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    addLattice(*bundle);
    return bundle;
}

TEST(ChoosePoints, BoxTakesRowsAndColumnsOfALattice) {
    PointChoice choice;
    // Columns at 102 and 104, rows at 203 and 206: the upper faces are outside.
    choice.box = PointBox{{101, 203, 1e9}, {106, 209, 2e9}};
    const ChosenPoints chosen = choosePoints(*latticeBundle(), choice, Selection(Filters{}));
    const auto lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(
        dataOf(*chosen.bundle, "dem", "Positions", "")->available());
    ASSERT_TRUE(lattice);
    EXPECT_EQ(lattice->origin().x, 102);
    EXPECT_EQ(lattice->origin().y, 203);
    EXPECT_EQ(lattice->extents(), (Sheaf::Extents{2, 2, 1}));
    EXPECT_THAT(arrayOf<float>(*chosen.bundle, "dem", "Height", ""), ElementsAre(6, 7, 11, 12));
}

TEST(ChoosePoints, BoxBesideALatticeLeavesNoneOfItAndSaysSo) {
    PointChoice choice;
    choice.box = PointBox{{0, 0, 0}, {1, 1, 1}};
    const ChosenPoints chosen = choosePoints(*latticeBundle(), choice, Selection(Filters{}));
    EXPECT_THAT(chosen.notes,
                ElementsAre(HasSubstr("grid \"dem\" at time 0: no cell centre is inside the box")));
    EXPECT_FALSE(dataOf(*chosen.bundle, "dem", "Positions", ""));
}

TEST(ChoosePoints, ClassesOfALatticeAreAnErrorWithARemedy) {
    PointChoice choice;
    choice.classes = {2};
    EXPECT_THAT(modelErrorOf(
                    [&] { static_cast<void>(choosePoints(*latticeBundle(), choice, Selection(Filters{}))); }),
                AllOf(HasSubstr("grid \"dem\""), HasSubstr("--cells-as-points")));
}

TEST(ChoosePoints, LatticesBesidePointsStayWhereClassesAreChosenAndThatIsSaid) {
    const auto bundle = latticeBundle();
    GridBuilder(*bundle, 0, "scan")
        .field("Positions", "", Points{{103, 204, 0}, {0, 0, 0}, {104, 204, 0}})
        .field("Classification", "", Bytes{2, 2, 9});
    PointChoice choice;
    choice.classes = {2};
    const ChosenPoints chosen = choosePoints(*bundle, choice, Selection(Filters{}));
    EXPECT_THAT(arrayOf<Byte>(*chosen.bundle, "scan", "Classification", ""), ElementsAre(2, 2));
    EXPECT_EQ(arrayOf<float>(*chosen.bundle, "dem", "Height", "").size(), 20U);
    EXPECT_TRUE(Anchor::dynamicCast<Sheaf::UniformCartesianArray>(
        dataOf(*chosen.bundle, "dem", "Positions", "")->available()));
    EXPECT_THAT(chosen.notes, ElementsAre(AllOf(HasSubstr("grid \"dem\" at time 0"), HasSubstr("it stays"))));

    choice.box = PointBox{{101, 203, 0}, {106, 209, 1}};
    const ChosenPoints part = choosePoints(*bundle, choice, Selection(Filters{}));
    EXPECT_THAT(arrayOf<Byte>(*part.bundle, "scan", "Classification", ""), ElementsAre(2));
    EXPECT_THAT(arrayOf<float>(*part.bundle, "dem", "Height", ""), ElementsAre(6, 7, 11, 12));
    // A selection without points has none to choose from.
    EXPECT_THAT(modelErrorOf([&] {
                    static_cast<void>(choosePoints(*bundle, choice, Selection(Filters{{}, {"dem"}, {}})));
                }),
                HasSubstr("--cells-as-points"));
}

TEST(ChoosePoints, EverySkeletonOfVerticesIsChosenFromAndOthersAreNamed) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "cloud", {0})
        .field("Positions", "", Points{{1, 0, 0}, {5, 0, 0}})
        .skeleton({1})
        .field("Positions", "", Points{{1, 0, 0}, {2, 0, 0}, {5, 0, 0}})
        .skeleton({}, 0, 2)
        .field("Faces", "", std::vector<int>{0, 1, 2});
    PointChoice choice;
    choice.box = PointBox{{0, 0, 0}, {3, 1, 1}};
    const ChosenPoints chosen = choosePoints(*bundle, choice, Selection(Filters{}));
    EXPECT_EQ(arrayOf<Geom::PhysicalSpace::point>(*chosen.bundle, "cloud", "Positions", "").size(), 2U);
    const auto coarse = gridAt(*chosen.bundle, 0, "cloud")->skeletons().find({0, {0}});
    ASSERT_TRUE(coarse);
    EXPECT_FALSE(gridAt(*chosen.bundle, 0, "cloud")->skeletons().find({2, {}}));
    EXPECT_THAT(chosen.notes, ElementsAre(HasSubstr("skeletons that are not vertices")));
}

TEST(ChoosePoints, StatementSystemsAndEncodingsStay) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder builder(*bundle, 0, "cloud");
    builder.field("Positions", "", Points(2)).field("Echo", "", Bytes(2));
    Sheaf::FileStatement statement;
    statement.fileSourceId = 7;
    builder.grid().setStatement(statement);
    builder.grid().findChart({})->setReferenceSystem("somewhere");
    Sheaf::FieldEncoding encoding;
    encoding.name = "echo width";
    builder.representation()->findField("Echo")->setEncoding(encoding);
    PointChoice choice;
    choice.box = PointBox{{0, 0, 0}, {3, 1, 1}};
    const auto chosen = choosePoints(*bundle, choice, Selection(Filters{})).bundle;
    const auto grid = gridAt(*chosen, 0, "cloud");
    EXPECT_EQ(grid->statement(), statement);
    EXPECT_EQ(grid->findChart({})->referenceSystem(), "somewhere");
    const auto field =
        grid->getField(grid->findCartesianChart({}), "Echo", grid->skeletons().findVertices(-1));
    ASSERT_TRUE(field->encoding());
    EXPECT_EQ(field->encoding()->name, "echo width");
}

TEST(ChoosePoints, HostCanStopWhilePointsAreLookedAt) {
    const Cloud cloud(8, {10});
    PointChoice choice;
    choice.classes = {1, 2, 3, 4, 5};
    struct Stop {};
    const auto chosen = choosePoints(*cloud.bundle(), choice, Selection(Filters{}), [] { throw Stop(); });
    EXPECT_THROW(static_cast<void>(dataOf(*chosen.bundle, "cloud", "Extra", "f0")->create(false)), Stop);
}

} // namespace
} // namespace Tidewatch
