// SPDX-License-Identifier: Apache-2.0
//
// What the exporter writes beyond its contract: grids that are carried, files that conform to LAS 1.4 R15, and what a
// host adds. Files are read by a plain reader of the published layout.
#include "anchor/Error.hpp"
#include "las/LasExport.hpp"
#include "las/LasPlan.hpp"

#include <array>
#include <cmath>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

namespace {

using ExportLib::LasPlan;
using ExportLib::LasSettings;
using Support::GridBuilder;
using Support::LasRecord;
using Support::Points;
using Support::WrittenLas;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Bytes = std::vector<unsigned char>;
using Shorts = std::vector<unsigned short>;
using Color = Geom::RGB<unsigned char>;

Sheaf::FileRecord recordOf(const std::string& user, std::uint16_t id, const std::string& text,
                           const std::string& description = {}) {
    return {user, id, description, {text.begin(), text.end()}};
}

class LasCarry : public LasExport {
protected:
    LasCarry() { exporter.setCarry(true); }

    GridBuilder gridOf(std::size_t points) {
        return std::move(GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(points)));
    }

    [[nodiscard]] LasPlan plan(const GridBuilder& grid) const {
        return LasPlan::of(grid.grid(), LasSettings::of(exporter), [](const std::string&) { return true; });
    }

    template <class T>
    [[nodiscard]] static T number(const LasRecord& record, std::size_t place) {
        return Support::number<T>(record.extraBytes, place);
    }

    /// The entries of the extra-bytes record.
    [[nodiscard]] static std::vector<std::string> entries(const WrittenLas& file) {
        std::vector<std::string> list;
        for (const WrittenLas::Vlr& vlr : file.vlrs()) {
            if (vlr.userId == "LASF_Spec" && vlr.recordId == 4) {
                for (std::size_t place = 0; place < vlr.payload.size(); place += 192)
                    list.push_back(vlr.payload.substr(place, 192));
            }
        }
        return list;
    }
    [[nodiscard]] static std::string nameOf(const std::string& entry) {
        const std::string name = entry.substr(4, 32);
        return name.substr(0, name.find('\0'));
    }
};

TEST_F(LasCarry, DefaultsWriteTheSameBytesWhateverAGridStates) {
    exporter.setCarry(false);
    auto grid =
        gridOf(3).field("RGB", "a", std::vector<Color>(3)).field("GPSTime", "a", std::vector<double>(3, 7));
    for (const int version : {2, 3, 4}) {
        exporter.Version = version;
        const std::string before = exported().bytes;
        auto richer = GridBuilder(*bundle, 0, "g2")
                          .field("Positions", "a", pointsOnALine(3))
                          .field("RGB", "a", std::vector<Color>(3))
                          .field("GPSTime", "a", std::vector<double>(3, 7))
                          .field("Red", "a", Shorts{1, 2, 3})
                          .field("Withheld", "a", Bytes{1, 1, 1})
                          .field("NearInfrared", "a", Shorts{1, 2, 3})
                          .field("Other", "a", std::vector<float>{1, 2, 3});
        richer.grid().setStatement({std::array{1.0, 1.0, 1.0},
                                    std::array{5.0, 5.0, 5.0},
                                    Sheaf::FileStatement::GpsTime::Adjusted,
                                    std::uint16_t{9},
                                    "Scanner",
                                    {recordOf("Somebody", 1, "x")}});
        exporter.rejectedGrids = {"g"};
        EXPECT_EQ(exported().bytes, before) << version;
        exporter.rejectedGrids.clear();
        bundle->makeSlice(0)->removeGrid("g2");
    }
}

TEST_F(LasCarry, FlagsAndChannelOfLas14AreThoseOfTheFields) {
    gridOf(4)
        .field("Synthetic", "a", Bytes{1, 0, 0, 1})
        .field("KeyPoint", "a", Bytes{0, 1, 0, 1})
        .field("Withheld", "a", Bytes{0, 0, 1, 1})
        .field("Overlap", "a", Bytes{0, 1, 1, 0})
        .field("ScannerChannel", "a", Bytes{0, 1, 2, 3});
    for (const bool compressed : {false, true}) {
        exporter.uncompressed = !compressed;
        if (compressed) {
            EXPECT_TRUE(exporter.Run());
            EXPECT_FALSE(exporter.writtenFiles().back().failed);
            continue;
        }
        const WrittenLas file = exported();
        EXPECT_EQ(file.format(), 6U);
        const auto records = file.records();
        ASSERT_EQ(records.size(), 4U);
        EXPECT_EQ(records[0].flags, 1);
        EXPECT_EQ(records[1].flags, 2 | 8);
        EXPECT_EQ(records[2].flags, 4 | 8);
        EXPECT_EQ(records[3].flags, 1 | 2 | 4);
        for (std::uint8_t i = 0; i < 4; ++i)
            EXPECT_EQ(records[i].scannerChannel, i);
    }
}

TEST_F(LasCarry, OlderVersionsKeepThreeFlags) {
    gridOf(2)
        .field("Synthetic", "a", Bytes{1, 0})
        .field("Withheld", "a", Bytes{0, 1})
        .field("Overlap", "a", Bytes{1, 1})
        .field("Classification", "a", Bytes{31, 2});
    for (const int version : {2, 3}) {
        exporter.Version = version;
        const auto records = exported().records();
        EXPECT_EQ(records[0].flags, 1);
        EXPECT_EQ(records[1].flags, 4);
        EXPECT_EQ(records[0].classification, 31);
    }
}

TEST_F(LasCarry, ColoursOf16BitsAndNearInfraredAreAsTheyAre) {
    gridOf(2)
        .field("RGB", "a", std::vector<Color>(2))
        .field("Red", "a", Shorts{17476, 65535})
        .field("Green", "a", Shorts{1, 2})
        .field("Blue", "a", Shorts{3, 256});
    WrittenLas file = exported();
    EXPECT_EQ(file.format(), 7U);
    EXPECT_EQ(file.records()[0].rgb, (std::array<std::uint16_t, 3>{17476, 1, 3}));
    EXPECT_EQ(file.records()[1].rgb, (std::array<std::uint16_t, 3>{65535, 2, 256}));
    const auto grid = bundle->slices().begin()->second.lock()->grids().begin()->second.lock();
    const auto vertices = grid->skeletons().findVertices(-1)->representations()(grid->findCartesianChart(""));
    vertices->makeField("NearInfrared", typeid(unsigned short))
        ->addFragment(grid->makeFragment("a"), Support::held(Shorts{40000, 7}));
    file = exported();
    EXPECT_EQ(file.format(), 8U);
    EXPECT_EQ(file.recordLength(), 38U);
    EXPECT_EQ(file.records()[0].nearInfrared, 40000);
    EXPECT_EQ(file.records()[1].rgb, (std::array<std::uint16_t, 3>{65535, 2, 256}));
}

TEST_F(LasCarry, TimesStandBesideColoursInOlderVersions) {
    gridOf(2).field("RGB", "a", std::vector<Color>(2)).field("GPSTime", "a", std::vector<double>{1.5, -2.5});
    for (const int version : {2, 3}) {
        exporter.Version = version;
        const WrittenLas file = exported();
        EXPECT_EQ(file.format(), 3U);
        EXPECT_EQ(file.recordLength(), 34U);
        EXPECT_EQ(file.records()[1].gpsTime, -2.5);
    }
    exporter.rejectedFields = {"GPSTime"};
    EXPECT_EQ(exported().format(), 2U) << "without a time there is nothing to keep";
}

TEST_F(LasCarry, OtherFieldsBecomeExtraBytesOfTheirTypes) {
    auto grid = gridOf(2)
                    .field("a", "a", Bytes{1, 255})
                    .field("b", "a", std::vector<short>{-2, 300})
                    .field("c", "a", std::vector<unsigned long long>{~0ULL, 5})
                    .field("d", "a", std::vector<float>{1.5F, std::numeric_limits<float>::infinity()})
                    .field("e", "a", std::vector<long double>{0.1L, -1e4000L});
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 30U + 1 + 2 + 8 + 4 + 8);
    std::vector<std::string> found;
    for (const std::string& entry : entries(file))
        found.push_back(nameOf(entry) + " " + std::to_string(entry[2]) + " " + std::to_string(entry[3]));
    EXPECT_THAT(found, ElementsAre("a 1 0", "b 4 0", "c 7 0", "d 9 0", "e 10 0"));
    const auto records = file.records();
    EXPECT_EQ(number<std::uint8_t>(records[1], 0), 255);
    EXPECT_EQ(number<std::int16_t>(records[0], 1), -2);
    EXPECT_EQ(number<std::uint64_t>(records[0], 3), ~std::uint64_t{0});
    EXPECT_EQ(number<float>(records[1], 11), std::numeric_limits<float>::infinity());
    EXPECT_EQ(number<double>(records[0], 15), 0.1);
    EXPECT_EQ(number<double>(records[1], 15), -std::numeric_limits<double>::infinity());

    const LasPlan planned = plan(grid);
    ASSERT_EQ(planned.extras.size(), 5U);
    EXPECT_EQ(planned.extras[2].start, 3U);
    EXPECT_THAT(planned.unknownFields, IsEmpty());
    EXPECT_THAT(planned.notes, IsEmpty());
}

TEST_F(LasCarry, EncodingOfTheInputIsTheEncodingOfTheFile) {
    auto grid = gridOf(5).field(
        "height", "a", std::vector<double>{1.25, -100, 1e9, std::numeric_limits<double>::quiet_NaN(), 1.26});
    grid.representation()->findField("height")->setEncoding(
        {"Height above ground", "[m]", &typeid(short), 0.25, -10.0, -32768.0L});
    const WrittenLas file = exported();
    const std::string entry = entries(file).at(0);
    EXPECT_EQ(nameOf(entry), "Height above ground");
    EXPECT_EQ(entry[2], 4);
    EXPECT_EQ(entry[3], 1 | 8 | 16);
    EXPECT_EQ(Support::number<std::int64_t>(entry, 40), -32768);
    EXPECT_EQ(Support::number<double>(entry, 112), 0.25);
    EXPECT_EQ(Support::number<double>(entry, 136), -10.0);
    EXPECT_EQ(entry.substr(160, 4), std::string("[m]\0", 4));
    std::vector<int> stored;
    for (const LasRecord& record : file.records())
        stored.push_back(number<std::int16_t>(record, 0));
    EXPECT_THAT(stored, ElementsAre(45, -360, 32767, -32768, 45));
}

TEST_F(LasCarry, NamesAreShortenedToUniqueOnesWithANote) {
    const std::string name(40, 'n');
    auto grid = gridOf(1)
                    .field(name + "a", "a", Bytes{1})
                    .field(name + "b", "a", Bytes{2})
                    .field("short", "a", Bytes{3});
    const auto found = entries(exported());
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(nameOf(found[0]), std::string(32, 'n'));
    EXPECT_EQ(nameOf(found[1]), std::string(30, 'n') + "_2");
    EXPECT_EQ(nameOf(found[2]), "short");
    EXPECT_THAT(plan(grid).notes,
                ElementsAre(HasSubstr(std::string(32, 'n')), HasSubstr("nn_2 in the extra bytes")));
}

TEST_F(LasCarry, ComponentsAreNumbersOfTheirOwnWithANote) {
    auto grid =
        gridOf(2).field("Normal", "a", std::vector<Geom::PhysicalSpace::vector>{{1, 2, 3}, {4, 5, 6}});
    const WrittenLas file = exported();
    std::vector<std::string> names;
    for (const std::string& entry : entries(file))
        names.push_back(nameOf(entry));
    EXPECT_THAT(names, ElementsAre("Normal_1", "Normal_2", "Normal_3"));
    EXPECT_EQ(number<double>(file.records()[1], 16), 6.0);
    EXPECT_THAT(plan(grid).notes, ElementsAre(HasSubstr("Normal_1 to Normal_3")));
}

TEST_F(LasCarry, MoreExtraBytesThanRecordsHoldAreLeftOut) {
    auto grid = gridOf(1);
    for (int i = 0; i < 345; ++i)
        grid.field("f" + std::to_string(1000 + i), "a", Bytes{static_cast<unsigned char>(i)});
    const LasPlan planned = plan(grid);
    EXPECT_EQ(planned.extras.size(), 341U) << "entries of 192 bytes in a record of 65535";
    EXPECT_EQ(planned.fieldsLeftOut.size(), 4U);
    EXPECT_THAT(planned.fieldsLeftOut.at("f1344").reason, HasSubstr("no room"));
    EXPECT_EQ(entries(exported()).size(), 341U);
}

TEST_F(LasCarry, ReflectanceGoesBackIntoTheBytesThatItCameFrom) {
    auto grid = gridOf(2).field("Reflectance", "a", std::vector<float>{-40, 9.5F});
    grid.representation()
        ->findField("Reflectance")
        ->setEncoding({"Reflectance", "dB", &typeid(short), 0.01, std::nullopt, std::nullopt});
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 32U);
    EXPECT_EQ(nameOf(entries(file).at(0)), "Reflectance");
    EXPECT_EQ(number<std::int16_t>(file.records()[0], 0), -4000);
    EXPECT_EQ(number<std::int16_t>(file.records()[1], 0), 950);
    EXPECT_FALSE(plan(grid).hasReflectance);
    EXPECT_THAT(plan(grid).fieldsLeftOut, IsEmpty());
}

TEST_F(LasCarry, ContractsAttributesComeFirstAndKeepTheirHabits) {
    gridOf(2)
        .field("Amplitude", "a", Shorts{10, 20})
        .field("Reflectance", "a", std::vector<float>{-25, 5})
        .field("Zeal", "a", Bytes{7, 8});
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 30U + 6 + 1);
    const auto records = file.records();
    EXPECT_EQ(number<std::uint16_t>(records[1], 0), 10) << "one point late";
    EXPECT_EQ(number<std::uint8_t>(records[1], 4), 8) << "its own point";
    exporter.setConforming(true);
    const auto conforming = exported().records();
    EXPECT_EQ(conforming[1].extraBytes.size(), 5U);
    EXPECT_EQ(number<std::uint16_t>(conforming[0], 0), 10);
    EXPECT_EQ(number<std::uint16_t>(conforming[1], 2), 65520);
    EXPECT_EQ(number<std::uint8_t>(conforming[1], 4), 8);
}

TEST_F(LasCarry, RecordsGoAlongInOrderButThoseThatAreBoundToTheirFile) {
    auto grid = gridOf(2).field("Zeal", "a", Bytes{7, 8});
    Sheaf::FileStatement statement;
    statement.records = {recordOf("Somebody", 1, "first", std::string(32, 'd')),
                         recordOf("LASF_Spec", 4, "no"),
                         recordOf("LASF_Projection", 34735, "no"),
                         recordOf("Somebody", 1, "second"),
                         recordOf("laszip encoded", 22204, "no"),
                         recordOf("LASF_Spec", 3, std::string("a\0b", 3)),
                         recordOf("copc", 1, "no"),
                         recordOf("Somebody", 2, ""),
                         recordOf(std::string(17, 'u'), 1, "no")};
    grid.grid().setStatement(statement);
    for (const int version : {2, 3, 4}) {
        exporter.Version = version;
        const auto vlrs = exported().vlrs();
        ASSERT_EQ(vlrs.size(), 5U);
        EXPECT_EQ(vlrs[0].recordId, 4);
        EXPECT_EQ(vlrs[1].payload, "first");
        EXPECT_EQ(vlrs[1].description, std::string(32, 'd'));
        EXPECT_EQ(vlrs[2].payload, "second");
        EXPECT_EQ(vlrs[2].description, "");
        EXPECT_EQ(vlrs[3].payload, std::string("a\0b", 3));
        EXPECT_EQ(vlrs[4].userId, "Somebody");
    }
    const LasPlan planned = plan(grid);
    EXPECT_EQ(planned.records, 4U);
    ASSERT_EQ(planned.recordsLeftOut.size(), 1U);
    EXPECT_THAT(planned.recordsLeftOut[0].reason, HasSubstr("16 bytes"));
}

TEST_F(LasCarry, LongRecordsStandBehindThePointsOfLas14) {
    auto grid = gridOf(3).field("Zeal", "a", Bytes{7, 8, 9});
    Sheaf::FileStatement statement;
    statement.records = {recordOf("Somebody", 1, std::string(65'535, 'v')),
                         recordOf("Somebody", 2, std::string(65'536, 'e'), "far"),
                         recordOf("Somebody", 3, std::string(100'000, 'f'))};
    grid.grid().setStatement(statement);
    const WrittenLas file = exported();
    EXPECT_EQ(file.vlrs().size(), 2U);
    const auto evlrs = file.evlrs();
    ASSERT_EQ(evlrs.size(), 2U);
    EXPECT_EQ(evlrs[0].payload, std::string(65'536, 'e'));
    EXPECT_EQ(evlrs[0].description, "far");
    EXPECT_EQ(evlrs[1].recordId, 3);
    EXPECT_EQ(file.records()[2].extraBytes, "\x09");
    EXPECT_FALSE(exporter.writtenFiles().back().failed);
    EXPECT_EQ(exporter.writtenFiles().back().bytes, file.bytes.size());

    exporter.uncompressed = false;
    EXPECT_TRUE(exporter.Run());
    EXPECT_FALSE(exporter.writtenFiles().back().failed);
    EXPECT_EQ(WrittenLas::read(folder / "cloud.laz").evlrs()[1].payload, std::string(100'000, 'f'));

    exporter.uncompressed = true;
    exporter.Version = 3;
    EXPECT_EQ(exported().vlrs().size(), 2U);
    EXPECT_EQ(plan(grid).recordsLeftOut.size(), 2U);
}

TEST_F(LasCarry, HeaderStatesWhatTheGridStates) {
    auto grid = gridOf(2).field("GPSTime", "a", std::vector<double>{1, 2});
    Sheaf::FileStatement statement;
    statement.gpsTime = Sheaf::FileStatement::GpsTime::Adjusted;
    statement.fileSourceId = 4711;
    statement.systemIdentifier = std::string(32, 's');
    statement.step = {0.001, 0.01, 1};
    statement.offset = {1, 2, 3};
    grid.grid().setStatement(statement);
    const WrittenLas file = exported();
    EXPECT_EQ(file.at<std::uint16_t>(4), 4711);
    EXPECT_EQ(file.at<std::uint16_t>(6), 1);
    EXPECT_EQ(file.text(26, 32), std::string(32, 's'));
    EXPECT_EQ(file.text(58, 32), "Tidewatch");
    EXPECT_EQ(file.scale(1), 0.01);
    EXPECT_EQ(file.offset(2), 3.0);
    EXPECT_EQ(file.records()[1].x, 0);
    EXPECT_EQ(file.records()[1].y, -100);
    EXPECT_EQ(file.records()[1].z, -1);
}

TEST_F(LasCarry, CoordinatesThatDoNotFitGetAnotherOffsetThenACoarserStep) {
    auto grid =
        GridBuilder(*bundle, 0, "g").field("Positions", "a", Points{{5e6, 1e9, 0}, {5e6 + 1, -1e9, 1}});
    Sheaf::FileStatement statement;
    statement.step = {0.001, 0.001, 0.001};
    statement.offset = {-5e6, 0, 0};
    grid.grid().setStatement(statement);
    const WrittenLas file = exported();
    EXPECT_EQ(file.scale(0), 0.001);
    EXPECT_EQ(file.offset(0), 5e6);
    EXPECT_EQ(file.scale(1), 1.0);
    EXPECT_EQ(file.offset(1), 0.0);
    EXPECT_EQ(file.scale(2), 0.001);
    EXPECT_EQ(file.records()[0].y, 1'000'000'000);
}

TEST_F(LasCarry, StepAndOffsetAreSettingsOfTheirOwn) {
    exporter.setCarry(false);
    gridOf(3);
    exporter.setStep(std::array{0.5, 0.25, 2.0});
    exporter.setOffset(std::array{-1.0, 0.0, 10.0});
    const WrittenLas file = exported();
    EXPECT_EQ(file.scale(0), 0.5);
    EXPECT_EQ(file.offset(2), 10.0);
    EXPECT_EQ(file.records()[2].x, 6);
    EXPECT_EQ(file.records()[2].z, -4);
    EXPECT_EQ(file.upper(0), 2.0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(exporter.setStep(std::array{0.5, 0.0, 1.0}), Anchor::ModelError);
    EXPECT_THROW(exporter.setStep(std::array{0.5, nan, 1.0}), Anchor::ModelError);
    EXPECT_THROW(exporter.setOffset(std::array{nan, 0.0, 1.0}), Anchor::ModelError);
    EXPECT_EQ(exporter.Step(), (std::array{0.5, 0.25, 2.0}));
}

TEST_F(LasCarry, SettingsStandInTheCommonParametersAndNotInTheOwn) {
    exporter.setCarry(false);
    const std::string own = exporter.printSecondary();
    const std::string common = exporter.printParameters();
    exporter.setCarry(true);
    exporter.setConforming(true);
    exporter.setStep(std::array{0.5, 0.25, 2.0});
    exporter.setAdditions(6.5, "dunes", {{recordOf("LASF_Projection", 2112, "text")}, 16, "prj"});
    EXPECT_EQ(exporter.printSecondary(), own);
    EXPECT_EQ(exporter.printParameters(),
              common + "\nAdditions: dunes 6.5 LASF_Projection/2112:4 HeaderBits:16 prj:3 "
                       "\nCarry \nConforming \nStep: 0.5 0.25 2 ");
    exporter.setAdditions(6.5, "dunes", {});
    exporter.setCarry(false);
    exporter.setConforming(false);
    exporter.setStep(std::nullopt);
    EXPECT_EQ(exporter.printParameters(), common);
}

TEST_F(LasCarry, AdditionsGoIntoTheHeadersOfTheirGridAlone) {
    exporter.setCarry(false);
    exporter.tiles = true;
    gridOf(2);
    exporter.setAdditions(0, "g", {{recordOf("LASF_Projection", 2112, "text")}, 16, {}});
    exporter.setAdditions(0, "h", {{recordOf("LASF_Projection", 2112, "other")}, 16, {}});
    const WrittenLas file = exported("cloud_a.las");
    EXPECT_EQ(file.at<std::uint16_t>(6), 16);
    ASSERT_EQ(file.vlrs().size(), 1U);
    EXPECT_EQ(file.vlrs()[0].payload, "text");
    EXPECT_EQ(file.text(26, 32), "BluestoneSurveyGroup") << "nothing else changes";
}

class LasConforming : public LasCarry {
protected:
    LasConforming() {
        exporter.setCarry(false);
        exporter.setConforming(true);
    }
};

TEST_F(LasConforming, AnglesStandInTheUnitOfTheField) {
    gridOf(3).field("ScanAngleRank", "a", std::vector<signed char>{-128, 10, 127});
    std::vector<int> angles;
    for (const LasRecord& record : exported().records())
        angles.push_back(record.scanAngle);
    EXPECT_THAT(angles, ElementsAre(-21333, 1667, 21167));
}

TEST_F(LasConforming, FineAnglesAreRoundedToDegreesInOlderVersions) {
    gridOf(4).field("ScanAngleRank", "a", std::vector<short>{-30000, 1667, 83, 84});
    exporter.Version = 2;
    std::vector<int> angles;
    for (const LasRecord& record : exported().records())
        angles.push_back(record.scanAngle);
    EXPECT_THAT(angles, ElementsAre(-90, 10, 0, 1));
}

TEST_F(LasConforming, ColoursOf8BitsAreMultipliedBy256) {
    gridOf(2).field("RGB", "a", std::vector<Color>{{0, 1, 255}, {2, 3, 4}});
    for (const int version : {2, 4}) {
        exporter.Version = version;
        EXPECT_EQ(exported().records()[0].rgb, (std::array<std::uint16_t, 3>{0, 256, 65280}));
    }
}

TEST_F(LasConforming, RecordsHaveNoUndescribedBytes) {
    gridOf(2)
        .field("RGB", "a", std::vector<Color>(2))
        .field("Amplitude", "a", Shorts{10, 20})
        .field("Reflectance", "a", std::vector<float>{-25, 5});
    exporter.Version = 2;
    EXPECT_EQ(exported().recordLength(), 26U + 4);
    exporter.Version = 4;
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 36U + 4);
    EXPECT_EQ(number<std::uint16_t>(file.records()[0], 0), 10);
    EXPECT_EQ(number<std::uint16_t>(file.records()[1], 2), 65520);
}

TEST_F(LasConforming, CountsByReturnCountWhatIsStored) {
    // The third point repeats the number of the second.
    gridOf(3).field("ReturnNumber", "a", Bytes{1, 2});
    const auto counts = exported().countsByReturn();
    EXPECT_EQ(counts[0], 1U);
    EXPECT_EQ(counts[1], 2U);
}

TEST_F(LasConforming, ExtentIsThatOfTheStoredPoints) {
    GridBuilder(*bundle, 0, "g").field("Positions", "a", Points{{0.1001, 0, 0}, {3, 7.77777, -1}});
    const WrittenLas file = exported();
    const auto records = file.records();
    EXPECT_EQ(file.lower(0), records[0].x * file.scale(0) + file.offset(0));
    EXPECT_EQ(file.upper(1), records[1].y * file.scale(1) + file.offset(1));
    EXPECT_EQ(file.lower(2), records[1].z * file.scale(2) + file.offset(2));
}

TEST_F(LasConforming, DaysCountFromOne) {
    gridOf(1);
    exporter.Day = 0;
    exporter.Year = 0;
    const auto today = [] {
        const std::time_t now = std::time(nullptr);
        std::tm parts{};
        ::localtime_r(&now, &parts);
        return static_cast<unsigned>(parts.tm_yday) + 1;
    };
    const unsigned before = today();
    const unsigned written = exported().day();
    EXPECT_TRUE(written == before || written == today());
    exporter.Day = 5;
    exporter.Year = 2024;
    EXPECT_EQ(exported().day(), 5U) << "a day that a host gives stays";
}

} // namespace
