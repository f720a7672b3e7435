// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasLosses.hpp"

#include "library/las/RecordedLas.hpp"

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ExportLib::LasSettings;
using Support::GridBuilder;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

using Entries = std::vector<std::pair<std::string, std::string>>;

const std::string where = "grid \"g\" at time 0: ";

Entries losses(const std::function<void(GridBuilder&)>& fields, LasSettings settings = {}) {
    const RecordedLas recorded(
        [&](Sheaf::Bundle& bundle, const std::string&) {
            GridBuilder grid(bundle, 0, "g");
            grid.field("Positions", "", Points{{1, 2, 3}, {4, 5, 6}});
            fields(grid);
        },
        std::move(settings));
    Losses found;
    addLasLosses(recorded.recorder().grids().at(0), recorded.grid(), recorded.settings(), found);
    Entries entries;
    for (const Loss& loss : found.list("LAS"))
        entries.emplace_back(loss.kind, loss.message);
    return entries;
}

LasSettings version(int minor) {
    LasSettings settings;
    settings.version = minor;
    return settings;
}

TEST(LasLosses, PointsThatAreCarriedWholeLoseNothing) {
    EXPECT_THAT(losses([](GridBuilder& grid) {
                    grid.field("Intensity", "", std::vector<unsigned short>{1, 2})
                        .field("Classification", "", std::vector<unsigned char>{255, 31})
                        .field("ScanAngleRank", "", std::vector<short>{5, -5})
                        .field("RGB", "", std::vector<Geom::RGB<unsigned char>>(2))
                        .field("GPSTime", "", std::vector<double>{1, 2});
                }),
                IsEmpty());
}

TEST(LasLosses, FieldsWithoutAPlaceAreNamed) {
    EXPECT_THAT(
        losses([](GridBuilder& grid) {
            grid.field("Height", "", std::vector<float>{1, 2})
                .field("Intensity", "", std::vector<float>{1, 2});
        }),
        ElementsAre(Pair("fields", "LAS does not carry the field Height"),
                    Pair("fields", where + "Intensity is left out: it is stored as float32, LAS takes "
                                           "uint16")));
}

TEST(LasLosses, OldVersionsLoseTimesAnglesAndClasses) {
    const auto fields = [](GridBuilder& grid) {
        grid.field("RGB", "", std::vector<Geom::RGB<unsigned char>>(2))
            .field("GPSTime", "", std::vector<double>{1, 2})
            .field("ScanAngleRank", "", std::vector<short>{5, 0})
            .field("Classification", "", std::vector<unsigned char>{32, 31});
    };
    EXPECT_THAT(
        losses(fields, version(2)),
        ElementsAre(Pair("fields", where + "GPSTime is left out: points with colours have no GPS time in LAS "
                                           "1.2; --las-version 1.4 keeps it"),
                    Pair("range", where + "1 point has a class above 31, of which LAS 1.2 keeps the low 5 "
                                          "bits; --las-version 1.4 keeps all"),
                    Pair("fields", where + "ScanAngleRank is left out: LAS 1.2 has no room for the 16-bit "
                                           "angles of 1 point; --las-version 1.4 keeps them")));
    EXPECT_EQ(losses(fields, version(3)).size(), 3U);
    EXPECT_THAT(losses(fields), IsEmpty());
}

TEST(LasLosses, ReturnNumbersAboveTheLimitAreCounted) {
    const auto fields = [](GridBuilder& grid) {
        grid.field("ReturnNumber", "", std::vector<unsigned char>{8, 16})
            .field("NumberOfReturns", "", std::vector<unsigned char>{8, 16});
    };
    EXPECT_THAT(losses(fields, version(2)),
                ElementsAre(Pair("range", where + "2 points have return numbers above 7, which become 7; "
                                                  "--las-version 1.4 keeps them up to 15")));
    EXPECT_THAT(losses(fields),
                ElementsAre(Pair("range", where + "1 point has return numbers above 15, which become 15")));
}

TEST(LasLosses, WholeDegreesInTheFinerFieldAreSaid) {
    const auto fields = [](GridBuilder& grid) {
        grid.field("ScanAngleRank", "", std::vector<signed char>{5, -5});
    };
    EXPECT_THAT(losses(fields), ElementsAre(Pair("units", HasSubstr("counts in 0.006 degrees"))));
    EXPECT_THAT(losses(fields, version(2)), IsEmpty());
}

TEST(LasLosses, ExtraBytesComeLateAreRoundedAndWrap) {
    EXPECT_THAT(losses([](GridBuilder& grid) {
                    grid.field("Reflectance", "", std::vector<float>{0.0001F, 9})
                        .field("Amplitude", "", std::vector<float>{0.5F, -7});
                }),
                ElementsAre(Pair("shift", HasSubstr("come one point late")),
                            Pair("range", where + "1 reflectance outside of -25 to 5, which wrap"),
                            Pair("range", where + "1 amplitude outside of 0 to 65535, which wrap"),
                            Pair("rounding", where + "reflectances are rounded by up to 0.0001"),
                            Pair("rounding", where + "amplitudes lose their fractions, up to 0.5")));
}

TEST(LasLosses, MissingAndSurplusValuesAreCounted) {
    EXPECT_THAT(
        losses([](GridBuilder& grid) {
            grid.field("Intensity", "", std::vector<unsigned short>{1})
                .field("UserData", "", std::vector<unsigned char>{1, 2, 3});
        }),
        ElementsAre(Pair("count", where + "Intensity has 1 value for 2 points; a point without one repeats "
                                          "that of the point before"),
                    Pair("count", where + "UserData has 1 value more than there are points for")));
}

TEST(LasLosses, FlagsKeepOneBit) {
    EXPECT_THAT(losses([](GridBuilder& grid) {
                    grid.field("EdgeOfFlightLine", "", std::vector<unsigned char>{1, 2});
                }),
                ElementsAre(Pair("range", HasSubstr("1 point has a ScanDirectionFlag or EdgeOfFlightLine "
                                                    "above 1"))));
}

class LasRounding : public ::testing::Test {
protected:
    static Entries of(const Points& points, const std::string& grid = "g") {
        const RecordedLas recorded([&](Sheaf::Bundle& bundle, const std::string& path) {
            const auto made = bundle.makeSlice(0)->makeGrid(grid, path);
            made->skeletons()
                .make({0, {}})
                ->representations()
                .make(made->declareCartesianChart(std::string(Sheaf::Grid::standardChart)))
                ->makeField("Positions", typeid(Geom::PhysicalSpace::point))
                ->addFragment(nullptr, Support::held(points));
        });
        Losses found;
        addLasLosses(recorded.recorder().grids().at(0), recorded.grid(), recorded.settings(), found);
        Entries entries;
        for (const Loss& loss : found.list("LAS"))
            entries.emplace_back(loss.kind, loss.message);
        return entries;
    }
};

TEST_F(LasRounding, DegreesAreRoundedByMoreThanTheirStep) {
    EXPECT_THAT(
        of({{-94.6834701, 31.0367348, 44.25}, {-94.6834702, 31.0367349, 44.26}}),
        ElementsAre(Pair("rounding", HasSubstr("more than the input's step of 1e-07 allows; LAS files "
                                               "are written in steps of 0.00025"))));
}

TEST_F(LasRounding, MillimetresAreKept) {
    EXPECT_THAT(of({{637012.241, 849028.317, 431.662}, {636784.743, 849106.661, 426.705}}), IsEmpty());
}

TEST_F(LasRounding, WhatCanStillBeToldApartIsKept) {
    // The grid of this name comes from a file that states steps of 0.25, 0.5 and 1.
    EXPECT_THAT(of({{0.1234567, 0.1, 0.1}}, "stepped"), IsEmpty());
}

LasSettings carrying(int minor) {
    LasSettings settings = version(minor);
    settings.carry = true;
    settings.conforming = true;
    return settings;
}

using Bytes = std::vector<unsigned char>;

TEST(LasLosses, CarriedGridsLoseNothingInTheLatestVersion) {
    EXPECT_THAT(losses(
                    [](GridBuilder& grid) {
                        grid.field("Synthetic", "", Bytes{1, 0})
                            .field("Overlap", "", Bytes{1, 0})
                            .field("ScannerChannel", "", Bytes{3, 0})
                            .field("NearInfrared", "", std::vector<unsigned short>{1, 2})
                            .field("Red", "", std::vector<unsigned short>{1, 2})
                            .field("ScanAngleRank", "", std::vector<signed char>{5, -5})
                            .field("Reflectance", "", std::vector<float>{-25, 5})
                            .field("Height", "", std::vector<double>{0.1, 1e300})
                            .field("Normal", "", std::vector<Geom::PhysicalSpace::vector>(2));
                    },
                    carrying(4)),
                IsEmpty());
}

TEST(LasLosses, WhatOlderVersionsHaveNoPlaceForCountsOnlyWhereItSaysSomething) {
    const auto build = [](unsigned char value) {
        return [value](GridBuilder& grid) {
            grid.field("Overlap", "", Bytes{value, 0})
                .field("ScannerChannel", "", Bytes{value, 0})
                .field("NearInfrared", "", std::vector<unsigned short>{value, 0});
        };
    };
    EXPECT_THAT(losses(build(0), carrying(2)), IsEmpty());
    EXPECT_THAT(losses(build(1), carrying(2)),
                ElementsAre(Pair("fields",
                                 HasSubstr("Overlap is left out: LAS 1.2 has no room for what 1 point has")),
                            Pair("fields", HasSubstr("ScannerChannel")),
                            Pair("fields", HasSubstr("NearInfrared"))));
}

TEST(LasLosses, NumbersThatAnEncodingCannotHoldAreTold) {
    EXPECT_THAT(losses(
                    [](GridBuilder& grid) {
                        grid.field("Height", "", std::vector<double>{0.07, 1e9})
                            .field("Width", "",
                                   std::vector<float>{1, std::numeric_limits<float>::quiet_NaN()});
                        const auto set = [&](const char* name, const std::type_info& type) {
                            grid.representation()->findField(name)->setEncoding(
                                {name, "", &type, 0.1, std::nullopt, std::nullopt});
                        };
                        set("Height", typeid(short));
                        set("Width", typeid(unsigned char));
                    },
                    carrying(4)),
                ElementsAre(Pair("rounding", HasSubstr("Height is rounded by up to 0.03")),
                            Pair("range", HasSubstr("1 value of Height beyond")),
                            Pair("range", HasSubstr("1 value of Width that is not a number becomes 0"))));
}

TEST(LasLosses, FineAnglesAreRoundedInOlderVersions) {
    EXPECT_THAT(
        losses(
            [](GridBuilder& grid) {
                grid.field("ScanAngleRank", "", std::vector<short>{83, 0});
            },
            carrying(3)),
        ElementsAre(Pair("rounding", HasSubstr("scan angles are rounded to whole degrees by up to 0.5"))));
}

TEST(LasLosses, RecordsThatDoNotFitAreTold) {
    EXPECT_THAT(losses(
                    [](GridBuilder& grid) {
                        Sheaf::FileStatement statement;
                        statement.records = {{"Somebody", 7, "", std::vector<std::uint8_t>(70'000)}};
                        grid.grid().setStatement(std::move(statement));
                    },
                    carrying(2)),
                ElementsAre(Pair("properties", HasSubstr("record Somebody/7 is left out: 70000 bytes"))));
}

TEST(LasLosses, OldHabitsAreKeptByPlain) {
    EXPECT_THAT(losses([](GridBuilder& grid) {
                    grid.field("ScanAngleRank", "", std::vector<signed char>{5, 0})
                        .field("Reflectance", "", std::vector<float>{-25, 5});
                }),
                ElementsAre(Pair("units", HasSubstr("--plain")), Pair("shift", HasSubstr("--plain"))));
}

} // namespace
} // namespace Tidewatch
