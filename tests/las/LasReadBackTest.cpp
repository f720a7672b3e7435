// SPDX-License-Identifier: Apache-2.0
//
// Files of every version, at counts around the compressor's chunks of 50 000 points, read back point by
// point: plain ones by a reader of the published layout, all of them by laz-perf.
#include "las/LasExport.hpp"
#include "support/lazPerf.hpp"

#include <array>
#include <cmath>
#include <optional>

namespace {

using Support::GridBuilder;
using Support::LasRecord;
using Support::WrittenLas;

template <class T>
using List = std::vector<T>;

/// A cloud with values of every attribute, in two fragments.
struct Cloud {
    Support::Points positions;
    List<unsigned char> classification, returnNumber, numberOfReturns, edgeOfFlightLine, scanDirectionFlag,
        userData;
    List<unsigned short> intensity, pointSourceID, amplitude;
    List<signed char> scanAngleRank;
    List<double> gpsTime;
    List<Geom::RGB<unsigned char>> rgb;
    List<float> reflectance;

    explicit Cloud(std::size_t count) {
        std::uint64_t state = 88172645463325252ULL;
        const auto next = [&] {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            return state >> 16;
        };
        for (std::size_t i = 0; i < count; ++i) {
            const auto x = static_cast<double>(i % 700);
            positions.push_back({500000.0 + 0.7 * x, -3.0 * static_cast<double>(i / 700),
                                 100.0 * std::sin(x) + static_cast<double>(next() % 1000) * 1e-4});
            classification.push_back(static_cast<unsigned char>(next()));
            intensity.push_back(static_cast<unsigned short>(next()));
            returnNumber.push_back(static_cast<unsigned char>(next() % 8));
            numberOfReturns.push_back(static_cast<unsigned char>(next() % 8));
            edgeOfFlightLine.push_back(static_cast<unsigned char>(next()));
            scanAngleRank.push_back(static_cast<signed char>(next()));
            scanDirectionFlag.push_back(static_cast<unsigned char>(next()));
            userData.push_back(static_cast<unsigned char>(next()));
            pointSourceID.push_back(static_cast<unsigned short>(next() % 5));
            gpsTime.push_back(300000000.0 + static_cast<double>(i) * 1e-5);
            rgb.push_back({});
            for (unsigned char& channel : rgb.back())
                channel = static_cast<unsigned char>(next());
            reflectance.push_back(static_cast<float>(next() % 3000) * 0.01F - 25.0F);
            amplitude.push_back(static_cast<unsigned short>(next()));
        }
    }

    template <class T>
    static void add(GridBuilder& grid, const char* name, const List<T>& list) {
        const auto middle = list.begin() + static_cast<std::ptrdiff_t>(list.size() / 3);
        grid.field(name, "a", List<T>(list.begin(), middle)).field(name, "b", List<T>(middle, list.end()));
    }

    /// Adds the fields to a grid; a bare one is spared those that make records longer.
    void addTo(GridBuilder& grid, bool isBare) const {
        add(grid, "Positions", positions);
        add(grid, "Classification", classification);
        add(grid, "Intensity", intensity);
        add(grid, "ReturnNumber", returnNumber);
        add(grid, "NumberOfReturns", numberOfReturns);
        add(grid, "EdgeOfFlightLine", edgeOfFlightLine);
        add(grid, "ScanAngleRank", scanAngleRank);
        add(grid, "ScanDirectionFlag", scanDirectionFlag);
        add(grid, "UserData", userData);
        add(grid, "PointSourceID", pointSourceID);
        add(grid, "GPSTime", gpsTime);
        if (isBare)
            return;
        add(grid, "RGB", rgb);
        add(grid, "Reflectance", reflectance);
        add(grid, "Amplitude", amplitude);
    }

    /// The record of a point in a file with that header, of a bare grid or not.
    [[nodiscard]] LasRecord record(std::size_t i, const WrittenLas& file, bool isBare) const {
        const bool isExtended = file.versionMinor() >= 4;
        LasRecord r;
        const auto steps = [&](double coordinate, std::size_t axis) {
            return static_cast<std::int32_t>(std::round((coordinate - file.offset(axis)) / file.scale(axis)));
        };
        r.x = steps(positions[i].x, 0);
        r.y = steps(positions[i].y, 1);
        r.z = steps(positions[i].z, 2);
        r.intensity = intensity[i];
        r.returnNumber = returnNumber[i];
        r.numberOfReturns = numberOfReturns[i];
        r.scanDirection = scanDirectionFlag[i] % 2;
        r.edgeOfFlightLine = edgeOfFlightLine[i] % 2;
        r.classification = static_cast<std::uint8_t>(classification[i] % (isExtended ? 256 : 32));
        r.userData = userData[i];
        r.scanAngle = scanAngleRank[i];
        r.pointSourceId = pointSourceID[i];
        r.gpsTime = isExtended || isBare ? gpsTime[i] : 0; // format 2 has none
        if (isBare)
            return r;
        r.rgb = {rgb[i][0], rgb[i][1], rgb[i][2]};
        // Amplitude and Reflectance come one point late.
        r.extraBytes.resize(isExtended ? 6 : 14);
        if (i > 0) {
            Support::patch(r.extraBytes, 0, amplitude[i - 1]);
            Support::patch(r.extraBytes, 2,
                           static_cast<unsigned short>(std::lround((reflectance[i - 1] + 25.0F) * 2184.0F)));
        }
        return r;
    }
};

struct Sample {
    std::size_t count;
    int version;
    bool uncompressed;
    bool isBare;

    friend void PrintTo(const Sample& one, std::ostream* out) {
        *out << one.count << (one.isBare ? " bare" : "") << " points, "
             << (one.uncompressed ? "LAS 1." : "LAZ 1.") << one.version;
    }
};

class LasReadBack : public LasExport, public ::testing::WithParamInterface<Sample> {};

TEST_P(LasReadBack, EveryPointHasItsValues) {
    const Cloud cloud(GetParam().count);
    GridBuilder grid(*bundle, 0, "g");
    cloud.addTo(grid, GetParam().isBare);
    exporter.Version = GetParam().version;
    exporter.uncompressed = GetParam().uncompressed;
    const std::string name = exporter.uncompressed ? "cloud.las" : "cloud.laz";
    const WrittenLas file = exported(name);

    EXPECT_EQ(file.versionMinor(), static_cast<unsigned>(GetParam().version));
    EXPECT_EQ(file.isCompressed(), !GetParam().uncompressed);
    ASSERT_EQ(file.count(), GetParam().count);
    if (GetParam().version == 4) {
        EXPECT_EQ(file.legacyCount(), 0U);
    }
    std::vector<std::uint64_t> byReturn(file.countsByReturn().size());
    for (const unsigned char number : cloud.returnNumber) {
        if (number != 0 && number <= byReturn.size())
            ++byReturn[number - 1U];
    }
    EXPECT_EQ(file.countsByReturn(), byReturn);

    const auto compare = [&](const std::vector<LasRecord>& records) {
        ASSERT_EQ(records.size(), GetParam().count);
        for (std::size_t i = 0; i < records.size(); ++i)
            ASSERT_TRUE(records[i] == cloud.record(i, file, GetParam().isBare)) << "point " << i;
    };
    if (GetParam().uncompressed)
        compare(file.records());
    if (const std::string reason = Support::lazPerfMissing(); !reason.empty())
        GTEST_SKIP() << reason;
    compare(file.decode(Support::decodeWithLazPerf(folder / name)));
}

std::vector<Sample> samples() {
    std::vector<Sample> list;
    for (const int version : {2, 3, 4}) {
        for (const bool uncompressed : {false, true}) {
            for (const std::size_t count : {0U, 1U, 49'999U, 50'000U, 50'001U, 100'000U, 120'000U}) {
                for (const bool isBare : {false, true})
                    list.push_back({count, version, uncompressed, isBare});
            }
        }
    }
    return list;
}

INSTANTIATE_TEST_SUITE_P(, LasReadBack, ::testing::ValuesIn(samples()), [](const auto& one) {
    return std::to_string(one.param.count) + (one.param.isBare ? "Bare" : "") +
           (one.param.uncompressed ? "PointsPlainVersion" : "PointsCompressedVersion") +
           std::to_string(one.param.version);
});

} // namespace
