// SPDX-License-Identifier: Apache-2.0
#include "library/points/mergeGrids.hpp"

#include "library/crs/ReferenceSystem.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/bundleQueries.hpp"

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::fieldOf;
using Support::GridBuilder;
using Support::Points;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

MergeInput input(const std::string& file, const std::function<void(GridBuilder&)>& fill, double time = 0) {
    auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    GridBuilder grid(*bundle, time, file.substr(0, file.find('.')));
    fill(grid);
    return {file, bundle};
}

Anchor::StrongPtr<Sheaf::Grid> mergedAt(const MergedGrids& merged, double time = 0) {
    return Support::gridAt(*merged.bundle, time, "merged");
}

std::vector<std::string> fragmentsOf(const Sheaf::Field& field) {
    std::vector<std::string> names;
    for (const auto& id : field.getFragmentIDs())
        names.push_back(id->name());
    return names;
}

template <class T>
std::vector<T> allOf(const Sheaf::Field& field) {
    std::vector<T> all;
    field.forEachFragment([&](const auto&, const auto& data) {
        const std::vector<T> elements = Support::elementsOf<T>(*data);
        all.insert(all.end(), elements.begin(), elements.end());
        return true;
    });
    return all;
}

std::string errorOf(const std::vector<MergeInput>& inputs) {
    return Support::modelErrorOf([&] { static_cast<void>(mergeGrids(inputs, {})); });
}

TEST(MergeGrids, PointsKeepTheOrderOfInputsAndFragments) {
    const std::vector<MergeInput> inputs{
        input("zoo.laz",
              [](GridBuilder& g) {
                  g.field("Positions", "000001", Points(1)).field("Positions", "000000", Points(1));
                  g.field("Classification", "000000", Bytes{1}).field("Classification", "000001", Bytes{2});
              }),
        input("ant.laz", [](GridBuilder& g) {
            g.field("Positions", "", Points(2)).field("Classification", "", Bytes{3, 4});
        })};
    const MergedGrids merged = mergeGrids(inputs, {});
    const auto grid = mergedAt(merged);
    EXPECT_THAT(fragmentsOf(*fieldOf(*grid, "Positions")),
                ElementsAre("0000-zoo-000000", "0000-zoo-000001", "0001-ant"));
    EXPECT_THAT(allOf<Byte>(*fieldOf(*grid, "Classification")), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(merged.notes, IsEmpty());
    EXPECT_EQ(merged.origin, "zoo.laz, ant.laz");
}

TEST(MergeGrids, InputsOfOneNameAreKeptApart) {
    const auto points = [](GridBuilder& g) { g.field("Positions", "000000", Points(1)); };
    const MergedGrids merged = mergeGrids(std::vector{input("a.laz", points), input("a.laz", points)}, {});
    EXPECT_THAT(fragmentsOf(*fieldOf(*mergedAt(merged), "Positions")),
                ElementsAre("0000-a-000000", "0001-a-000000"));
}

TEST(MergeGrids, MoreThanTenThousandInputsStayInOrder) {
    std::vector<MergeInput> inputs;
    for (int number = 0; number < 10001; ++number)
        inputs.push_back(input("p.laz", [&](GridBuilder& g) {
            g.field("Positions", "", Points(1)).field("Number", "", std::vector<int>{number});
        }));
    const auto numbers = allOf<int>(*fieldOf(*mergedAt(mergeGrids(inputs, {})), "Number"));
    ASSERT_EQ(numbers.size(), 10001U);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST(MergeGrids, FieldThatAnInputLacksIsZerosThereAndNamed) {
    const MergedGrids merged =
        mergeGrids(std::vector{input("a.laz",
                                     [](GridBuilder& g) {
                                         g.field("Positions", "", Points(2)).field("Echo", "", Bytes{5, 6});
                                     }),
                               input("b.laz", [](GridBuilder& g) { g.field("Positions", "", Points(3)); })},
                   {});
    EXPECT_THAT(allOf<Byte>(*fieldOf(*mergedAt(merged), "Echo")), ElementsAre(5, 6, 0, 0, 0));
    EXPECT_THAT(merged.notes, ElementsAre("Echo is zeros in the points of b.laz, which has no such field"));
}

TEST(MergeGrids, OneGridPerTime) {
    const auto points = [](GridBuilder& g) { g.field("Positions", "", Points(1)); };
    const MergedGrids merged = mergeGrids(
        std::vector{input("a.laz", points, 6), input("b.laz", points, 18), input("c.laz", points, 6)}, {});
    EXPECT_THAT(fragmentsOf(*fieldOf(*mergedAt(merged, 6), "Positions")), ElementsAre("0000-a", "0002-c"));
    EXPECT_THAT(fragmentsOf(*fieldOf(*mergedAt(merged, 18), "Positions")), ElementsAre("0001-b"));
}

TEST(MergeGrids, OnlySelectedGridsAndTimesAreTaken) {
    const auto points = [](GridBuilder& g) { g.field("Positions", "", Points(1)); };
    MergeOptions options;
    options.selected.grids = {"a*"};
    options.gridName = "merged";
    const MergedGrids merged =
        mergeGrids(std::vector{input("ab.laz", points), input("b.laz", points)}, options);
    EXPECT_THAT(fragmentsOf(*fieldOf(*mergedAt(merged), "Positions")), ElementsAre("0000-ab"));
    EXPECT_EQ(merged.origin, "ab.laz");
}

std::string wellKnown(const std::string& code) {
    return *ReferenceSystem::fromCode(code).isoText();
}

TEST(MergeGrids, TwoReferenceSystemsAreAnErrorThatNamesBothFiles) {
    const auto in = [](const std::string& file, const std::string& system) {
        return input(file, [&](GridBuilder& g) {
            g.field("Positions", "", Points(1));
            if (!system.empty())
                g.grid().findChart({})->setReferenceSystem(system);
        });
    };
    const std::string utm32 = wellKnown("EPSG:25832");
    EXPECT_THAT(errorOf({in("a.laz", utm32), in("b.laz", utm32), in("c.laz", wellKnown("EPSG:25833"))}),
                AllOf(HasSubstr("a.laz is in"), HasSubstr("c.laz in"), HasSubstr("25832"), HasSubstr("25833"),
                      HasSubstr("--crs")));
    EXPECT_THAT(errorOf({in("a.laz", utm32), in("b.laz", "nonsense")}), HasSubstr("b.laz"));
    // The same system in other words.
    EXPECT_EQ(errorOf({in("a.laz", utm32), in("b.laz", *ReferenceSystem::fromCode("EPSG:25832").ogcText())}),
              "no error");
    const MergedGrids merged = mergeGrids(std::vector{in("a.laz", ""), in("b.laz", utm32)}, {});
    EXPECT_THAT(merged.notes, ElementsAre(AllOf(HasSubstr("a.laz states no coordinate reference system"),
                                                HasSubstr("25832"))));
    EXPECT_EQ(mergedAt(merged)->findChart({})->referenceSystem(), utm32);
}

TEST(MergeGrids, StatementsThatAgreeStayAndRecordsAreTakenOnce) {
    const auto in = [](const std::string& file, double step, std::uint16_t source, const std::string& text) {
        return input(file, [&](GridBuilder& g) {
            g.field("Positions", "", Points(1));
            Sheaf::FileStatement statement;
            statement.step = {step, 0.01, 0.01};
            statement.offset = {source * 1000.0, 0, 0};
            statement.fileSourceId = source;
            statement.systemIdentifier = "scanner";
            statement.records = {{"someone", 1, "", {1, 2}},
                                 {"someone", 2, "", {text.begin(), text.end()}},
                                 {"LASF_Projection", 2112, "", {7}}};
            g.grid().setStatement(statement);
        });
    };
    const MergedGrids merged = mergeGrids(
        std::vector{in("a.laz", 0.01, 1, "x"), in("b.laz", 0.001, 2, "y"), in("c.laz", 0.01, 1, "y")}, {});
    const Sheaf::FileStatement statement = mergedAt(merged)->statement();
    EXPECT_EQ(statement.step, (std::array{0.001, 0.01, 0.01}));
    EXPECT_EQ(statement.offset, (std::array{1000.0, 0.0, 0.0}));
    EXPECT_EQ(statement.fileSourceId, std::nullopt);
    EXPECT_EQ(statement.systemIdentifier, "scanner");
    ASSERT_EQ(statement.records.size(), 2U);
    EXPECT_EQ(statement.records[1].bytes, (std::vector<std::uint8_t>{'x'}));
    EXPECT_THAT(
        merged.notes,
        ElementsAre("record someone/2 is taken from the first input that has it; b.laz, c.laz have another"));
}

TEST(MergeGrids, RecordsThatOneFileHasTwiceAreBothKept) {
    const MergedGrids merged = mergeGrids(
        std::vector{input("a.laz",
                          [](GridBuilder& g) {
                              g.field("Positions", "", Points(1));
                              Sheaf::FileStatement statement;
                              statement.records = {{"someone", 1, "", {1}}, {"someone", 1, "", {2}}};
                              g.grid().setStatement(statement);
                          })},
        {});
    EXPECT_EQ(mergedAt(merged)->statement().records.size(), 2U);
}

TEST(MergeGrids, TwoEncodingsOfGpsTimesAreAnError) {
    const auto in = [](const std::string& file, Sheaf::FileStatement::GpsTime time, bool hasTimes) {
        return input(file, [&](GridBuilder& g) {
            g.field("Positions", "", Points(1));
            if (hasTimes)
                g.field("GPSTime", "", std::vector<double>(1));
            Sheaf::FileStatement statement;
            statement.gpsTime = time;
            g.grid().setStatement(statement);
        });
    };
    using Time = Sheaf::FileStatement::GpsTime;
    EXPECT_THAT(errorOf({in("a.laz", Time::Week, true), in("b.laz", Time::Adjusted, true)}),
                AllOf(HasSubstr("a.laz counts GPS time in seconds of the week"), HasSubstr("b.laz")));
    EXPECT_EQ(
        mergedAt(
            mergeGrids(std::vector{in("a.laz", Time::Week, false), in("b.laz", Time::Adjusted, true)}, {}))
            ->statement()
            .gpsTime,
        Time::Adjusted);
}

TEST(MergeGrids, FieldOfTwoTypesIsAnErrorThatNamesBothFiles) {
    EXPECT_THAT(
        errorOf({input("a.laz",
                       [](GridBuilder& g) { g.field("Positions", "", Points(1)).field("W", "", Bytes(1)); }),
                 input("b.laz",
                       [](GridBuilder& g) {
                           g.field("Positions", "", Points(1)).field("W", "", std::vector<float>(1));
                       })}),
        AllOf(HasSubstr("W holds uint8 values in a.laz and float32 in b.laz"), HasSubstr("--field")));
}

TEST(MergeGrids, EncodingStaysWhereAllInputsHaveIt) {
    const auto in = [](const std::string& file, double scale) {
        return input(file, [&](GridBuilder& g) {
            g.field("Positions", "", Points(1)).field("W", "", std::vector<double>(1));
            Sheaf::FieldEncoding encoding;
            encoding.name = "W";
            encoding.scale = scale;
            g.representation()->findField("W")->setEncoding(encoding);
        });
    };
    EXPECT_TRUE(fieldOf(*mergedAt(mergeGrids(std::vector{in("a", 0.1), in("b", 0.1)}, {})), "W")->encoding());
    EXPECT_FALSE(
        fieldOf(*mergedAt(mergeGrids(std::vector{in("a", 0.1), in("b", 0.2)}, {})), "W")->encoding());
}

TEST(MergeGrids, LatticesAndGridsWithoutPositionsAreErrors) {
    const auto points = input("a.laz", [](GridBuilder& g) { g.field("Positions", "", Points(1)); });
    EXPECT_THAT(errorOf({points, input("b.tif",
                                       [](GridBuilder& g) {
                                           g.field("Positions", "",
                                                   Anchor::makeStrong<Sheaf::HeldCreator>(
                                                       Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                                                           Geom::PhysicalSpace::point{},
                                                           Geom::PhysicalSpace::vector{1, 1, 1},
                                                           Sheaf::MultiIndex<3>{2, 2, 1})));
                                       })}),
                AllOf(HasSubstr("b.tif: grid \"b\" is a lattice"), HasSubstr("--cells-as-points")));
    EXPECT_THAT(errorOf({points, input("c.h5", [](GridBuilder& g) { g.field("Echo", "", Bytes(1)); })}),
                HasSubstr("c.h5: grid \"c\" has no positions"));
}

TEST(MergeGrids, EqualRefinementsAreMergedEachAndOthersByTheHighest) {
    const auto refined = [](GridBuilder& g) {
        g.field("Positions", "", Points(1)).skeleton({1}).field("Positions", "", Points(4));
    };
    const MergedGrids merged = mergeGrids(std::vector{input("a.h5", refined), input("b.h5", refined)}, {});
    EXPECT_EQ(allOf<Geom::PhysicalSpace::point>(*fieldOf(*mergedAt(merged), "Positions")).size(), 8U);
    EXPECT_TRUE(mergedAt(merged)->skeletons().find({0, {}}));
    const MergedGrids mixed =
        mergeGrids(std::vector{input("a.h5", refined),
                               input("b.laz", [](GridBuilder& g) { g.field("Positions", "", Points(2)); })},
                   {});
    EXPECT_EQ(allOf<Geom::PhysicalSpace::point>(*fieldOf(*mergedAt(mixed), "Positions")).size(), 6U);
    EXPECT_THAT(mixed.notes, ElementsAre("only the highest refinement of a.h5 is merged"));
}

} // namespace
} // namespace Tidewatch
