// SPDX-License-Identifier: Apache-2.0
#include "ascii/AsciiPlan.hpp"

#include "ascii/AsciiBundle.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/ElementTypes.hpp"
#include "support/ConsoleCapture.hpp"

#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ExportLib::AsciiPlan;
using ExportLib::AsciiSettings;
using Fragment = AsciiPlan::Fragment;
using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const AsciiSettings defaults{"CellType", -1, 0, false, false};

class AsciiPlanTest : public ::testing::Test {
protected:
    [[nodiscard]] AsciiPlan plan(const AsciiSettings& settings = defaults,
                                 const std::set<std::string>& fields = {}) const {
        return AsciiPlan::of(
            *bundle->slices().at(0).lock()->grids().at("g").lock(), settings,
            [&](const std::string& field) { return fields.empty() || fields.contains(field); });
    }
    [[nodiscard]] static std::set<std::string> filesOf(const AsciiPlan& plan) {
        std::set<std::string> files;
        for (const Fragment& fragment : plan.fragments) {
            if (fragment.form != AsciiPlan::Form::None)
                files.insert(fragment.file.string());
        }
        return files;
    }
    [[nodiscard]] std::set<std::string> files(const AsciiSettings& settings = defaults) const {
        return filesOf(plan(settings));
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
};

TEST_F(AsciiPlanTest, FilesAreNamedAsInAllFourLayouts) {
    GridBuilder(*bundle, 0, "g", {0, 0})
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1, 1})
        .field("Positions", "a", Points{{1, 2, 3}})
        .field("Id", "a", std::vector<int>{7});
    AsciiSettings settings = defaults;
    EXPECT_THAT(files(settings), ElementsAre("Id/a.asc", "Positions/a.asc"));
    settings.refinementLevel = -2;
    EXPECT_THAT(files(settings), ElementsAre("Id/Skeleton1/a.asc", "Positions/Skeleton0/Unfragmented.asc",
                                             "Positions/Skeleton1/a.asc"));
    settings.append = true;
    EXPECT_THAT(files(settings), ElementsAre("Skeleton0/XYZ_Coordinates.asc", "Skeleton1/Id.asc",
                                             "Skeleton1/XYZ_Coordinates.asc"));
    settings.refinementLevel = -1;
    EXPECT_THAT(files(settings), ElementsAre("Id.asc", "XYZ_Coordinates.asc"));
    settings.refinementLevel = 0;
    EXPECT_THAT(files(settings), ElementsAre("Skeleton0/XYZ_Coordinates.asc"));
}

TEST_F(AsciiPlanTest, NumbersOnALatticeAreGridsAndPositionsAreTheirHeader) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "f.1", heldLattice({0, 0, 0}, {1, 1, 1}, {2, 1, 1}))
        .field("Height", "f.1", heldArray<float>({2, 1, 1}, {1, 2}))
        .field("Flow", "f.1", heldArray<Geom::PhysicalSpace::vector>({2, 1, 1}, {{1, 2, 3}, {4, 5, 6}}));
    EXPECT_THAT(files(), ElementsAre("Height/f.1.grd"));
    for (const Fragment& fragment : plan().fragments) {
        EXPECT_EQ(fragment.whyLeftOut,
                  fragment.field == "Flow" ? "only numbers can be written on a lattice, not vector" : "")
            << fragment.field;
        EXPECT_TRUE(fragment.isCertain);
    }
    AsciiSettings settings = defaults;
    settings.tileSuffix = true;
    EXPECT_THAT(files(settings), ElementsAre("Height/f.1_0_0.grd"));
}

TEST_F(AsciiPlanTest, StopsThatTheExporterPassesOverAreCounted) {
    GridBuilder(*bundle, 0, "g", {0}, 1)
        .field("Positions", "", Points{{1, 2, 3}})
        .skeleton({1})
        .field("Angle", "", std::vector<signed char>{1})
        .field("Positions", "", Points{{1, 2, 3}});
    const AsciiPlan all = plan();
    ASSERT_EQ(all.fragments.size(), 3U);
    EXPECT_FALSE(all.fragments[0].isSelected);
    EXPECT_TRUE(all.fragments[0].isExcluded);
    EXPECT_TRUE(all.fragments[1].isSelected);
    EXPECT_EQ(all.fragments[1].form, AsciiPlan::Form::None);
    EXPECT_EQ(all.fragments[1].whyLeftOut, "there is no writer for int8");
    EXPECT_EQ(all.fragments[2].form, AsciiPlan::Form::List);
    EXPECT_EQ(all.elements(), 1U);
    EXPECT_EQ(plan(defaults, {"Positions"}).fragments.size(), 2U);
}

TEST_F(AsciiPlanTest, HasAWriterForThirteenElementTypes) {
    std::set<std::string_view> without;
    std::size_t with = 0;
    Sheaf::ElementTypes::visitFirst(
        [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (AsciiPlan::hasWriter(typeid(T)))
                ++with;
            else
                without.insert(Sheaf::ElementTraits<T>::name);
            return false;
        },
        [](auto) {});
    EXPECT_EQ(with, 13U);
    EXPECT_THAT(without, ElementsAre("fixed3d", "int16", "int64", "int8"));
    EXPECT_FALSE(AsciiPlan::hasWriter(typeid(std::string)));
}

TEST_F(AsciiPlanTest, LatticeIsDescribedAsItsHeaderHasIt) {
    GridBuilder builder(*bundle, 0, "g");
    builder.field("Positions", "f", heldLattice({10.0001, 20, 0}, {2, 5, 1}, {4, 3, 1}))
        .field("Depth", "f", heldArray<unsigned char>({4, 3, 1}, std::vector<unsigned char>(12)));
    builder.grid().makeFragment("f")->overlapLow = Sheaf::MultiIndex<3>{1, 1, 0};
    AsciiSettings settings = defaults;
    settings.precision = 2;
    settings.tileSuffix = true;
    const Fragment fragment = plan(settings).fragments.at(0);
    EXPECT_EQ(fragment.field, "Depth");
    EXPECT_EQ(fragment.file, "Depth/f_12_25.grd");
    EXPECT_EQ(fragment.elements, 12U);
    EXPECT_EQ(fragment.cellTypes, AsciiPlan::CellTypes::NoField);
    ASSERT_TRUE(fragment.lattice);
    EXPECT_EQ(fragment.lattice->spacingX, 2);
    EXPECT_EQ(fragment.lattice->spacingY, 5);
    EXPECT_EQ(fragment.lattice->writtenCellSize, 2);
    EXPECT_FALSE(fragment.lattice->isSquareAsWritten);
    // Two rows are left, whose centres lie 5 apart and are written 2 apart.
    EXPECT_DOUBLE_EQ(fragment.lattice->coordinateLoss, 3);
    EXPECT_EQ(fragment.lattice->rowShift, 1U);
    EXPECT_TRUE(fragment.lattice->asCharacters);
}

TEST_F(AsciiPlanTest, CellTypesThatAreMissingAreKnownBeforehand) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "e", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}))
        .field("Positions", "f", heldLattice({1, 0, 0}, {1, 1, 1}, {1, 1, 1}))
        .field("Height", "e", heldArray<int>({1, 1, 1}, {1}))
        .field("Height", "f", heldArray<int>({1, 1, 1}, {1}))
        .field("CellType", "e", heldArray<unsigned char>({1, 1, 1}, {1}));
    const AsciiPlan made = plan(defaults, {"Height"});
    EXPECT_EQ(made.fragments.at(0).cellTypes, AsciiPlan::CellTypes::Stated);
    EXPECT_EQ(made.fragments.at(1).cellTypes, AsciiPlan::CellTypes::NoFragment);
}

/// Positions that nobody has asked for yet.
class Unread final : public Sheaf::CachedCreator {
public:
    Unread() : CachedCreator(typeid(Geom::PhysicalSpace::point), Sheaf::Extents{2}) {}

protected:
    [[nodiscard]] Made make() const override {
        ADD_FAILURE() << "a plan makes no array";
        return {Sheaf::makeArray(Points{{1, 2, 3}, {4, 5, 6}})};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return 48; }
};

TEST_F(AsciiPlanTest, PositionsThatAreNotInMemoryLeaveTheFormOpen) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Anchor::makeStrong<Unread>())
        .field("Id", "", std::vector<int>{7, 8})
        .field("Id", "alone", std::vector<int>{7});
    const AsciiPlan made = plan();
    EXPECT_THAT(filesOf(made),
                ElementsAre("Id/Unfragmented.asc", "Id/alone.asc", "Positions/Unfragmented.asc"));
    EXPECT_FALSE(made.fragments.at(0).isCertain);
    EXPECT_TRUE(made.fragments.at(1).isCertain);
    EXPECT_FALSE(made.fragments.at(2).isCertain);
}

TEST_F(AsciiPlanTest, ArrayOfAnotherTypeThanItsFieldBecomesNoList) {
    GridBuilder builder(*bundle, 0, "g");
    builder.field("Positions", "", Points{{1, 2, 3}});
    builder.representation()->makeField("Id", typeid(int))->addFragment(nullptr, Support::held<float>({1}));
    EXPECT_THAT(filesOf(plan()), ElementsAre("Positions/Unfragmented.asc"));
    EXPECT_EQ(plan().fragments.at(0).whyLeftOut, "its array is not of the field's type");
}

/// Notes the fragments that the exporter announces.
class Announced final : public ConvLib::RunObserver {
public:
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override {
        fragments.push_back(std::string(field) + "/" + std::string(fragment) + ": " +
                            std::to_string(elements));
    }
    std::vector<std::string> fragments;
};

TEST_F(AsciiPlanTest, RunWritesAndAnnouncesWhatIsPlanned) {
    GridBuilder(*bundle, 0, "g", {0})
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Angle", "", std::vector<signed char>{1})
        .skeleton({1})
        .field("Positions", "f", heldLattice({5.5, -7, 0}, {1, 1, 1}, {2, 1, 1}))
        .field("Height", "f", heldArray<float>({2, 1, 1}, {1, 2}))
        .field("Flow", "f", heldArray<Geom::PhysicalSpace::vector>({2, 1, 1}, {{1, 2, 3}, {4, 5, 6}}))
        .field("Id", "g", std::vector<int>{1, 2, 3})
        .skeleton({1}, 0, 2)
        .field("Faces", "f", std::vector<int>{4});
    for (const int level : {-2, -1, 0, 1}) {
        for (const bool append : {false, true}) {
            for (const bool tileSuffix : {false, true}) {
                const Support::TemporaryFolder folder;
                const Support::ConsoleCapture console;
                const auto observer = Anchor::makeStrong<Announced>();
                ExportLib::ExportPointCloudToASCII exporter;
                exporter.bundleptr = bundle;
                exporter.OutputPath = folder.path().string();
                exporter.RefLevel = level;
                exporter.Append = append;
                exporter.TileSuffix = tileSuffix;
                exporter.setObserver(observer);
                const AsciiPlan made = plan({"CellType", level, 0, append, tileSuffix});
                EXPECT_TRUE(exporter.Run());
                const auto names = Support::namesIn(folder.path());
                std::set<std::string> files(names.begin(), names.end());
                // Folders of fields without a file.
                std::erase_if(files, [](const std::string& name) { return name.ends_with("/"); });
                EXPECT_EQ(files, filesOf(made)) << level << append << tileSuffix;
                std::vector<std::string> announced;
                for (const Fragment& fragment : made.fragments) {
                    if (fragment.isSelected)
                        announced.push_back(fragment.field + "/" +
                                            (fragment.fragment ? fragment.fragment->name() : "") + ": " +
                                            std::to_string(fragment.elements));
                }
                EXPECT_EQ(observer->fragments, announced) << level << append << tileSuffix;
            }
        }
    }
}

TEST_F(AsciiPlanTest, TellsWhatStandsInTheWayOfAnExport) {
    const auto obstacle = [&](const auto& build, const AsciiSettings& settings = defaults,
                              const std::set<std::string>& fields = {}) {
        bundle = Anchor::makeStrong<Sheaf::Bundle>();
        build();
        return plan(settings, fields).obstacle;
    };
    const auto lattice = heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 2});
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {1, 2});
              }),
              "it has no vertices of one refinement in all directions");
    EXPECT_EQ(obstacle([&] { GridBuilder(*bundle, 0, "g").field("Height", "", std::vector<float>{1}); }),
              "it has no Positions in its default chart");
    const auto points = [&] { GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{1, 2, 3}}); };
    EXPECT_EQ(obstacle(points), "");
    EXPECT_EQ(obstacle(points, defaults, {"Height"}),
              "it has no data in the fields that the filter lets pass");
    AsciiSettings fifth = defaults;
    fifth.refinementLevel = 5;
    EXPECT_EQ(obstacle(points, fifth), "it has nothing to export at refinement level 5");
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g", {}, 1).field("Positions", "", Points{{1, 2, 3}});
              }),
              "its vertices are marked as not to be exported, or hold no data");
    EXPECT_EQ(
        obstacle([&] {
            GridBuilder(*bundle, 0, "g").field("Positions", "", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}));
        }),
        "it has no numbers on its lattice to write");
    EXPECT_EQ(obstacle([&] {
                  GridBuilder(*bundle, 0, "g")
                      .field("Positions", "", lattice)
                      .field("Height", "", heldArray<float>({1, 1, 2}, {1, 2}));
              }),
              "Height is left out: a grid file holds one layer, and its lattice has 2");
}

TEST_F(AsciiPlanTest, FieldsReadAreThoseOfTheFilesAndWhatTellsOfCells) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{1, 2, 3}})
        .field("Height", "", std::vector<float>{1})
        .field("Depth", "", std::vector<float>{1});
    EXPECT_THAT(plan().fieldsRead(), ElementsAre("Depth", "Height", "Positions"));
    EXPECT_THAT(plan(defaults, {"Height"}).fieldsRead(), ElementsAre("Height", "Positions"));
    AsciiSettings settings = defaults;
    settings.filterField = "Kind";
    bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}))
        .field("Height", "", heldArray<float>({1, 1, 1}, {1}));
    EXPECT_THAT(plan(settings).fieldsRead(), ElementsAre("Height", "Kind", "Positions"));
}

} // namespace
