// SPDX-License-Identifier: Apache-2.0
#include "las/ExportPointCloudToLas.hpp"

#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "las/LasExport.hpp"
#include "sheaf/CachedCreator.hpp"
#include "sheaf/TypeRegistry.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <cmath>
#include <functional>
#include <limits>

namespace {

using Support::GridBuilder;
using Support::LasRecord;
using Support::Points;
using Support::ScriptedProgress;
using Support::WrittenLas;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;
using Shorts = std::vector<unsigned short>;

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<unsigned> returnNumbers(const std::vector<LasRecord>& records) {
    std::vector<unsigned> numbers;
    for (const LasRecord& record : records)
        numbers.push_back(record.returnNumber);
    return numbers;
}

unsigned short extra(const LasRecord& record, std::size_t place) {
    return Support::number<unsigned short>(record.extraBytes, place);
}

// Names and numbers of files.

TEST_F(LasExport, CompressedUnlessToldOtherwiseAndNamedAfterTheOutputPath) {
    exporter.uncompressed = false;
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(3));
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("cloud.laz"));
    EXPECT_TRUE(WrittenLas::read(folder / "cloud.laz").isCompressed());
}

TEST_F(LasExport, TilesAreNamedAfterTheirFragments) {
    exporter.uncompressed = false;
    exporter.tiles = true;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(3))
        .field("Positions", "b", pointsOnALine(4));
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("cloud_a.laz", "cloud_b.laz"));
}

TEST_F(LasExport, TileOfPositionsWithoutFragmentsIsUnfragmented) {
    exporter.tiles = true;
    GridBuilder(*bundle, 0, "g").field("Positions", "", pointsOnALine(3));
    EXPECT_EQ(exported("cloud_Unfragmented.las").count(), 3U);
}

TEST_F(LasExport, PathWithoutADotIsTheWholeBaseName) {
    // The path of the temporary folder has no dot either.
    ASSERT_EQ(folder.path().string().find('.'), std::string::npos);
    exporter.OutputPath = folder / "cloud";
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(3));
    EXPECT_EQ(exported().count(), 3U);
}

TEST_F(LasExport, LastDotOfTheWholePathEndsTheBaseName) {
    exporter.OutputPath = folder / "run.3/cloud";
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(3));
    EXPECT_EQ(exported("run.las").count(), 3U);
}

TEST_F(LasExport, OnlyTheLastExtensionGivesWay) {
    exporter.OutputPath = folder / "cloud.v2.xyz";
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(3));
    EXPECT_EQ(exported("cloud.v2.las").count(), 3U);
}

TEST_F(LasExport, TwoFragmentsUntiledGiveOneFileWithTheSumOfTheirPoints) {
    for (const int version : {2, 3, 4}) {
        exporter.Version = version;
        const auto own = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.bundleptr = own;
        GridBuilder(*own, 0, "g")
            .field("Positions", "a", pointsOnALine(1000))
            .field("Positions", "b", pointsOnALine(500));
        const WrittenLas file = exported();
        EXPECT_EQ(file.count(), 1500U);
        EXPECT_EQ(file.records().size(), 1500U);
        EXPECT_EQ(file.countsByReturn()[0], 1500U);
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("cloud.las"));
}

TEST_F(LasExport, TilesOfVersion4CountTheirOwnPoints) {
    exporter.tiles = true;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(7))
        .field("Positions", "b", pointsOnALine(4));
    EXPECT_EQ(exported("cloud_a.las").count(), 7U);
    EXPECT_EQ(WrittenLas::read(folder / "cloud_b.las").count(), 4U);
}

TEST_F(LasExport, PointsEditedInMemoryBetweenTwoRunsAreWrittenWhereTheyAreNow) {
    const auto points = Sheaf::makeArray(Support::Points{{1, 2, 3}, {2, 3, 4}});
    GridBuilder(*bundle, 0, "g").field("Positions", "a", Anchor::makeStrong<Sheaf::HeldCreator>(points));
    EXPECT_EQ(exported().upper(0), 2);
    points->base_vector() = {{600000, 2, 3}, {600001, 3, 4}};
    const WrittenLas file = exported();
    EXPECT_EQ(file.lower(0), 600000);
    EXPECT_EQ(file.upper(0), 600001);
    EXPECT_EQ(file.offset(0) + file.scale(0) * file.records()[0].x, 600000);
}

TEST_F(LasExport, TileIsOpenedBeforeTheOneBeforeItIsFinished) {
    // One file under the names of both tiles: what the first has not finished when the second empties the
    // file comes after that, and being longer, it stays behind the second one's only point.
    fs::create_symlink(folder / "cloud_a.las", folder / "cloud_b.las");
    exporter.tiles = true;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(10))
        .field("Positions", "b", pointsOnALine(1));
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(fs::file_size(folder / "cloud_a.las"), 375U + 10 * 30);
}

TEST_F(LasExport, TileHasTheBoxOfItsFragmentAndOneFileThatOfAll) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{0, 0, 0}, {2, 4, 6}})
        .field("Positions", "b", Points{{10, 20, 30}, {12, 24, 36}});
    const WrittenLas whole = exported();
    EXPECT_EQ(whole.lower(0), 0);
    EXPECT_EQ(whole.upper(2), 36);
    EXPECT_EQ(whole.offset(1), 12);
    exporter.tiles = true;
    const WrittenLas tile = exported("cloud_b.las");
    EXPECT_EQ(tile.lower(0), 10);
    EXPECT_EQ(tile.upper(2), 36);
    EXPECT_EQ(tile.offset(1), 22);
}

TEST_F(LasExport, LaterGridOverwritesTheFileOfAnEarlierOne) {
    GridBuilder(*bundle, 0, "a").field("Positions", "f", pointsOnALine(3));
    GridBuilder(*bundle, 0, "b").field("Positions", "f", pointsOnALine(5));
    GridBuilder(*bundle, 1, "a").field("Positions", "f", pointsOnALine(4));
    EXPECT_EQ(exported().count(), 4U);
    ASSERT_EQ(exporter.writtenFiles().size(), 3U);
    EXPECT_EQ(exporter.writtenFiles()[1].items, 5U);
    EXPECT_EQ(exporter.FragmentCount, 3);
}

TEST_F(LasExport, WrittenFilesHaveSizeAndPointsOfEachFile) {
    exporter.tiles = true;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(7))
        .field("Positions", "b", pointsOnALine(4));
    EXPECT_TRUE(exporter.Run());
    ASSERT_EQ(exporter.writtenFiles().size(), 2U);
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        EXPECT_EQ(file.bytes, fs::file_size(file.path));
        EXPECT_FALSE(file.failed);
    }
    EXPECT_EQ(exporter.writtenFiles()[0].path, folder / "cloud_a.las");
    EXPECT_EQ(exporter.writtenFiles()[0].items, 7U);
    EXPECT_EQ(exporter.writtenFiles()[1].items, 4U);
}

// Headers.

TEST_F(LasExport, ColorGivesFormat7Of36BytesInVersion4AndFormat2Of34InVersion2) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("RGB", "a", std::vector<Geom::RGB<unsigned char>>{{{{1, 2, 255}}}});
    const WrittenLas wide = exported();
    EXPECT_EQ(wide.format(), 7U);
    EXPECT_EQ(wide.recordLength(), 36U);
    EXPECT_THAT(wide.records()[0].rgb, ElementsAre(1, 2, 255));
    exporter.Version = 2;
    const WrittenLas narrow = exported();
    EXPECT_EQ(narrow.format(), 2U);
    EXPECT_EQ(narrow.recordLength(), 34U);
    EXPECT_THAT(narrow.records()[0].rgb, ElementsAre(1, 2, 255));
}

TEST_F(LasExport, ReflectanceAndAmplitudeShareSixBytesAmplitudeFirst) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(3))
        .field("Reflectance", "a", std::vector<float>{-25.0F, 5.0F, 5.01F})
        .field("Amplitude", "a", Shorts{7, 8, 9});
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 36U);
    const auto vlrs = file.vlrs();
    ASSERT_EQ(vlrs.size(), 1U);
    EXPECT_EQ(vlrs[0].userId, "LASF_Spec");
    EXPECT_EQ(vlrs[0].recordId, 4);
    ASSERT_EQ(vlrs[0].payload.size(), 384U);
    EXPECT_STREQ(vlrs[0].payload.c_str() + 4, "Amplitude");
    EXPECT_STREQ(vlrs[0].payload.c_str() + 192 + 4, "BSG_Reflectance");
    EXPECT_STREQ(vlrs[0].payload.c_str() + 192 + 160, "Reflectance between -25:5 [-]");
    // Each point carries the values of the one before it.
    const auto records = file.records();
    EXPECT_EQ(extra(records[0], 0), 0);
    EXPECT_EQ(extra(records[0], 2), 0);
    EXPECT_EQ(extra(records[1], 0), 7);
    EXPECT_EQ(extra(records[1], 2), 0); // of -25
    EXPECT_EQ(extra(records[2], 0), 8);
    EXPECT_EQ(extra(records[2], 2), 65520); // of 5
    EXPECT_EQ(extra(records[2], 4), 0);
}

TEST_F(LasExport, RejectedOrMistypedReflectanceStillHasItsAttributeWithZeros) {
    exporter.rejectedFields = {"Amplitude"};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("Reflectance", "a", std::vector<double>{1, 2})
        .field("Amplitude", "a", Shorts{7, 8});
    const WrittenLas file = exported();
    ASSERT_EQ(file.recordLength(), 36U);
    for (const LasRecord& record : file.records())
        EXPECT_EQ(record.extraBytes, std::string(6, '\0'));
}

TEST_F(LasExport, FieldRenamedToReflectanceHasNoAttributeAndIsNotStored) {
    exporter.RenameMap = {{"Echo", "Reflectance"}, {"Strength", "Amplitude"}};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("Echo", "a", std::vector<float>{1, 2})
        .field("Strength", "a", Shorts{7, 8});
    const WrittenLas file = exported();
    EXPECT_EQ(file.recordLength(), 30U);
    EXPECT_THAT(file.vlrs(), IsEmpty());
}

TEST_F(LasExport, AttributesOfOtherRepresentationsCountInTheHeaderToo) {
    GridBuilder builder(*bundle, 0, "g");
    builder.field("Positions", "a", pointsOnALine(2));
    builder.chart("Other").field("Reflectance", "a", std::vector<float>{1, 2});
    EXPECT_EQ(exported().recordLength(), 32U);
}

TEST_F(LasExport, BoxOfAFieldWithoutPointsHasZerosForCorners) {
    GridBuilder(*bundle, 0, "g").field("Positions", "a", Points{});
    const WrittenLas file = exported();
    EXPECT_EQ(file.count(), 0U);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(file.lower(axis), 0);
        EXPECT_EQ(file.upper(axis), 0);
        EXPECT_EQ(file.offset(axis), 0);
    }
}

TEST_F(LasExport, CoordinatesThatAreNoNumbersAreStoredAsZeroAndLeaveTheBoxAlone) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    GridBuilder(*bundle, 0, "g").field("Positions", "a", Points{{1, 2, nan}, {nan, 4, nan}, {3, 2, nan}});
    const WrittenLas file = exported();
    EXPECT_EQ(file.lower(0), 1);
    EXPECT_EQ(file.upper(0), 3);
    EXPECT_EQ(file.upper(2), 0);
    const auto records = file.records();
    EXPECT_EQ(records[0].x, -4000);
    EXPECT_EQ(records[1].x, 0);
    EXPECT_EQ(records[1].y, 4000);
    EXPECT_EQ(records[2].z, 0);
}

TEST_F(LasExport, InfiniteAndHugeCoordinatesAreWrittenWithoutHarm) {
    const double infinity = std::numeric_limits<double>::infinity();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{-infinity, 1e9, 1e300}, {infinity, -1e9, -1e300}});
    const WrittenLas file = exported();
    EXPECT_EQ(file.lower(0), -infinity);
    EXPECT_TRUE(std::isnan(file.offset(0)));
    const auto records = file.records();
    EXPECT_EQ(records[0].x, 0);
    EXPECT_EQ(records[0].y, static_cast<std::int32_t>(4'000'000'000'000LL & 0xFFFFFFFFLL));
    EXPECT_EQ(records[0].z, 0);
}

TEST_F(LasExport, DayAndYearZeroStandForToday) {
    exporter.Day = 0;
    exporter.Year = 0;
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(1));
    const auto today = [] {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        ::localtime_r(&now, &local);
        return std::pair(static_cast<unsigned>(local.tm_yday), static_cast<unsigned>(local.tm_year + 1900));
    };
    const auto before = today();
    const WrittenLas file = exported();
    EXPECT_THAT(std::pair(file.day(), file.year()), ::testing::AnyOf(before, today()));
}

// Return numbers.

TEST_F(LasExport, ReturnNumberZeroIsStoredAndCountedNowhere) {
    for (const int version : {2, 4}) {
        exporter.Version = version;
        const auto own = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.bundleptr = own;
        GridBuilder(*own, 0, "g")
            .field("Positions", "a", pointsOnALine(3))
            .field("ReturnNumber", "a", Bytes{0, 0, 1});
        const WrittenLas file = exported();
        EXPECT_THAT(returnNumbers(file.records()), ElementsAre(0, 0, 1));
        EXPECT_EQ(file.countsByReturn()[0], 1U);
    }
}

TEST_F(LasExport, ReturnNumber9InVersion2IsStoredAs7WithOneWarning) {
    exporter.Version = 2;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(3))
        .field("ReturnNumber", "a", Bytes{9, 6, 5});
    const WrittenLas file = exported();
    EXPECT_THAT(returnNumbers(file.records()), ElementsAre(7, 6, 5));
    EXPECT_THAT(
        console.messages,
        ElementsAre("Warning: For 1 points the return number exceeds the las-specs! (greater than 5 or 15 if "
                    "extended)"));
    // Returns 6 and 7 are counted, but the header has no place for them.
    EXPECT_THAT(file.countsByReturn(), ElementsAre(0, 0, 0, 0, 1));
}

TEST_F(LasExport, ReturnNumber15InVersion4IsStoredAndCountedWithoutWarning) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("ReturnNumber", "a", Bytes{15});
    const WrittenLas file = exported();
    EXPECT_THAT(returnNumbers(file.records()), ElementsAre(15));
    EXPECT_EQ(file.countsByReturn()[14], 1U);
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(LasExport, ReturnNumber16InVersion4IsStoredAndCountedAs15) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("ReturnNumber", "a", Bytes{16, 255});
    const WrittenLas file = exported();
    EXPECT_THAT(returnNumbers(file.records()), ElementsAre(15, 15));
    EXPECT_EQ(file.countsByReturn()[14], 2U);
    EXPECT_EQ(console.messages.size(), 1U);
}

TEST_F(LasExport, ReturnNumberAndNumberOfReturnsOfOnePointCountTwiceInTheWarning) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("ReturnNumber", "a", Bytes{16, 1})
        .field("NumberOfReturns", "a", Bytes{17, 2})
        .field("Positions", "b", pointsOnALine(1))
        .field("ReturnNumber", "b", Bytes{20});
    const auto records = exported().records();
    EXPECT_EQ(records[0].numberOfReturns, 15);
    EXPECT_EQ(records[1].numberOfReturns, 2);
    // One warning a fragment.
    ASSERT_EQ(console.messages.size(), 2U);
    EXPECT_THAT(console.messages[0], ::testing::StartsWith("Warning: For 2 points "));
    EXPECT_THAT(console.messages[1], ::testing::StartsWith("Warning: For 1 points "));
}

// Fields.

TEST_F(LasExport, FixedPointSourceIdReplacesTheField) {
    exporter.PointSourceID = 3;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("PointSourceID", "a", Shorts{8, 9});
    for (const LasRecord& record : exported().records())
        EXPECT_EQ(record.pointSourceId, 3);
}

TEST_F(LasExport, PointSourceIdOfTheFieldIsTakenWithoutAFixedOne) {
    exporter.PointSourceID = 0;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("PointSourceID", "a", Shorts{8, 65535});
    const auto records = exported().records();
    EXPECT_EQ(records[0].pointSourceId, 8);
    EXPECT_EQ(records[1].pointSourceId, 65535);
}

TEST_F(LasExport, RenamedFieldIsCapturedAndItsNewNameIsHandled) {
    // "Brightness" comes first and takes the name "Intensity"; the field "Intensity" itself is then passed
    // over.
    exporter.RenameMap = {{"Brightness", "Intensity"}};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("Brightness", "a", Shorts{100, 200})
        .field("Intensity", "a", Shorts{1, 2});
    const auto records = exported().records();
    EXPECT_EQ(records[0].intensity, 100);
    EXPECT_EQ(records[1].intensity, 200);
}

TEST_F(LasExport, LaterOfTwoFieldsThatAreGivenOneNameWins) {
    exporter.RenameMap = {{"Brightness", "Intensity"}, {"Grey", "Intensity"}, {"Zeal", "UserData"}};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("Brightness", "a", Shorts{100})
        .field("Grey", "a", Shorts{200})
        .field("UserData", "a", Bytes{1})
        .field("Zeal", "a", Bytes{2});
    const auto records = exported().records();
    EXPECT_EQ(records[0].intensity, 200);
    EXPECT_EQ(records[0].userData, 2);
}

TEST_F(LasExport, RenamedFieldWithoutDataForTheFragmentDoesNotTakeTheName) {
    exporter.RenameMap = {{"Brightness", "Intensity"}};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("Positions", "b", pointsOnALine(1))
        .field("Brightness", "a", Shorts{100})
        .field("Intensity", "a", Shorts{1})
        .field("Intensity", "b", Shorts{2});
    const auto records = exported().records();
    EXPECT_EQ(records[0].intensity, 100);
    EXPECT_EQ(records[1].intensity, 2);
}

TEST_F(LasExport, HostsRenameMapIsUsedAsItIs) {
    exporter.RenameMap = {{"Intensity", "Unused"}};
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(1)).field("Intensity", "a", Shorts{5});
    EXPECT_EQ(exported().records()[0].intensity, 0);
    EXPECT_EQ(exporter.RenameMap.size(), 1U);
}

TEST_F(LasExport, EmptyRenameMapIsFilledWithTheTwelveDefaults) {
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(exporter.RenameMap, ExportLib::ExportPointCloudToLas::DefaultRenameMap());
    EXPECT_EQ(exporter.RenameMap.size(), 12U);
}

TEST_F(LasExport, AttributeMissingInALaterFragmentKeepsTheLastValueOfTheFile) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("Intensity", "a", Shorts{5, 6})
        .field("Positions", "b", pointsOnALine(2));
    const auto records = exported().records();
    EXPECT_EQ(records[2].intensity, 6);
    EXPECT_EQ(records[3].intensity, 6);
}

TEST_F(LasExport, ArrayShorterThanThePositionsAppliesToTheIndicesItHas) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(3))
        .field("Intensity", "a", Shorts{5})
        .field("Classification", "a", Bytes{1, 2, 3, 4});
    const auto records = exported().records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[2].intensity, 5);
    EXPECT_EQ(records[2].classification, 3);
}

TEST_F(LasExport, EightBitAngleIsStoredAsItIsInVersion4AndWinsOverTheFineOne) {
    exporter.RenameMap = {{"Fine", "ScanAngleRank"}};
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("Fine", "a", std::vector<short>{-15000})
        .field("Positions", "b", pointsOnALine(1))
        .field("Fine", "b", std::vector<short>{-15000})
        .field("SomeRank", "b", std::vector<signed char>{-90});
    exporter.RenameMap["SomeRank"] = "ScanAngleRank";
    const auto records = exported().records();
    EXPECT_EQ(records[0].scanAngle, -15000);
    EXPECT_EQ(records[1].scanAngle, -90);
}

TEST_F(LasExport, ClassesAreCutToFiveBitsInOldVersions) {
    exporter.Version = 3;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("Classification", "a", Bytes{31, 64 + 2});
    const auto records = exported().records();
    EXPECT_EQ(records[0].classification, 31);
    EXPECT_EQ(records[1].classification, 2);
}

TEST_F(LasExport, FlagsAreTheLowestBits) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(2))
        .field("EdgeOfFlightLine", "a", Bytes{2, 255})
        .field("ScanDirectionFlag", "a", Bytes{3, 4});
    const auto records = exported().records();
    EXPECT_EQ(records[0].edgeOfFlightLine, 0);
    EXPECT_EQ(records[0].scanDirection, 1);
    EXPECT_EQ(records[1].edgeOfFlightLine, 1);
    EXPECT_EQ(records[1].scanDirection, 0);
}

TEST_F(LasExport, RejectedFieldIsNotWritten) {
    exporter.rejectedFields = {"Intensity"};
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(1)).field("Intensity", "a", Shorts{5});
    EXPECT_EQ(exported().records()[0].intensity, 0);
}

TEST_F(LasExport, PositionsOfHigherRankAreWrittenInStorageOrder) {
    GridBuilder(*bundle, 0, "g")
        .field(
            "Positions", "a",
            Anchor::makeStrong<Sheaf::HeldCreator>(Sheaf::makeArray(Sheaf::Extents{2, 3}, pointsOnALine(6))));
    const WrittenLas file = exported();
    EXPECT_EQ(file.count(), 6U);
    EXPECT_EQ(file.records()[5].x - file.records()[0].x, 5 * 4000);
}

// What is passed over.

TEST_F(LasExport, NoBundleIsNoErrorAndNoFile) {
    exporter.bundleptr = nullptr;
    EXPECT_TRUE(exporter.Run());
    bundle.reset();
    ExportLib::ExportPointCloudToLas other;
    {
        const auto gone = Anchor::makeStrong<Sheaf::Bundle>();
        other.bundleptr = gone;
    }
    EXPECT_TRUE(other.Run());
    EXPECT_THAT(exporter.Errors, IsEmpty());
    EXPECT_THAT(other.Errors, IsEmpty());
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(LasExport, UnknownVersionWritesNothingAndSaysNothing) {
    exporter.Version = 7;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(3))
        .field("ReturnNumber", "a", Bytes{99, 99, 99});
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(exporter.Errors, IsEmpty());
    EXPECT_THAT(console.messages, IsEmpty());
    EXPECT_THAT(exporter.writtenFiles(), IsEmpty());
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_EQ(exporter.FragmentCount, 1);
}

TEST_F(LasExport, LatticesAreSkipped) {
    const auto lattice = Anchor::makeStrong<Sheaf::UniformCartesianArray>(
        Geom::PhysicalSpace::point{}, Geom::PhysicalSpace::vector{1, 1, 1}, Sheaf::MultiIndex<3>{4, 4, 1});
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Anchor::makeStrong<Sheaf::HeldCreator>(lattice))
        .field("Positions", "b", pointsOnALine(2));
    EXPECT_EQ(exported().count(), 2U);
    EXPECT_EQ(exporter.FragmentCount, 1);
}

TEST_F(LasExport, GridsWithoutChartSkeletonOrPositionsAreSkippedWithoutAWord) {
    bundle->makeSlice(0)->makeGrid("empty");
    bundle->makeSlice(0)->makeGrid("no skeleton")->declareCartesianChart("c");
    GridBuilder(*bundle, 0, "no positions").field("Intensity", "a", Shorts{1});
    GridBuilder(*bundle, 0, "no vertices").skeleton({}, 0, 1);
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, IsEmpty());
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(LasExport, PositionsFieldWithoutFragmentsMakesNoFile) {
    GridBuilder(*bundle, 0, "g").representation()->makeField("Positions", typeid(Geom::PhysicalSpace::point));
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, IsEmpty());
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(LasExport, RejectedGridsAndTimesAreNotVisited) {
    exporter.rejectedGrids = {"a"};
    exporter.TimeFilter = {{0, 1}};
    GridBuilder(*bundle, 0, "a").field("Positions", "f", pointsOnALine(1));
    GridBuilder(*bundle, 1, "b").field("Positions", "f", pointsOnALine(2));
    GridBuilder(*bundle, 2, "c").field("Positions", "f", pointsOnALine(3));
    EXPECT_EQ(exported().count(), 2U);
    EXPECT_EQ(exporter.writtenFiles().size(), 1U);
}

TEST_F(LasExport, ExpiredSlicesAndGridsArePassedOver) {
    GridBuilder(*bundle, 0, "a").field("Positions", "f", pointsOnALine(1));
    GridBuilder(*bundle, 1, "a").field("Positions", "f", pointsOnALine(2));
    GridBuilder(*bundle, 1, "b").field("Positions", "f", pointsOnALine(3));
    bundle->removeSlice(0);
    bundle->slices().at(1).lock()->removeGrid("b");
    EXPECT_EQ(exported().count(), 2U);
}

TEST_F(LasExport, FragmentWithoutPositionsDataStopsTheSliceButNotTheRun) {
    const auto fixed = std::vector<Geom::FixedArray<double, 3>>(2);
    GridBuilder(*bundle, 0, "a").field("Positions", "f", fixed).field("Positions", "g", pointsOnALine(9));
    GridBuilder(*bundle, 0, "b").field("Positions", "f", pointsOnALine(3));
    GridBuilder(*bundle, 1, "c").field("Positions", "f", pointsOnALine(4));
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ElementsAre("No positions to export"));
    // Grid a has a file without points, b none; c, of the next slice, then took the name.
    ASSERT_EQ(exporter.writtenFiles().size(), 2U);
    EXPECT_EQ(exporter.writtenFiles()[0].items, 0U);
    EXPECT_EQ(WrittenLas::read(folder / "cloud.las").count(), 4U);
    EXPECT_EQ(exporter.FragmentCount, 2);
}

// Progress.

TEST_F(LasExport, ProgressIsAskedOncePerFragmentWithItsNumberAndTheirCount) {
    const auto progress = Anchor::makeStrong<ScriptedProgress>();
    exporter.Progress = progress;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("Positions", "b", pointsOnALine(1));
    GridBuilder(*bundle, 0, "h").field("Positions", "a", pointsOnALine(1));
    EXPECT_TRUE(exporter.Run());
    using Number = std::pair<std::uint64_t, std::uint64_t>;
    EXPECT_THAT(progress->numbers, ElementsAre(Number(1, 2), Number(2, 2), Number(1, 1)));
}

/// Data that says it is large.
class Weight final : public Anchor::Cacheable {
public:
    explicit Weight(std::uint64_t bytes) : bytes_(bytes) {}
    [[nodiscard]] std::uint64_t byteSize() const noexcept override { return bytes_; }

private:
    std::uint64_t bytes_;
};

TEST_F(LasExport, ProgressTextTellsTheWholeMebibytesInUse) {
    const auto progress = Anchor::makeStrong<ScriptedProgress>();
    exporter.Progress = progress;
    GridBuilder(*bundle, 0, "g").field("Positions", "a", pointsOnALine(1));
    Anchor::Cache& cache = Anchor::Cache::MemCache();
    ASSERT_EQ(cache.bytesInUse(), 0U);
    for (const std::uint64_t bytes : {0ULL, 1'048'575ULL, 1'048'576ULL, 1'572'864'000ULL}) {
        const Anchor::Cache::Entry entry{&cache, Anchor::makeStrong<Weight>(bytes)};
        cache.publish(std::span(&entry, 1));
        EXPECT_TRUE(exporter.Run());
        cache.forget(&cache);
    }
    EXPECT_THAT(progress->texts,
                ElementsAre("KxToLas, (Mem: 0[MB]), Write #", "KxToLas, (Mem: 0[MB]), Write #",
                            "KxToLas, (Mem: 1[MB]), Write #", "KxToLas, (Mem: 1500[MB]), Write #"));
}

TEST_F(LasExport, ProgressThatRefusesEveryCallYieldsOneInterruptionPerFragmentAndNoPoints) {
    const auto progress = Anchor::makeStrong<ScriptedProgress>();
    progress->refusesAll = true;
    exporter.Progress = progress;
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(1))
        .field("Positions", "b", pointsOnALine(1));
    GridBuilder(*bundle, 1, "g").field("Positions", "a", pointsOnALine(1));
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ElementsAre("Interrupted", "Interrupted", "Interrupted"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
    EXPECT_EQ(exporter.FragmentCount, 0);
}

TEST_F(LasExport, InterruptionAtAnyFragmentSkipsThatFragmentOnly) {
    struct Way {
        int version;
        bool uncompressed;
        bool tiled;
    };
    std::vector<Way> ways;
    for (const int version : {2, 3, 4}) {
        for (const bool uncompressed : {false, true}) {
            for (const bool tiled : {false, true})
                ways.push_back({version, uncompressed, tiled});
        }
    }
    for (const Way& way : ways) {
        const std::string extension = way.uncompressed ? ".las" : ".laz";
        for (std::uint64_t refused = 1; refused <= 4; ++refused) {
            const Support::TemporaryFolder own;
            Support::FilteringLasExporter one;
            const auto progress = Anchor::makeStrong<ScriptedProgress>();
            progress->refused = {refused};
            const auto cloud = Anchor::makeStrong<Sheaf::Bundle>();
            GridBuilder builder(*cloud, 0, "g");
            const std::vector<std::string> names{"a", "b", "c", "d"};
            for (std::size_t i = 0; i < names.size(); ++i)
                builder.field("Positions", names[i], pointsOnALine(10 + i));
            one.bundleptr = cloud;
            one.OutputPath = own / "cloud.las";
            one.Version = way.version;
            one.uncompressed = way.uncompressed;
            one.tiles = way.tiled;
            one.Progress = progress;
            EXPECT_TRUE(one.Run());
            EXPECT_THAT(one.Errors, ElementsAre("Interrupted"));
            EXPECT_EQ(one.FragmentCount, 3);
            if (way.tiled) {
                for (std::size_t i = 0; i < names.size(); ++i) {
                    const std::string path = own / ("cloud_" + names[i] + extension);
                    ASSERT_EQ(fs::exists(path), i + 1 != refused);
                    if (i + 1 != refused) {
                        EXPECT_EQ(WrittenLas::read(path).count(), 10 + i);
                    }
                }
            } else {
                EXPECT_EQ(WrittenLas::read(own / ("cloud" + extension)).count(),
                          10 + 11 + 12 + 13 - (9 + refused));
            }
        }
    }
}

/// Throws at one of its calls.
class ThrowingProgress final : public Anchor::LoaderProgress {
public:
    bool progress(const std::string&, std::uint64_t current, std::uint64_t) override {
        if (current == 2)
            throw std::runtime_error("enough");
        return true;
    }
};

TEST_F(LasExport, ExceptionPassesThroughAndTheFileIsFinishedWithTheCountsSoFar) {
    for (const bool uncompressed : {true, false}) {
        exporter.uncompressed = uncompressed;
        exporter.Progress = Anchor::makeStrong<ThrowingProgress>();
        const auto own = Anchor::makeStrong<Sheaf::Bundle>();
        exporter.bundleptr = own;
        GridBuilder(*own, 0, "g")
            .field("Positions", "a", pointsOnALine(7))
            .field("Positions", "b", pointsOnALine(5));
        EXPECT_THROW(exporter.Run(), std::runtime_error);
        const ConvLib::WrittenFile& file = exporter.writtenFiles().back();
        EXPECT_EQ(WrittenLas::read(file.path).count(), 7U);
        EXPECT_EQ(file.items, 7U);
        EXPECT_FALSE(file.failed);
    }
}

// Memory.

/// Remembers the arrays that it made, without holding them.
class WatchedCreator final : public Sheaf::CachedCreator {
public:
    explicit WatchedCreator(std::size_t points)
        : CachedCreator(typeid(Geom::PhysicalSpace::point), Sheaf::Extents{points}),
          points_(points) {}

    mutable std::vector<Anchor::WeakPtr<Sheaf::MemBase>> arrays;
    mutable std::function<void()> beforeMaking = [] {};

protected:
    [[nodiscard]] Made make() const override {
        beforeMaking();
        const auto array = Sheaf::makeArray(std::vector<Geom::PhysicalSpace::point>(points_));
        arrays.emplace_back(array);
        return {array};
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return points_ * 24; }

private:
    std::size_t points_;
};

TEST_F(LasExport, ArraysOfAFragmentAreLetGoBeforeTheNextOneIsMade) {
    const auto first = Anchor::makeStrong<WatchedCreator>(100U);
    const auto second = Anchor::makeStrong<WatchedCreator>(100U);
    GridBuilder(*bundle, 0, "g").field("Positions", "a", first).field("Positions", "b", second);
    const std::uint64_t limit = Anchor::Cache::MemCache().limit();
    Anchor::Cache::MemCache().setLimit(0);
    bool wereGone = true;
    second->beforeMaking = [&] {
        for (const auto& array : first->arrays)
            wereGone = wereGone && array.expired();
    };
    EXPECT_EQ(exported().count(), 200U);
    Anchor::Cache::MemCache().setLimit(limit);
    EXPECT_TRUE(wereGone);
    EXPECT_FALSE(first->arrays.empty());
    EXPECT_FALSE(second->arrays.empty());
}

// The rest of the contract.

TEST_F(LasExport, PrintSecondaryListsTheSettings) {
    exporter.Day = -3;
    exporter.Year = 2024;
    exporter.Version = 2;
    exporter.RefLevel = 5;
    EXPECT_EQ(exporter.printSecondary(), "\nDay: -3 \nYear: 2024 \nVersion: 2 \nRefLevel: 5 ");
    exporter.tiles = true;
    EXPECT_EQ(exporter.printSecondary(),
              "\nDay: -3 \nYear: 2024 \nVersion: 2 \nRefLevel: 5 \nExport as tiles ");
}

TEST(LasExportDefaults, AreThoseOfTheProgram) {
    const ExportLib::ExportPointCloudToLas exporter;
    EXPECT_EQ(exporter.Day, 0);
    EXPECT_EQ(exporter.Year, 0);
    EXPECT_EQ(exporter.RefLevel, -1);
    EXPECT_FALSE(exporter.tiles);
    EXPECT_EQ(exporter.Version, 4);
    EXPECT_TRUE(exporter.RenameMap.empty());
    EXPECT_EQ(exporter.FragmentCount, 0);
    EXPECT_FALSE(exporter.uncompressed);
    EXPECT_EQ(exporter.PointSourceID, 0);
}

TEST(LasExportDefaults, TheUnitAnnouncesTheTwelveArrayTypes) {
    // This program links the unit of the LAS exporter and no other.
    EXPECT_EQ(Sheaf::TypeRegistry::size(), 12U);
}

} // namespace
