// SPDX-License-Identifier: Apache-2.0
//
// Points that workers make: the same files, reports and messages as on one thread, for arrays of any length, and where
// the host stops the run. CI also builds this with ThreadSanitizer (preset "ci-threads").
#include "anchor/Console.hpp"
#include "ascii/AsciiBundle.hpp"
#include "las/LasExport.hpp"
#include "support/ThreadWorkers.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace {

using Support::GridBuilder;
using ::testing::Not;

/// All calls, in order.
class Log final : public ConvLib::RunObserver {
public:
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override {
        text += fmt::format("{} positions\n", positions.size());
    }
    void valuesChanged(const ConvLib::ChangedValues& changes) override {
        text += fmt::format("{} {}: {} of {}, {}\n", changes.attribute, static_cast<int>(changes.change),
                            changes.count, changes.total, changes.most);
    }

    std::string text;
};

/// A grid whose fields have any length in each of its fragments, none included, and values beyond what records hold.
class RandomGrid {
public:
    RandomGrid(Sheaf::Bundle& bundle, unsigned seed) : random_(seed), grid_(bundle, 0, "g") {
        int number = 0;
        for (const std::size_t points : {20'000U, 1U, 135'001U}) {
            const std::string fragment = std::to_string(number++);
            std::vector<Geom::PhysicalSpace::point> positions(points);
            for (auto& p : positions)
                p = {any(-4000, 4000), any(-4000, 4000), chance(0.0001) ? 1e12 : any(-50, 50)};
            grid_.field("Positions", fragment, positions);
            for (const char* const name : {"Classification", "ReturnNumber", "NumberOfReturns",
                                           "EdgeOfFlightLine", "ScanDirectionFlag", "UserData", "Synthetic",
                                           "KeyPoint", "Withheld", "Overlap", "ScannerChannel"})
                add<unsigned char>(name, fragment, points,
                                   [&] { return static_cast<unsigned char>(smallOrAny()); });
            for (const char* const name :
                 {"Intensity", "PointSourceID", "NearInfrared", "Red", "Green", "Blue"})
                add<unsigned short>(name, fragment, points,
                                    [&] { return static_cast<unsigned short>(random_()); });
            add<signed char>("Whole", fragment, points, [&] { return static_cast<signed char>(random_()); });
            add<short>("Fine", fragment, points, [&] { return static_cast<short>(random_()); });
            add<double>("GPSTime", fragment, points, [&] { return any(0, 1e9); });
            add<Geom::RGB<unsigned char>>("RGB", fragment, points, [&] {
                Geom::RGB<unsigned char> color;
                for (unsigned char& channel : color)
                    channel = static_cast<unsigned char>(random_());
                return color;
            });
            add<float>("Reflectance", fragment, points, [&] { return static_cast<float>(any(-30, 10)); });
            if (seed % 2 == 0)
                add<unsigned short>("Amplitude", fragment, points,
                                    [&] { return static_cast<unsigned short>(random_()); });
            else
                add<float>("Amplitude", fragment, points,
                           [&] { return static_cast<float>(any(-10, 70'000)); });
            add<float>("Roughness", fragment, points, [&] {
                return chance(0.01) ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(any(0, 1));
            });
        }
    }

private:
    template <class T, class Value>
    void add(const std::string& name, const std::string& fragment, std::size_t points, Value value) {
        if (chance(0.2))
            return;
        // Sometimes as many as points, else fewer or more.
        const std::size_t size = chance(0.3) ? points : random_() % (points + points / 4 + 2);
        std::vector<T> values(size);
        for (T& one : values)
            one = value();
        grid_.field(name, fragment, std::move(values));
    }
    double any(double low, double high) { return std::uniform_real_distribution<>(low, high)(random_); }
    bool chance(double share) { return any(0, 1) < share; }
    std::uint_fast32_t smallOrAny() { return chance(0.9) ? random_() % 4 : random_(); }

    std::mt19937 random_;
    GridBuilder grid_;
};

struct ConcurrentLasPoints : LasExport, ::testing::WithParamInterface<unsigned> {
    ConcurrentLasPoints() {
        const unsigned seed = GetParam();
        grid.emplace(*bundle, seed);
        exporter.Version = 2 + static_cast<int>(seed % 3);
        exporter.PointSourceID = seed % 4 == 0 ? 77 : 0;
        exporter.tiles = seed % 5 == 0;
        exporter.uncompressed = seed % 4 != 3;
        exporter.setCarry(seed % 3 != 0);
        exporter.setConforming(seed % 7 >= 5);
        exporter.RenameMap = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
        // Then a point may have both.
        exporter.RenameMap["Fine"] = exporter.RenameMap["Whole"] = "ScanAngleRank";
    }

    /// The files, the reports and the messages of a run.
    std::map<std::string, std::string> run(unsigned workers) {
        const std::filesystem::path target = folder / ("by" + std::to_string(workers));
        std::filesystem::remove_all(target);
        std::filesystem::create_directory(target);
        exporter.OutputPath = (target / "cloud.laz").string();
        exporter.setWorkers(Support::threadWorkers(workers));
        const auto log = Anchor::makeStrong<Log>();
        exporter.setObserver(log);
        console.messages.clear();
        std::string ending;
        try {
            EXPECT_TRUE(exporter.Run());
        } catch (const std::runtime_error& stop) {
            ending = stop.what();
        }
        auto all = Support::treeOf(target);
        for (const auto& message : console.messages)
            ending += "\n" + message;
        all["the end"] = ending;
        all["the log"] = log->text;
        return all;
    }

    std::optional<RandomGrid> grid;
};

TEST_P(ConcurrentLasPoints, AreThoseOfOneThread) {
    const auto expected = run(1);
    EXPECT_THAT(expected.at("the log"), Not(::testing::IsEmpty()));
    EXPECT_GT(expected.size(), 2U);
    for (const unsigned workers : {2U, 3U, 7U}) {
        const auto found = run(workers);
        ASSERT_EQ(found.size(), expected.size());
        for (const auto& [name, content] : expected)
            EXPECT_TRUE(found.at(name) == content) << name << ", " << workers << " workers";
    }
}

TEST_P(ConcurrentLasPoints, UpToWhereTheHostStopsAreThoseOfOneThread) {
    exporter.tiles = false;
    // Counted from when the file is there: what comes before asks as often as its pieces end.
    int asked = 0;
    int most = std::numeric_limits<int>::max();
    exporter.setStopQuestion([&] {
        const std::filesystem::path file(exporter.OutputPath);
        if (!std::filesystem::is_empty(file.parent_path()) && asked++ == most)
            throw std::runtime_error("stopped");
    });
    static_cast<void>(run(1));
    // Before each of the last blocks of points.
    for (const int last : {1, 2, 3}) {
        most = asked - last;
        ASSERT_GE(most, 0);
        const auto stopped = [&](unsigned workers) {
            const int all = std::exchange(asked, 0);
            auto found = run(workers);
            asked = all;
            return found;
        };
        const auto expected = stopped(1);
        EXPECT_EQ(expected.at("the end").find("stopped"), 0U);
        for (const unsigned workers : {2U, 3U})
            EXPECT_TRUE(stopped(workers) == expected) << last << ", " << workers << " workers";
    }
}

using ConcurrentLasAngles = LasExport;

TEST_F(ConcurrentLasAngles, OfTwoArraysTheLaterElementCounts) {
    GridBuilder(*bundle, 0, "g")
        .field("Positions", "a", pointsOnALine(60'000))
        // In this order: a rank that comes first blocks the finer angle.
        .field("Fine", "a", std::vector<short>(25'000, 5))
        .field("Whole", "a", std::vector<signed char>(10'000, 3));
    exporter.RenameMap = ExportLib::ExportPointCloudToLas::DefaultRenameMap();
    exporter.RenameMap["Fine"] = exporter.RenameMap["Whole"] = "ScanAngleRank";
    const std::string expected = exported().bytes;
    exporter.setWorkers(Support::threadWorkers(2));
    EXPECT_TRUE(exported().bytes == expected);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ConcurrentLasPoints, ::testing::Range(0U, 8U));

} // namespace
