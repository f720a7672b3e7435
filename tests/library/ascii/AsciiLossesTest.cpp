// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/AsciiLosses.hpp"

#include "ascii/AsciiBundle.hpp"
#include "ascii/ExportPointCloudToASCII.hpp"
#include "library/BuildingReader.hpp"
#include "support/ConsoleCapture.hpp"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::GridBuilder;
using Support::heldArray;
using Support::heldLattice;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const AsciiSettings defaults{"CellType", -1, 0, false, false};

/// Runs the exporter over what the function builds, beside its plan.
class Exported {
public:
    explicit Exported(BuildingReader::Build build, AsciiSettings settings = defaults)
        : settings_(std::move(settings)),
          inputs_(readBuilt(inputFolder_, std::move(build))),
          selection_(Filters{}),
          progress_(Anchor::makeStrong<Progress>()),
          planned_({inputs_, selection_, progress_}, RunScope{inputs_.bundle(), {}},
                   [&](const Sheaf::Grid& grid) {
                       return ExportLib::AsciiPlan::of(grid, settings_,
                                                       [](const std::string&) { return true; });
                   }),
          recorder_(Anchor::makeStrong<RunRecorder>(RunScope{inputs_.bundle(), {}}, progress_)) {
        exporter_.FilterField = settings_.filterField;
        exporter_.RefLevel = settings_.refinementLevel;
        exporter_.Precision = settings_.precision;
        exporter_.Append = settings_.append;
        exporter_.bundleptr = inputs_.bundle();
        exporter_.OutputPath = folder_.path().string();
        recorder_->follow(exporter_);
        EXPECT_TRUE(exporter_.Run());
        recorder_->finish(exporter_.writtenFiles());
    }

    [[nodiscard]] const ExportedGrid& grid(std::size_t visit = 0) const {
        return recorder_->grids().at(visit);
    }
    [[nodiscard]] const std::vector<ConvLib::WrittenFile>& record() const { return exporter_.writtenFiles(); }
    [[nodiscard]] std::string nameOf(std::size_t file) const {
        return std::filesystem::path(record().at(file).path).lexically_relative(folder_.path()).string();
    }

    /// "kind: message" of every loss.
    [[nodiscard]] std::vector<std::string> losses() const {
        Losses losses;
        for (const ExportedGrid& visit : recorder_->grids())
            addAsciiLosses(visit, *planned_.find(visit), settings_, false, exporter_.writtenFiles(), losses);
        std::vector<std::string> texts;
        for (const Loss& loss : losses.list("ASCII"))
            texts.push_back(loss.kind + ": " + loss.message);
        return texts;
    }

private:
    Support::TemporaryFolder folder_;
    Support::TemporaryFolder inputFolder_;
    Support::ConsoleCapture console_;
    AsciiSettings settings_;
    Inputs inputs_;
    Selection selection_;
    Anchor::StrongPtr<Progress> progress_;
    PlannedTexts planned_;
    Anchor::StrongPtr<RunRecorder> recorder_;
    ExportLib::ExportPointCloudToASCII exporter_;
};

void buildLattice(Sheaf::Bundle& bundle, const Geom::PhysicalSpace::point& corner,
                  const Geom::PhysicalSpace::vector& spacing) {
    GridBuilder(bundle, 0, "dem")
        .field("Positions", "f", heldLattice(corner, spacing, {3, 2, 1}))
        .field("Height", "f", heldArray<float>({3, 2, 1}, {1, 2, 3, 4, 5, 6}))
        .field("CellType", "f", heldArray<unsigned char>({3, 2, 1}, {1, 1, 1, 1, 1, 1}));
}

TEST(AsciiLosses, EveryFileIsThatOfItsFragment) {
    const Exported exported([](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "a", {0})
            .field("Positions", "", Points{{1, 2, 3}})
            .skeleton({1})
            .field("Angle", "x", std::vector<signed char>{1})
            .field("Id", "x", std::vector<int>{1})
            .field("Id", "y", std::vector<int>{2, 3})
            .field("Positions", "x", Points{{1, 2, 3}, {4, 5, 6.5}});
        GridBuilder(bundle, 0, "b").field("Positions", "x", Points{{7, 8, 9}});
    });
    std::vector<std::string> seen;
    for (const std::size_t visit : {0U, 1U}) {
        for (const ExportedGrid::Fragment& fragment : exported.grid(visit).fragments) {
            std::string text = fragment.field + " " + fragment.fragment + ":";
            for (std::size_t file = fragment.firstFile; file != fragment.endFile; ++file)
                text += " " + exported.nameOf(file) + " " + std::to_string(exported.record().at(file).items);
            seen.push_back(text);
        }
    }
    EXPECT_THAT(seen, ElementsAre("Angle x:", "Id x: Id/x.asc 1", "Id y: Id/y.asc 2",
                                  "Positions x: Positions/x.asc 2", "Positions x: Positions/x.asc 1"));
    EXPECT_EQ(exported.grid(0).survey.points(), 2U);
    EXPECT_EQ(exported.grid(0).survey.axis(2)->decimalStep, 0.1);
    EXPECT_EQ(exported.grid(1).survey.points(), 1U);
    EXPECT_THAT(exported.losses(),
                ElementsAre("fields: grid \"a\" at time 0: Angle is left out: there is no writer for int8"));
}

TEST(AsciiLosses, FieldsThatLieOnOtherSkeletonsOnlyAreTold) {
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g", {1})
            .field("Positions", "", Points{{1, 2, 3}})
            .skeleton({0})
            .field("Coarse", "", std::vector<int>{1})
            .field("Positions", "", Points{{1, 2, 3}})
            .skeleton({}, 1, 2)
            .field("Hidden", "", std::vector<int>{1});
    };
    EXPECT_THAT(
        Exported(build).losses(),
        ElementsAre("fields: grid \"g\" at time 0: Coarse is left out: it is only on skeletons other than "
                    "the vertices of the highest level; --ref-level -2 takes all"));
    AsciiSettings settings = defaults;
    for (const int level : {-2, 1}) {
        settings.refinementLevel = level;
        EXPECT_THAT(Exported(build, settings).losses(), IsEmpty()) << level;
    }
}

TEST(AsciiLosses, GridThatIsWrittenAsItIsLosesNothing) {
    EXPECT_THAT(Exported([](Sheaf::Bundle& bundle, const std::string&) {
                    buildLattice(bundle, {500000.5, 4000000.125, 0}, {0.5, 0.5, 1});
                }).losses(),
                IsEmpty());
}

TEST(AsciiLosses, CellSizeThatThreeDecimalsRoundIsToldWithTheSizeOfTheLoss) {
    EXPECT_THAT(
        Exported([](Sheaf::Bundle& bundle, const std::string&) {
            buildLattice(bundle, {10, 20, 0}, {1.0004, 1.0004, 1});
        }).losses(),
        ElementsAre("rounding: grid \"dem\" at time 0: the corner and the cell size of 1.0004 are written "
                    "with three decimals: coordinates are off by up to 0.0008"));
    EXPECT_THAT(Exported([](Sheaf::Bundle& bundle, const std::string&) {
                    buildLattice(bundle, {10, 20, 0}, {0.0004, 0.0004, 1});
                }).losses(),
                ElementsAre(::testing::HasSubstr("are written with a size of 0.000")));
    EXPECT_THAT(Exported([](Sheaf::Bundle& bundle, const std::string&) {
                    buildLattice(bundle, {10.0001, 20, 0}, {1, 1, 1});
                }).losses(),
                ElementsAre("rounding: grid \"dem\" at time 0: the corner and the cell size of 1 are written "
                            "with three decimals: coordinates are off by up to 0.0001"));
}

TEST(AsciiLosses, CellsThatAreNoSquaresAreTold) {
    EXPECT_THAT(
        Exported([](Sheaf::Bundle& bundle, const std::string&) {
            buildLattice(bundle, {10, 20, 0}, {2, 5, 1});
        }).losses(),
        ElementsAre("rounding: grid \"dem\" at time 0: cells of 2 by 5 are written as squares of 2.000: "
                    "coordinates are off by up to 3"));
}

TEST(AsciiLosses, GridsWithoutCellTypesAreEmptyAndItIsSaidWhy) {
    AsciiSettings settings = defaults;
    settings.filterField = "Mask";
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        buildLattice(bundle, {0, 0, 0}, {1, 1, 1});
    };
    EXPECT_THAT(
        Exported(build, settings).losses(),
        ElementsAre("empty: grid \"dem\" at time 0: CellType: 1 fragment without a value: there is no "
                    "field \"Mask\" of cell types; --filter-field names another",
                    "empty: grid \"dem\" at time 0: Height: 1 fragment without a value: there is no "
                    "field \"Mask\" of cell types; --filter-field names another"));
    settings.filterField = "Height";
    settings.append = true;
    EXPECT_THAT(
        Exported(build, settings).losses(),
        ElementsAre("empty: grid \"dem\" at time 0: CellType: 1 fragment without a value: its values, its "
                    "overlaps or the cell types of the field \"Height\" do not fit the lattice",
                    "empty: grid \"dem\" at time 0: Height: 1 fragment without a value: its values, its "
                    "overlaps or the cell types of the field \"Height\" do not fit the lattice"));
}

TEST(AsciiLosses, CellTypesThatAFragmentLacksAreTold) {
    EXPECT_THAT(Exported([](Sheaf::Bundle& bundle, const std::string&) {
                    GridBuilder(bundle, 0, "dem")
                        .field("Positions", "e", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}))
                        .field("Positions", "f", heldLattice({1, 0, 0}, {1, 1, 1}, {1, 1, 1}))
                        .field("Height", "e", heldArray<int>({1, 1, 1}, {1}))
                        .field("Height", "f", heldArray<int>({1, 1, 1}, {1}))
                        .field("CellType", "e", heldArray<unsigned char>({1, 1, 1}, {1}));
                }).losses(),
                ElementsAre("empty: grid \"dem\" at time 0: Height: 1 fragment without a value: the field "
                            "\"CellType\" has no cell types for it"));
}

TEST(AsciiLosses, RowsThatALowOverlapShiftsAreTold) {
    EXPECT_THAT(
        Exported([](Sheaf::Bundle& bundle, const std::string&) {
            buildLattice(bundle, {0, 0, 0}, {1, 1, 1});
            const auto grid = bundle.slices().at(0).lock()->grids().at("dem").lock();
            grid->makeFragment("f")->overlapLow = Sheaf::MultiIndex<3>{0, 1, 0};
        }).losses(),
        ElementsAre("shift: grid \"dem\" at time 0: the values of fragments that overlap their southern "
                    "neighbour are up to 1 row too far north"));
}

TEST(AsciiLosses, BytesAsCharactersAndRoundedValuesAreTold) {
    AsciiSettings settings = defaults;
    settings.precision = 1;
    EXPECT_THAT(Exported(
                    [](Sheaf::Bundle& bundle, const std::string&) {
                        buildLattice(bundle, {0, 0, 0}, {1, 1, 1});
                        const auto grid = bundle.slices().at(0).lock()->grids().at("dem").lock();
                        const auto field = grid->findHighestHomogenousVertexRefinement(0)
                                               ->representations()(grid->findCartesianChart(""))
                                               ->makeField("Depth", typeid(double));
                        field->addFragment(grid->makeFragment("f"),
                                           heldArray<double>({3, 2, 1}, {0.25, 1, 1, 1, 1, 1}));
                    },
                    settings)
                    .losses(),
                ElementsAre("rounding: grid \"dem\" at time 0: values of Depth are rounded by up to 0.05",
                            "characters: grid \"dem\" at time 0: CellType is written as characters, not as "
                            "numbers; --precision 0 writes numbers"));
}

TEST(AsciiLosses, CoordinatesFinerThanSixDecimalsAreTold) {
    EXPECT_THAT(
        Exported([](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder(bundle, 0, "g").field("Positions", "", Points{{1.12345678, 0.000001, 3}});
        }).losses(),
        ElementsAre("rounding: grid \"g\" at time 0: coordinates are rounded by up to 5e-07, more than "
                    "the input's step of 1e-08 allows; text has six decimals"));
    EXPECT_THAT(Exported([](Sheaf::Bundle& bundle, const std::string&) {
                    GridBuilder(bundle, 0, "g").field("Positions", "", Points{{1.123456, 0.000001, 3}});
                }).losses(),
                IsEmpty());
}

TEST(AsciiLosses, FilesOfOneGridThatComeToOneNameAreTold) {
    const auto build = [](Sheaf::Bundle& bundle, const std::string&) {
        GridBuilder(bundle, 0, "g")
            .field("Positions", "", Points{{1, 2, 3}})
            .skeleton({}, 0, 1)
            .field("Positions", "", Points{{1, 2, 3}});
    };
    AsciiSettings settings = defaults;
    settings.refinementLevel = -2;
    EXPECT_THAT(
        Exported(build, settings).losses(),
        ElementsAre("overwritten: grid \"g\" at time 0: 1 file written for several skeletons or charts, of "
                    "which only the last is kept; --ref-level keeps levels apart"));
    settings.append = true;
    EXPECT_THAT(Exported(build, settings).losses(), IsEmpty());
}

TEST(AsciiLosses, SeveralGridsInOneFileAreReported) {
    AsciiSettings settings = defaults;
    settings.append = true;
    EXPECT_THAT(
        Exported(
            [](Sheaf::Bundle& bundle, const std::string&) {
                GridBuilder(bundle, 0, "dem")
                    .field("Positions", "e", heldLattice({0, 0, 0}, {1, 1, 1}, {1, 1, 1}))
                    .field("Positions", "f", heldLattice({1, 0, 0}, {1, 1, 1}, {1, 1, 1}))
                    .field("CellType", "e", heldArray<unsigned char>({1, 1, 1}, {1}))
                    .field("CellType", "f", heldArray<unsigned char>({1, 1, 1}, {1}));
            },
            settings)
            .losses(),
        ElementsAre("joined: grid \"dem\" at time 0: 1 file with the grids of several fragments one after "
                    "the other, of which most programs read only the first"));
}

} // namespace
} // namespace Tidewatch
