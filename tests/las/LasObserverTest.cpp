// SPDX-License-Identifier: Apache-2.0
//
// What an observer of a LAS export is told of files, and of values that change on their way into them.
#include "convlib/RunObserver.hpp"
#include "las/LasExport.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using ConvLib::ValueChange;
using Support::Points;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double step = 0.00025;

/// Keeps what it is told.
class Notes final : public ConvLib::RunObserver {
public:
    struct Change {
        std::uint64_t count = 0;
        std::uint64_t total = 0;
        double most = 0;
    };

    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t points) override {
        events.push_back("fragment " + std::string(field) + "/" + std::string(fragment) + " " +
                         std::to_string(points));
    }
    void fileBegins(const std::string& path, const std::array<ConvLib::StoredAxis, 3>& fileAxes) override {
        events.push_back("file " + path.substr(path.rfind('/') + 1));
        axes = fileAxes;
    }
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> points) override {
        positions.insert(positions.end(), points.begin(), points.end());
        events.push_back("positions " + std::to_string(points.size()));
    }
    void valuesChanged(const ConvLib::ChangedValues& values) override {
        Change& sum = changes[{std::string(values.attribute), values.change}];
        sum.count += values.count;
        sum.total += values.total;
        sum.most = std::max(sum.most, values.most);
    }

    std::map<std::pair<std::string, ValueChange>, Change> changes;
    std::vector<std::string> events;
    std::array<ConvLib::StoredAxis, 3> axes{};
    Points positions;
};

struct LasObserver : LasExport {
    LasObserver() { exporter.setObserver(notes); }

    Support::GridBuilder& points(Points positions = {{1, 2, 3}, {4, 5, 6}}) {
        return grid.field("Positions", "", std::move(positions));
    }
    Notes& run() {
        EXPECT_TRUE(exporter.Run());
        return *notes;
    }
    Notes::Change changed(const std::string& attribute, ValueChange change) const {
        const auto found = notes->changes.find({attribute, change});
        return found != notes->changes.end() ? found->second : Notes::Change{};
    }

    Support::GridBuilder grid{*bundle, 0, "g"};
    Anchor::StrongPtr<Notes> notes = Anchor::makeStrong<Notes>();
};

TEST_F(LasObserver, PointsThatFitChangeNothing) {
    points({{1, -2, 0.25}, {0.5, 7, -0.00025}})
        .field("Classification", "", std::vector<unsigned char>{31, 255})
        .field("ReturnNumber", "", std::vector<unsigned char>{0, 15})
        .field("NumberOfReturns", "", std::vector<unsigned char>{15, 1})
        .field("EdgeOfFlightLine", "", std::vector<unsigned char>{0, 1})
        .field("ScanDirectionFlag", "", std::vector<unsigned char>{1, 0})
        .field("ScanAngleRank", "", std::vector<short>{-15000, 3})
        .field("GPSTime", "", std::vector<double>{1, 2})
        .field("Intensity", "", std::vector<unsigned short>{0, 65535});
    EXPECT_THAT(run().changes, IsEmpty());
    EXPECT_EQ(notes->positions, (Points{{1, -2, 0.25}, {0.5, 7, -0.00025}}));
}

TEST_F(LasObserver, IsToldOfFragmentsAndOfTheFileBeforeItIsThere) {
    grid.field("Positions", "a", pointsOnALine(2)).field("Positions", "b", pointsOnALine(3));
    exporter.tiles = true;
    EXPECT_THAT(run().events, ElementsAre("fragment Positions/a 2", "fragment Positions/b 3", "fragment /a 2",
                                          "file cloud_a.las", "positions 2", "fragment /b 3",
                                          "file cloud_b.las", "positions 3"));
}

TEST_F(LasObserver, AxesAreThoseOfTheHeader) {
    points({{-1, 2, 3}, {10, 2, nan}});
    run();
    EXPECT_EQ(notes->axes[0].offset, 4);
    EXPECT_EQ(notes->axes[0].step, step);
    EXPECT_EQ(notes->axes[0].lower, -1);
    EXPECT_EQ(notes->axes[0].upper, 10);
    EXPECT_EQ(notes->axes[0].lowest, 4 - 2147483648.0 * step);
    EXPECT_EQ(notes->axes[0].highest, 4 + 2147483647.0 * step);
    EXPECT_EQ(notes->axes[1].offset, 2);
    EXPECT_EQ(notes->axes[2].upper, 3);
}

TEST_F(LasObserver, AFileThatItRefusesIsNotMade) {
    struct Refusal {};
    class Refusing final : public ConvLib::RunObserver {
    public:
        void fileBegins(const std::string&, const std::array<ConvLib::StoredAxis, 3>&) override {
            throw Refusal();
        }
    };
    points();
    exporter.setObserver(Anchor::makeStrong<Refusing>());
    EXPECT_THROW(exporter.Run(), Refusal);
    EXPECT_FALSE(std::filesystem::exists(folder / "cloud.las"));
    EXPECT_THAT(exporter.writtenFiles(), IsEmpty());
}

TEST_F(LasObserver, TheLargestRoundingOfEachAxisIsTold) {
    points({{0.0001, 0.000125, 0}, {-0.00005, 0, 1.00011}});
    run();
    EXPECT_NEAR(changed("Positions.x", ValueChange::Rounded).most, 0.0001, 1e-12);
    // Points that have a rounded coordinate, whichever it is.
    EXPECT_EQ(changed("Positions.x", ValueChange::Rounded).count, 2U);
    EXPECT_EQ(changed("Positions.y", ValueChange::Rounded).count, 2U);
    EXPECT_NEAR(changed("Positions.y", ValueChange::Rounded).most, 0.000125, 1e-12);
    EXPECT_NEAR(changed("Positions.z", ValueChange::Rounded).most, 0.00011, 1e-12);
    EXPECT_EQ(changed("Positions.z", ValueChange::Rounded).total, 2U);
    EXPECT_EQ(changed("Positions", ValueChange::Wrapped).count, 0U);
}

TEST_F(LasObserver, AxesWithoutRoundingAreNotToldOf) {
    points({{0.0001, 1, 2}});
    run();
    EXPECT_EQ(notes->changes.size(), 1U);
    EXPECT_EQ(changed("Positions.x", ValueChange::Rounded).count, 1U);
}

TEST_F(LasObserver, PointsThatWrapAreCountedAndNotRounded) {
    // The box goes by the field "Positions", the points are those of another one.
    points(pointsOnALine(6))
        .field("Far", "",
               Points{{0, 0, 0}, {9e9, 0, 0}, {0, nan, 0}, {0, 0, infinity}, {1e300, nan, 0}, {1, 1, 1}});
    exporter.RenameMap = {{"Positions", "UserData"}, {"Far", "Positions"}};
    run();
    EXPECT_EQ(changed("Positions", ValueChange::Wrapped).count, 4U);
    EXPECT_EQ(changed("Positions", ValueChange::Wrapped).total, 6U);
    EXPECT_EQ(changed("Positions.x", ValueChange::Rounded).most, 0);
}

TEST_F(LasObserver, TheLastNumberOfAnAxisDoesNotWrap) {
    points({{0, 0, 0}}).field("Far", "", Points{{2147483647.0 * step, -2147483648.0 * step, 0}});
    exporter.RenameMap = {{"Positions", "UserData"}, {"Far", "Positions"}};
    run();
    EXPECT_EQ(changed("Positions", ValueChange::Wrapped).count, 0U);
    grid.field("Near", "", Points{{2147483648.0 * step, 0, 0}});
    exporter.RenameMap = {{"Positions", "UserData"}, {"Near", "Positions"}};
    run();
    EXPECT_EQ(changed("Positions", ValueChange::Wrapped).count, 1U);
}

TEST_F(LasObserver, ClassesAreTruncatedInOldVersionsOnly) {
    points({{1, 2, 3}, {1, 2, 3}, {1, 2, 3}})
        .field("Classification", "", std::vector<unsigned char>{31, 32, 255});
    EXPECT_THAT(run().changes, IsEmpty());
    exporter.Version = 2;
    run();
    EXPECT_EQ(changed("Classification", ValueChange::Truncated).count, 2U);
    EXPECT_EQ(changed("Classification", ValueChange::Truncated).total, 3U);
}

TEST_F(LasObserver, APointCountsOnceForItsReturnNumbers) {
    points(pointsOnALine(5))
        .field("ReturnNumber", "", std::vector<unsigned char>{7, 8, 16, 16, 0})
        .field("NumberOfReturns", "", std::vector<unsigned char>{7, 7, 15, 16, 99});
    run();
    EXPECT_EQ(changed("ReturnNumber, NumberOfReturns", ValueChange::Clamped).count, 3U);
    notes->changes.clear();
    exporter.Version = 3;
    run();
    EXPECT_EQ(changed("ReturnNumber, NumberOfReturns", ValueChange::Clamped).count, 4U);
}

TEST_F(LasObserver, FlagsAboveOneAreTruncatedAndNotCountedAgainWhereTheyAreRepeated) {
    points(pointsOnALine(6))
        .field("EdgeOfFlightLine", "", std::vector<unsigned char>{0, 1, 2, 255})
        .field("ScanDirectionFlag", "", std::vector<unsigned char>{3});
    run();
    EXPECT_EQ(changed("ScanDirectionFlag, EdgeOfFlightLine", ValueChange::Truncated).count, 3U);
}

TEST_F(LasObserver, AnglesAreJudgedByTheVersion) {
    points(pointsOnALine(3)).field("ScanAngleRank", "", std::vector<signed char>{0, -1, 90});
    run();
    EXPECT_EQ(changed("ScanAngleRank", ValueChange::OtherUnit).count, 2U);
    notes->changes.clear();
    exporter.Version = 2;
    EXPECT_THAT(run().changes, IsEmpty());
}

TEST_F(LasObserver, FineAnglesAreDroppedInOldVersions) {
    points(pointsOnALine(3)).field("ScanAngleRank", "", std::vector<short>{0, 0, 5});
    EXPECT_THAT(run().changes, IsEmpty());
    exporter.Version = 2;
    run();
    EXPECT_EQ(changed("ScanAngleRank", ValueChange::Dropped).count, 1U);
}

TEST_F(LasObserver, ReflectancesWrapOutsideOfTheirRangeAndAreRoundedInside) {
    points(pointsOnALine(6))
        .field("Reflectance", "",
               std::vector<float>{-25.0F, 5.0F, 5.006F, -25.01F, 6.0F, static_cast<float>(nan)});
    run();
    EXPECT_EQ(changed("Reflectance", ValueChange::Wrapped).count, 3U);
    EXPECT_EQ(changed("Reflectance", ValueChange::Shifted).count, 6U);
    EXPECT_EQ(changed("Reflectance", ValueChange::Rounded).count, 1U);
    EXPECT_GT(changed("Reflectance", ValueChange::Rounded).most, 1e-5);
    EXPECT_LT(changed("Reflectance", ValueChange::Rounded).most, 0.5 / 2184 + 1e-5);
}

TEST_F(LasObserver, ReflectancesOfALasFileAreRoundedByTheirNoiseAtMost) {
    points(pointsOnALine(1))
        .field("Reflectance", "", std::vector<float>{static_cast<float>(-25 + 1000 / 2184.0)});
    run();
    EXPECT_LT(changed("Reflectance", ValueChange::Rounded).most, 2e-6);
}

TEST_F(LasObserver, ReflectancesWithoutRoomAreNotCounted) {
    points(pointsOnALine(1)).field("R", "", std::vector<float>{9});
    exporter.RenameMap = {{"Positions", "Positions"}, {"R", "Reflectance"}};
    EXPECT_THAT(run().changes, IsEmpty());
}

TEST_F(LasObserver, AmplitudesWrapOutsideOfTheirRangeAndLoseFractions) {
    points(pointsOnALine(5)).field("Amplitude", "", std::vector<float>{0, 65535.75F, -0.5F, -1.0F, 65536.0F});
    run();
    EXPECT_EQ(changed("Amplitude", ValueChange::Wrapped).count, 2U);
    EXPECT_EQ(changed("Amplitude", ValueChange::Rounded).count, 2U);
    EXPECT_DOUBLE_EQ(changed("Amplitude", ValueChange::Rounded).most, 0.75);
}

TEST_F(LasObserver, WholeAmplitudesAreShiftedOnly) {
    points().field("Amplitude", "", std::vector<unsigned short>{0, 65535});
    EXPECT_EQ(run().changes.size(), 1U);
    EXPECT_EQ(changed("Amplitude", ValueChange::Shifted).count, 2U);
}

TEST_F(LasObserver, ValuesWithoutAPointAndPointsWithoutAValueAreCounted) {
    grid.field("Positions", "a", pointsOnALine(2))
        .field("Positions", "b", pointsOnALine(1))
        .field("Intensity", "a", std::vector<unsigned short>{1})
        .field("Classification", "a", std::vector<unsigned char>{1, 2, 3, 4, 5})
        .field("UserData", "b", std::vector<unsigned char>{7});
    run();
    EXPECT_EQ(changed("Intensity", ValueChange::Repeated).count, 2U);
    EXPECT_EQ(changed("Intensity", ValueChange::Repeated).total, 3U);
    EXPECT_EQ(changed("Classification", ValueChange::Repeated).count, 1U);
    EXPECT_EQ(changed("Classification", ValueChange::Surplus).count, 3U);
    EXPECT_EQ(changed("Classification", ValueChange::Surplus).total, 5U);
    EXPECT_EQ(changed("UserData", ValueChange::Repeated).count, 2U);
    EXPECT_EQ(changed("Positions", ValueChange::Repeated).count, 0U);
}

TEST_F(LasObserver, ValuesAreMissedInTheTilesOnlyThatHaveSome) {
    grid.field("Positions", "a", pointsOnALine(2))
        .field("Positions", "b", pointsOnALine(3))
        .field("Intensity", "b", std::vector<unsigned short>{1});
    exporter.tiles = true;
    run();
    EXPECT_EQ(changed("Intensity", ValueChange::Repeated).count, 2U);
    EXPECT_EQ(changed("Intensity", ValueChange::Repeated).total, 3U);
}

TEST_F(LasObserver, FilesAreTheSameWithoutOne) {
    points(pointsOnALine(3))
        .field("ReturnNumber", "", std::vector<unsigned char>{7, 8, 16})
        .field("Reflectance", "", std::vector<float>{-25.0F, 5.0F, 6.0F})
        .field("Amplitude", "", std::vector<float>{0.5F, 9, -8})
        .field("ScanAngleRank", "", std::vector<signed char>{1, 2});
    for (const int version : {2, 3, 4}) {
        exporter.Version = version;
        exporter.setObserver(notes);
        run();
        const std::string observed = Support::readBytes(folder / "cloud.las");
        exporter.setObserver(nullptr);
        EXPECT_TRUE(exporter.Run());
        EXPECT_EQ(Support::readBytes(folder / "cloud.las"), observed);
    }
}

TEST_F(LasObserver, AStopInTheMiddleOfAFileLeavesWhatWasWritten) {
    constexpr std::size_t block = ConvLib::BasicConverterDefs::stopInterval;
    points(pointsOnALine(3 * block));
    struct Stop {};
    int asked = 0;
    // Before the box and its three blocks, before the fragment, and before each block of it.
    exporter.setStopQuestion([&] {
        if (++asked == 8)
            throw Stop();
    });
    EXPECT_THROW(exporter.Run(), Stop);
    ASSERT_EQ(exporter.writtenFiles().size(), 1U);
    EXPECT_EQ(exporter.writtenFiles()[0].items, 2 * block);
    const auto file = Support::WrittenLas::read(folder / "cloud.las");
    EXPECT_EQ(file.count(), 2 * block);
    EXPECT_EQ(file.records().size(), 2 * block);
}

TEST_F(LasObserver, AStopWhileTheBoxIsSoughtLeavesNoFile) {
    points(pointsOnALine(3 * ConvLib::BasicConverterDefs::stopInterval));
    struct Stop {};
    int asked = 0;
    exporter.setStopQuestion([&] {
        if (++asked == 3)
            throw Stop();
    });
    EXPECT_THROW(exporter.Run(), Stop);
    EXPECT_FALSE(std::filesystem::exists(folder / "cloud.las"));
    EXPECT_THAT(notes->events, ElementsAre("fragment Positions/ 196608"));
}

} // namespace
