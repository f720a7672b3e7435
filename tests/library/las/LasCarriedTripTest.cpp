// SPDX-License-Identifier: Apache-2.0
//
// Public files, and small ones of every format, from LAS or LAZ to LAZ as the program writes it: nothing may change but
// what a version has no place for. Sources and results are decoded without the readers: by a plain one of the published
// layout, and by laz-perf where they are compressed.
#include "library/crs/gridSystem.hpp"
#include "library/input/Inputs.hpp"
#include "library/las/exportLas.hpp"
#include "readers/registerReaders.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/WrittenLas.hpp"
#include "support/lazPerf.hpp"
#include "support/sharedData.hpp"
#include "support/testName.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::LasFileBuilder;
using Support::LasRecord;
using Support::WrittenLas;

std::vector<LasRecord> decode(const std::string& path) {
    const WrittenLas file = WrittenLas::read(path);
    const std::size_t bytes = file.count() * file.recordLength();
    return file.decode(file.isCompressed() ? Support::decodeWithLazPerf(path)
                                           : file.bytes.substr(file.pointsBegin(), bytes));
}

/// A described number of the extra bytes.
struct Number {
    std::size_t place;
    std::size_t size;
    /// Type, option bits for scale, offset and "no data", these three, and the description.
    std::string meaning;
};

/// By name; of pairs and triples each number, with "_1", "_2", "_3" behind the name. Bytes of no type are left out.
std::map<std::string, Number> numbersOf(const WrittenLas& file) {
    constexpr std::size_t sizes[] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    std::map<std::string, Number> found;
    std::size_t place = 0;
    for (const WrittenLas::Vlr& vlr : file.vlrs(true)) {
        if (vlr.userId != "LASF_Spec" || vlr.recordId != 4)
            continue;
        for (std::size_t begin = 0; begin < vlr.payload.size(); begin += 192) {
            const std::string entry = vlr.payload.substr(begin, 192);
            const auto type = static_cast<unsigned char>(entry[2]);
            if (type == 0) {
                place += static_cast<unsigned char>(entry[3]);
                continue;
            }
            std::string name = entry.substr(4, 32);
            name = name.substr(0, name.find('\0'));
            const std::size_t size = sizes[(type - 1) % 10];
            const unsigned components = 1 + (type - 1U) / 10;
            for (unsigned i = 0; i < components; ++i, place += size) {
                const unsigned options = static_cast<unsigned char>(entry[3]) & 25U;
                const auto part = [&](std::size_t at, unsigned option) {
                    return (options & option) != 0 ? entry.substr(at + std::size_t{8} * i, 8)
                                                   : std::string(8, '\0');
                };
                found[name + (components > 1 ? "_" + std::to_string(i + 1) : "")] = {
                    place, size,
                    std::to_string((type - 1) % 10 + 1) + " " + std::to_string(options) + part(40, 1) +
                        part(112, 8) + part(136, 16) + entry.substr(160, 32)};
            }
        }
    }
    return found;
}

using Ids = std::pair<std::string, unsigned>;

/// Records that tell nothing of points or of the system, of both kinds.
std::vector<std::pair<Ids, std::string>> userRecords(const WrittenLas& file) {
    std::vector<std::pair<Ids, std::string>> list;
    auto all = file.vlrs(true);
    const auto far = file.evlrs();
    all.insert(all.end(), far.begin(), far.end());
    for (const WrittenLas::Vlr& vlr : all) {
        const bool isBound = vlr.userId == "laszip encoded" || vlr.userId == "LASF_Projection" ||
                             (vlr.userId == "LASF_Spec" && (vlr.recordId == 4 || vlr.recordId >= 100));
        if (!isBound)
            list.push_back({{vlr.userId, vlr.recordId}, vlr.description + "|" + vlr.payload});
    }
    // Short records may have stood behind long ones, which stay behind the points.
    std::stable_sort(list.begin(), list.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    return list;
}

Inputs inputsOf(const std::string& file) {
    InputOptions options;
    options.files = {file};
    options.fragmentPoints = 40'000;
    return Inputs(options);
}

GridSystem systemOf(const Inputs& inputs) {
    return GridSystem::of(*inputs.bundle()->slices().begin()->second.lock()->grids().begin()->second.lock());
}

struct Journey {
    std::string file; ///< a public sample, or "formatN": varied points of that format
    int version;

    // Else names of tests would show addresses.
    friend void PrintTo(const Journey& one, std::ostream* out) {
        *out << one.file << " to LAZ 1." << one.version;
    }
};

/// Points of a format with extra bytes of every kind, records and a system.
std::string varied(unsigned format) {
    LasFileBuilder file;
    file.minor = format >= 6 ? 4 : 3;
    file.format = format;
    file.globalEncoding = format >= 6 ? 17 : 0;
    file.scale = {0.01, 0.001, 0.25};
    file.offset = {-7, 1e5, 0};
    file.extraByteCount = 2 + 8 + 4 + 1 + 6;
    std::string scaled = LasFileBuilder::attribute(4, "Height", 8 | 16 | 1, 0.01, 5);
    Support::patch(scaled, 40, std::int64_t{-32768});
    scaled.replace(160, 3, "[m]");
    file.describe(scaled + LasFileBuilder::attribute(7, "a/b") + LasFileBuilder::attribute(9, "Reflectance") +
                  LasFileBuilder::attribute(1, "Amplitude") + LasFileBuilder::attribute(23, "Triple"));
    file.vlrs.push_back({"Somebody", 1, "first"});
    file.vlrs.push_back({"Somebody", 1, "second"});
    if (format >= 6) {
        file.vlrs.push_back({"LASF_Projection", 2112, "LOCAL_CS[\"site\",UNIT[\"metre\",1]]"});
        file.evlrs.push_back({"Somebody", 2, std::string(70'000, 'x')});
        file.evlrs.push_back({"Somebody", 3, "behind"});
    }
    file.addVariedPoints(3000);
    float number = 0;
    for (LasRecord& point : file.points) {
        // Floats that are numbers: those of noise may be signalling ones.
        point.extraBytes.replace(10, 4, 4, '\0');
        Support::patch(point.extraBytes, 10, number -= 0.37F);
    }
    return file.build();
}

class LasCarriedTrip : public ::testing::TestWithParam<Journey> {};

TEST_P(LasCarriedTrip, ChangesNothingThatTheVersionHasAPlaceFor) {
    if (const std::string reason = Support::lazPerfMissing(); !reason.empty())
        GTEST_SKIP() << reason;
    const Support::TemporaryFolder folder;
    std::string source = folder / "in.las";
    if (GetParam().file.starts_with("format")) {
        Support::writeBytes(source, varied(static_cast<unsigned>(std::stoul(GetParam().file.substr(6)))));
    } else {
        TIDEWATCH_NEED_SHARED(sample, GetParam().file);
        source = sample;
    }
    registerReaders();
    const Inputs inputs = inputsOf(source);
    LasOptions options;
    options.output = OutputPattern(folder / "out.laz");
    options.version = GetParam().version;
    options.carry = true;
    options.conforming = true;
    options.verify = true;
    const ExportReport report = exportLas(inputs, options);
    ASSERT_TRUE(report.placed);

    const WrittenLas from = WrittenLas::read(source);
    const WrittenLas to = WrittenLas::read(folder / "out.laz");
    const bool fromExtended = from.format() >= 6;
    const bool toExtended = to.format() >= 6;
    EXPECT_EQ(to.at<std::uint16_t>(4), from.at<std::uint16_t>(4));
    EXPECT_EQ(to.at<std::uint16_t>(6) & 1U, from.at<std::uint16_t>(6) & 1U);
    EXPECT_EQ(to.text(26, 32), from.text(26, 32));
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(to.scale(axis), from.scale(axis));
        EXPECT_EQ(to.offset(axis), from.offset(axis));
    }
    if (toExtended || from.evlrs().empty()) {
        EXPECT_TRUE(userRecords(to) == userRecords(from));
    }

    const auto before = numbersOf(from);
    const auto after = numbersOf(to);
    for (const auto& [name, number] : before) {
        ASSERT_TRUE(after.contains(name)) << name;
        EXPECT_EQ(after.at(name).meaning, number.meaning) << name;
    }
    EXPECT_EQ(after.size(), before.size());

    auto expected = decode(source);
    const auto got = decode(folder / "out.laz");
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        LasRecord want = expected[i];
        LasRecord have = got[i];
        for (const auto& [name, number] : before)
            ASSERT_EQ(have.extraBytes.substr(after.at(name).place, number.size),
                      want.extraBytes.substr(number.place, number.size))
                << name << " of point " << i;
        want.extraBytes.clear();
        have.extraBytes.clear();
        const double degrees = want.scanAngle * (fromExtended ? 0.006 : 1.0);
        ASSERT_NEAR(have.scanAngle * (toExtended ? 0.006 : 1.0),
                    fromExtended && !toExtended ? std::clamp(degrees, -90.0, 90.0) : degrees,
                    fromExtended == toExtended ? 0
                    : toExtended               ? 0.003
                                               : 0.5)
            << "point " << i;
        want.scanAngle = have.scanAngle;
        // Waveforms are never carried, and the rest below has no place in older versions.
        want.wavePacket = {};
        if (!toExtended) {
            want.classification %= 32;
            want.returnNumber = std::min<std::uint8_t>(want.returnNumber, 7);
            want.numberOfReturns = std::min<std::uint8_t>(want.numberOfReturns, 7);
            want.flags &= 7;
            want.scannerChannel = 0;
            want.nearInfrared = 0;
        }
        ASSERT_TRUE(have == want) << "point " << i;
    }

    const GridSystem system = systemOf(inputs);
    const GridSystem found = systemOf(inputsOf(folder / "out.laz"));
    ASSERT_EQ(found.system.has_value(), system.system.has_value());
    if (system.system) {
        EXPECT_TRUE(found.system->isEquivalentTo(*system.system));
    }
}

std::vector<Journey> journeys() {
    std::vector<Journey> list;
    for (const char* const file :
         {"format0", "format1", "format2", "format3", "format5", "1.2-with-color.las", "autzen_trim.laz",
          "epsg_4326.las", "extrabytes.las"}) {
        for (const int version : {2, 3, 4})
            list.push_back({file, version});
    }
    for (const char* const file :
         {"format6", "format7", "format8", "format10", "autzen_trim_7.las", "test1_4.las"})
        list.push_back({file, 4});
    return list;
}

INSTANTIATE_TEST_SUITE_P(, LasCarriedTrip, ::testing::ValuesIn(journeys()), [](const auto& one) {
    return Support::testName(one.param.file) + "ToVersion" + std::to_string(one.param.version);
});

} // namespace
} // namespace Tidewatch
