// SPDX-License-Identifier: Apache-2.0
#include "pcd/ExportPointCloudToPCD.hpp"

#include "anchor/Error.hpp"
#include "pcd/addPCDHeader.hpp"
#include "sheaf/UniformCartesianArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <span>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ExportLib::pcdHeader;
using ExportLib::PCDLayout;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Intensities = std::vector<unsigned short>;
using Support::GridBuilder;
using Support::Points;

struct PCDExport : ::testing::Test {
    PCDExport() {
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder / "cloud.pcd";
    }

    /// Runs the exporter and gives the file's content.
    std::string exported() {
        EXPECT_TRUE(exporter.Run());
        EXPECT_THAT(exporter.Errors, IsEmpty());
        return Support::readBytes(exporter.OutputPath);
    }

    /// The lines behind the header.
    std::vector<std::string> dataLines() {
        std::istringstream text(exported());
        std::vector<std::string> lines;
        bool inData = false;
        for (std::string line; std::getline(text, line);) {
            if (inData)
                lines.push_back(line);
            inData = inData || line == "DATA ascii";
        }
        return lines;
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ExportLib::ExportPointCloudToPCD exporter;
};

std::string rgbText(int red, int green, int blue) {
    const auto bits = static_cast<std::uint32_t>(red << 16 | green << 8 | blue);
    char text[64];
    std::snprintf(text, sizeof text, "%.8g", static_cast<double>(std::bit_cast<float>(bits)));
    std::string result = text;
    std::replace(result.begin(), result.end(), ',', '.');
    return result;
}

TEST_F(PCDExport, PlainCloudIsWrittenByteForByte) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{1000, 2000, 10}, {1000.8, 2001.2, 10.4}});
    EXPECT_EQ(exported(), pcdHeader(PCDLayout::Plain, 2, {1000, 2000, 10}) + "0 0 0\n0.8 1.2 0.4\n");
}

TEST_F(PCDExport, CoordinatesAreRelativeToTheShiftRoundedDown) {
    // The box (1000, 2000, 10) to (1000.8, 2001.2, 10.4) is centred at (1000.4, 2000.6, 10.2).
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{1000.8, 2001.2, 10.4}, {1000, 2000, 10}});
    EXPECT_THAT(dataLines(), ElementsAre("0 0 0", "0.8 1.2 0.4"));
}

TEST_F(PCDExport, IntensityForEveryPointGivesTheIntensityLayout) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{0, 0, 0}, {2, 2, 2}})
        .field("Intensity", "", Intensities{100, 300});
    // Two points: both heights are the lowest one, so every point is green.
    EXPECT_EQ(exported(), pcdHeader(PCDLayout::Intensity, 2, {1, 1, 1}) + "-1 -1 -1 0 " + rgbText(0, 127, 0) +
                              "\n1 1 1 1 " + rgbText(127, 255, 127) + "\n");
}

TEST_F(PCDExport, IntensitiesFromSeveralFragmentsCountTogether) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", Points{{0, 0, 0}})
        .field("Positions", "b", Points{{2, 2, 2}})
        .field("Intensity", "a", Intensities{100})
        .field("Intensity", "b", Intensities{300});
    EXPECT_THAT(exported(), ::testing::HasSubstr("FIELDS x y z intensity rgb"));
}

TEST_F(PCDExport, IntensitiesOfAnotherTypeOrNumberGiveThePlainLayout) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{0, 0, 0}, {2, 2, 2}})
        .field("Intensity", "", std::vector<unsigned int>{1, 2});
    EXPECT_THAT(exported(), ::testing::HasSubstr("FIELDS x y z\n"));
    GridBuilder(*bundle, 1, "g")
        .field("Positions", "", Points{{0, 0, 0}, {2, 2, 2}})
        .field("Intensity", "", Intensities{1});
    EXPECT_THAT(exported(), ::testing::HasSubstr("FIELDS x y z\n"));
}

TEST_F(PCDExport, AllIntensitiesEqualAreWrittenAsNotANumber) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{0, 0, 0}, {2, 2, 2}})
        .field("Intensity", "", Intensities{7, 7});
    for (const std::string& line : dataLines())
        EXPECT_THAT(line, ::testing::MatchesRegex("-?1 -?1 -?1 -?nan .*"));
}

TEST_F(PCDExport, HeightRampRunsBetweenTheFifthAndTheNinetyFifthPercent) {
    Points positions;
    Intensities intensities;
    for (int i = 0; i < 40; ++i) {
        positions.push_back({static_cast<double>(i), 0, static_cast<double>(i)});
        intensities.push_back(static_cast<unsigned short>(i == 39 ? 1 : 0));
    }
    GridBuilder(*bundle, 0, "g").field("Positions", "", positions).field("Intensity", "", intensities);
    exporter.CellSize = 1;
    // k = 2: the ramp runs from entry 2 to entry 38 of the heights -19 to 20. All cells are dark but the last
    // one, so 39 lines repeat point 0, which lies below the ramp.
    const auto lines = dataLines();
    ASSERT_EQ(lines.size(), 40U);
    for (std::size_t i = 0; i < 39; ++i)
        EXPECT_EQ(lines[i], "-19 0 -19 0 " + rgbText(0, 0, 127));
    EXPECT_EQ(lines[39], "20 0 20 1 " + rgbText(127, 255, 127));
}

TEST_F(PCDExport, ReductionLeavesWidthAndPointsAtTheCountBefore) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0, 0, 0}, {0.1, 0, 0}, {4, 4, 4}});
    exporter.CellSize = 1;
    EXPECT_EQ(exported(), pcdHeader(PCDLayout::Plain, 3, {2, 2, 2}) + "-2 -2 -2\n2 2 2\n");
    EXPECT_EQ(exporter.writtenFiles().back().items, 2U);
}

TEST_F(PCDExport, ExactCountsCountTheLines) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0, 0, 0}, {0.1, 0, 0}, {4, 4, 4}});
    exporter.CellSize = 1;
    exporter.ExactCounts = true;
    EXPECT_EQ(exported(), pcdHeader(PCDLayout::Plain, 2, {2, 2, 2}) + "-2 -2 -2\n2 2 2\n");
}

TEST_F(PCDExport, LinesStandInCellOrderNotInPointOrder) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{4, 0, 0}, {0, 0, 0}});
    EXPECT_THAT(dataLines(), ElementsAre("-2 0 0", "2 0 0"));
}

TEST_F(PCDExport, AxisOfNegativeCoordinatesKeepsTheUpperCornerAboveZero) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{-10, 0, 0}, {-8, 2, 2}});
    // The centre of -10 and the smallest positive double is -5, not -9.
    EXPECT_EQ(exported(), pcdHeader(PCDLayout::Plain, 2, {-5, 1, 1}) + "-5 -1 -1\n-3 1 1\n");
}

TEST_F(PCDExport, TwoGridsLeaveTheSecond) {
    GridBuilder(*bundle, 0, "a").field("Positions", "", Points{{1, 1, 1}});
    GridBuilder(*bundle, 0, "b").field("Positions", "", Points{{5, 5, 5}, {7, 7, 7}});
    EXPECT_THAT(dataLines(), ElementsAre("-1 -1 -1", "1 1 1"));
    EXPECT_EQ(exporter.writtenFiles().size(), 2U);
}

TEST_F(PCDExport, SlicesAreVisitedInAscendingTimeAndAskedFor) {
    GridBuilder(*bundle, 2, "g").field("Positions", "", Points{{5, 5, 5}});
    GridBuilder(*bundle, 1, "g").field("Positions", "", Points{{1, 1, 1}});
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 5 5 5 \n"));
    exporter.TimeFilter = {{0, 1}};
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 1 1 1 \n"));
}

TEST_F(PCDExport, RefusedGridIsNotWritten) {
    GridBuilder(*bundle, 0, "a").field("Positions", "", Points{{1, 1, 1}});
    exporter.GridFilter = {"b"};
    EXPECT_TRUE(exporter.Run());
    EXPECT_FALSE(std::filesystem::exists(exporter.OutputPath));
    EXPECT_THAT(exporter.writtenFiles(), IsEmpty());
}

TEST_F(PCDExport, RefusedFieldContributesNothing) {
    GridBuilder(*bundle, 0, "a")
        .field("Positions", "", Points{{1, 1, 1}})
        .field("Intensity", "", Intensities{5});
    exporter.FieldFilter = {"Pos*"};
    EXPECT_THAT(exported(), ::testing::HasSubstr("FIELDS x y z\n"));
}

TEST_F(PCDExport, MissingBundleLeavesTheConsoleSilent) {
    exporter.bundleptr = nullptr;
    EXPECT_FALSE(exporter.Run());
    EXPECT_THAT(console.messages, IsEmpty());
}

TEST_F(PCDExport, NullBundleIsAnErrorAndNothingStarts) {
    exporter.bundleptr = nullptr;
    EXPECT_FALSE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ElementsAre("bundleptr is null"));
    exporter.bundleptr = bundle;
    bundle.reset();
    EXPECT_FALSE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ElementsAre("bundleptr is null", "bundleptr is null"));
}

TEST_F(PCDExport, RunAnnouncesItselfOnTheConsole) {
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(console.messages, ElementsAre("Run"));
}

TEST_F(PCDExport, ExpiredSlicesAndGridsArePassedOver) {
    GridBuilder(*bundle, 0, "a").field("Positions", "", Points{{1, 1, 1}});
    GridBuilder(*bundle, 0, "b").field("Positions", "", Points{{5, 5, 5}});
    GridBuilder(*bundle, 9, "c").field("Positions", "", Points{{9, 9, 9}});
    bundle->makeSlice(0)->removeGrid("b");
    bundle->removeSlice(9);
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 1 1 1 \n"));
}

TEST_F(PCDExport, GridsThatLackSomethingAreSkippedBeforeTheFileIsOpened) {
    const auto slice = bundle->makeSlice(0);
    slice->makeGrid("no skeleton");
    slice->makeGrid("no chart")->skeletons().make({0, {}});
    GridBuilder(*bundle, 0, "no positions").field("Intensity", "", Intensities{5});
    GridBuilder(*bundle, 0, "empty positions").field("Positions", "", Points());
    GridBuilder(*bundle, 0, "lattice")
        .field("Positions", "",
               Anchor::makeStrong<Sheaf::HeldCreator>(Anchor::makeStrong<Sheaf::UniformCartesianArray>(
                   Geom::PhysicalSpace::point{}, Geom::PhysicalSpace::vector{1, 1, 1},
                   Sheaf::MultiIndex<3>{2, 2, 1})));
    Support::writeBytes(exporter.OutputPath, "what stood there before");
    EXPECT_TRUE(exporter.Run());
    EXPECT_EQ(Support::readBytes(exporter.OutputPath), "what stood there before");
    EXPECT_THAT(exporter.Errors, IsEmpty());
}

TEST_F(PCDExport, RefLevelMinusOneTakesTheHighestHomogeneousVertices) {
    GridBuilder builder(*bundle, 0, "g", {0, 0});
    builder.field("Positions", "", Points{{1, 1, 1}});
    builder.skeleton({2, 2}).field("Positions", "", Points{{5, 5, 5}});
    builder.skeleton({3, 4}).field("Positions", "", Points{{9, 9, 9}});
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 5 5 5 \n"));
}

TEST_F(PCDExport, RefLevelTakesEverySkeletonOfThatLevel) {
    GridBuilder builder(*bundle, 0, "g", {});
    builder.field("Positions", "", Points{{0, 0, 0}});
    builder.skeleton({0, 0}).field("Positions", "", Points{{2, 2, 2}});
    builder.skeleton({2, 2}).field("Positions", "", Points{{5, 5, 5}});
    builder.skeleton({2, 3}).field("Positions", "", Points{{9, 9, 9}});
    exporter.RefLevel = 0;
    EXPECT_THAT(dataLines(), ElementsAre("-1 -1 -1", "1 1 1"));
    exporter.RefLevel = 2;
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 5 5 5 \n"));
}

TEST_F(PCDExport, RefLevelMinusTwoIsAnOrdinaryLevel) {
    GridBuilder builder(*bundle, 0, "g", {});
    builder.field("Positions", "", Points{{0, 0, 0}});
    builder.skeleton({1, 1, 4}).field("Positions", "", Points{{9, 9, 9}});
    exporter.RefLevel = -2;
    EXPECT_THAT(exported(), ::testing::HasSubstr("# shifted by 9 9 9 \n"));
}

TEST_F(PCDExport, SkeletonWithAnExclusionMarkIsSkipped) {
    GridBuilder builder(*bundle, 0, "g", {}, 1);
    builder.field("Positions", "", Points{{0, 0, 0}});
    EXPECT_TRUE(exporter.Run());
    EXPECT_FALSE(std::filesystem::exists(exporter.OutputPath));
}

TEST_F(PCDExport, FieldsOfEveryRepresentationAreCaptured) {
    GridBuilder builder(*bundle, 0, "g");
    builder.field("Positions", "", Points{{0, 0, 0}});
    builder.chart("zone").field("Positions", "", Points{{2, 2, 2}});
    EXPECT_THAT(dataLines(), ElementsAre("-1 -1 -1", "1 1 1"));
}

TEST_F(PCDExport, PrecisionCountsSignificantDigitsAsAStreamDoes) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0.123456789, 0, 0}, {1.5, 0, 0}});
    exporter.Precision = 3;
    EXPECT_THAT(dataLines(), ElementsAre("0.123 0 0", "1.5 0 0"));
    exporter.Precision = 0;
    EXPECT_THAT(dataLines(), ElementsAre("0.1 0 0", "2 0 0"));
    exporter.Precision = -4;
    EXPECT_THAT(dataLines(), ElementsAre("0.123457 0 0", "1.5 0 0"));
    exporter.Precision = 20;
    EXPECT_THAT(dataLines(), ElementsAre("0.12345678899999999734 0 0", "1.5 0 0"));
}

TEST_F(PCDExport, CellSizeZeroMakesOneCell) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0, 0, 0}, {50, 0, 0}, {100, 0, 0}});
    exporter.CellSize = 0;
    EXPECT_THAT(dataLines(), ElementsAre("-50 0 0"));
}

TEST_F(PCDExport, CoordinatesThatAreNoNumbersGiveDefinedFiles) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{nan, 0, nan}, {1, infinity, 1}, {3, -infinity, 1e300}})
        .field("Intensity", "", Intensities{1, 2, 3});
    exporter.CellSize = 1e-300;
    EXPECT_FALSE(dataLines().empty());
}

TEST_F(PCDExport, FlushedOrNotTheBytesAreTheSame) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0, 0, 0}, {50, 0, 0}, {100, 0, 0}});
    const std::string flushed = exported();
    exporter.setFlushLines(false);
    EXPECT_EQ(exported(), flushed);
    for (const ConvLib::WrittenFile& file : exporter.writtenFiles()) {
        EXPECT_EQ(file.bytes, flushed.size());
        EXPECT_EQ(file.items, 3U);
        EXPECT_FALSE(file.failed);
        EXPECT_EQ(file.path, exporter.OutputPath);
    }
}

TEST_F(PCDExport, OutputThatCannotBeWrittenShowsInTheRecordOnly) {
    GridBuilder(*bundle, 0, "g").field("Positions", "", Points{{0, 0, 0}});
    exporter.OutputPath = folder / "no-such-folder/cloud.pcd";
    EXPECT_TRUE(exporter.Run());
    exporter.OutputPath = "/dev/full";
    EXPECT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, IsEmpty());
    ASSERT_EQ(exporter.writtenFiles().size(), 2U);
    EXPECT_TRUE(exporter.writtenFiles()[0].failed);
    EXPECT_TRUE(exporter.writtenFiles()[1].failed);
}

TEST_F(PCDExport, ArrayThatCannotBeMadePassesItsErrorToTheHost) {
    class Broken final : public Sheaf::CreativeArrayBase {
    public:
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool) const override {
            throw Anchor::FormatError("a.laz: cut short");
        }
        [[nodiscard]] const std::type_info& elementType() const noexcept override {
            return typeid(Geom::PhysicalSpace::point);
        }
        [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return Sheaf::Extents{1}; }
        [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return nullptr; }
    };
    GridBuilder(*bundle, 0, "g").field("Positions", "", Anchor::makeStrong<Broken>());
    Support::writeBytes(exporter.OutputPath, "what stood there before");
    EXPECT_THROW(exporter.Run(), Anchor::FormatError);
    EXPECT_EQ(Support::readBytes(exporter.OutputPath), "what stood there before");
}

/// Notes what the exporter tells.
class Told final : public ConvLib::RunObserver {
public:
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> view) override {
        positions.insert(positions.end(), view.begin(), view.end());
    }
    void valuesChanged(const ConvLib::ChangedValues& values) override {
        changes.push_back(std::string(values.attribute) + " " +
                          std::to_string(static_cast<int>(values.change)) + ": " +
                          std::to_string(values.count) + " of " + std::to_string(values.total));
    }
    Points positions;
    std::vector<std::string> changes;
};

std::string change(const std::string& attribute, ConvLib::ValueChange kind, const std::string& numbers) {
    return attribute + " " + std::to_string(static_cast<int>(kind)) + ": " + numbers;
}

TEST_F(PCDExport, ObserverHearsOfPositionsBeforeTheShiftAndOfWhatTheFileLeavesOut) {
    const auto told = Anchor::makeStrong<Told>();
    exporter.setObserver(told);
    const Points points{{1000, 2000, 10}, {1000.01, 2000, 10}, {1004, 2004, 14}};
    GridBuilder(*bundle, 0, "g").field("Positions", "", points).field("Intensity", "", Intensities{1, 2});
    exported();
    EXPECT_EQ(told->positions, points);
    EXPECT_THAT(told->changes, ElementsAre(change("Positions", ConvLib::ValueChange::Thinned, "1 of 3"),
                                           change("Intensity", ConvLib::ValueChange::Dropped, "2 of 2")));
}

TEST_F(PCDExport, ObserverHearsOfColoursOnlyWhereTheyAreRounded) {
    const auto told = Anchor::makeStrong<Told>();
    exporter.setObserver(told);
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "", Points{{0, 0, 0}, {2, 2, 2}})
        .field("Intensity", "", Intensities{100, 300});
    exported();
    EXPECT_THAT(told->changes, IsEmpty());
    exporter.Precision = 7;
    exported();
    EXPECT_THAT(told->changes, ElementsAre(change("rgb", ConvLib::ValueChange::Rounded, "2 of 2")));
}

TEST_F(PCDExport, HostCanStopInTheMiddleOfEveryStep) {
    constexpr std::size_t count = 4 * ConvLib::BasicConverterDefs::stopInterval;
    exporter.setFlushLines(false);
    Points points(count);
    for (std::size_t i = 0; i < count; ++i)
        points[i] = {static_cast<double>(i * 7919 % count), static_cast<double>(i % 1013), 0.5};
    GridBuilder(*bundle, 0, "g").field("Positions", "", points).field("Intensity", "", Intensities(count, 1));
    struct Stopped {};
    for (const double cellSize : {1.0, 1e-12}) {
        exporter.CellSize = cellSize;
        std::size_t asked = 0;
        exporter.setStopQuestion([&] { ++asked; });
        exported();
        // Two fragments; box, shift, heights, keys, runs, passes of the sort, choice and lines each in blocks.
        EXPECT_GT(asked, 2 + 8 * count / ConvLib::BasicConverterDefs::stopInterval) << cellSize;
        const std::size_t questions = asked;
        for (std::size_t last = 1; last <= questions; last += 7) {
            asked = 0;
            exporter.setStopQuestion([&] {
                if (++asked == last)
                    throw Stopped();
            });
            ASSERT_THROW(exporter.Run(), Stopped) << last;
        }
    }
}

TEST_F(PCDExport, ExporterIsDestroyedThroughTheBase) {
    const std::unique_ptr<ConvLib::BasicConverterDefs> base =
        std::make_unique<ExportLib::ExportPointCloudToPCD>();
    EXPECT_EQ(base->printSecondary(), "");
    EXPECT_FALSE(base->Run());
}

} // namespace
