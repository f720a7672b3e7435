// SPDX-License-Identifier: Apache-2.0
//
// Public files, and small ones of every format, through the reader, a bundle and the exporter, in all
// versions. Sources and results are decoded without the reader: by a plain one of the published layout, and
// by laz-perf where they are compressed.
#include "convlib/Reader.hpp"
#include "las/LasExport.hpp"
#include "readers/registerReaders.hpp"
#include "support/lazPerf.hpp"
#include "support/sharedData.hpp"
#include "support/testName.hpp"

#include <algorithm>
#include <cmath>

namespace {

using Support::LasFileBuilder;
using Support::LasParts;
using Support::LasRecord;
using Support::WrittenLas;

std::vector<LasRecord> decode(const std::string& path) {
    const WrittenLas file = WrittenLas::read(path);
    const std::size_t bytes = file.count() * file.recordLength();
    return file.decode(file.isCompressed() ? Support::decodeWithLazPerf(path)
                                           : file.bytes.substr(file.pointsBegin(), bytes));
}

/// What is known of the source of a round trip and of the file that came of it.
struct Trip {
    unsigned fromFormat;
    int toVersion;
    bool hasColor;
    bool isWideColor; ///< some channel exceeds 255

    [[nodiscard]] bool fromExtended() const { return fromFormat >= 6; }
    [[nodiscard]] bool toExtended() const { return toVersion == 4; }
};

/// One thing that is lost on the way: when, and what becomes of a record.
struct Loss {
    const char* what;
    bool (*applies)(const Trip&);
    void (*apply)(LasRecord&, const Trip&);
};

// All that a round trip may lose. Reflectance and Amplitude, which move by a point, are looked at by
// themselves.
const Loss losses[] = {
    {"GPS time in versions 2 and 3 with colour", [](const Trip& t) { return !t.toExtended() && t.hasColor; },
     [](LasRecord& r, const Trip&) { r.gpsTime = 0; }},
    {"colours are kept to 8 bits, where any exceeds them by dividing",
     [](const Trip& t) { return t.isWideColor; },
     [](LasRecord& r, const Trip&) {
         for (std::uint16_t& channel : r.rgb)
             channel /= 256;
     }},
    {"scan angles of 16 bits in versions 2 and 3",
     [](const Trip& t) { return t.fromExtended() && !t.toExtended(); },
     [](LasRecord& r, const Trip&) { r.scanAngle = 0; }},
    {"classes above 31 in versions 2 and 3", [](const Trip& t) { return !t.toExtended(); },
     [](LasRecord& r, const Trip&) { r.classification %= 32; }},
    {"return numbers above 7 in versions 2 and 3", [](const Trip& t) { return !t.toExtended(); },
     [](LasRecord& r, const Trip&) {
         r.returnNumber = std::min<std::uint8_t>(r.returnNumber, 7);
         r.numberOfReturns = std::min<std::uint8_t>(r.numberOfReturns, 7);
     }},
    {"flags, scanner channel, near infrared and extra bytes without an attribute",
     [](const Trip&) { return true; },
     [](LasRecord& r, const Trip&) {
         r.flags = 0;
         r.scannerChannel = 0;
         r.nearInfrared = 0;
         r.wavePacket = {};
         r.extraBytes.clear();
     }},
};
// Not in the table because the number stays: whole degrees of 8 bits are stored as they are in the 16-bit
// field of version 4, whose unit is 0.006 degrees.

struct Journey {
    std::string file; // a public sample, or "formatN": varied points of that format
    int version;
    bool uncompressed;

    // Else names of tests would show the address of the file's name, which no two runs share.
    friend void PrintTo(const Journey& one, std::ostream* out) {
        *out << one.file << " to " << (one.uncompressed ? "LAS 1." : "LAZ 1.") << one.version;
    }
};

class LasRoundTrip : public ::testing::TestWithParam<Journey> {};

std::string varied(unsigned format) {
    Support::LasFileBuilder file;
    file.minor = 4;
    file.format = format;
    file.addVariedPoints(3000);
    file.points.erase(file.points.begin() + 3); // is as far away as numbers allow
    return file.build();
}

TEST_P(LasRoundTrip, CarriesAllButTheStatedLosses) {
    const Support::TemporaryFolder folder;
    std::string source = folder / "in.las";
    if (GetParam().file.starts_with("format")) {
        Support::writeBytes(source, varied(static_cast<unsigned>(std::stoul(GetParam().file.substr(6)))));
    } else {
        TIDEWATCH_NEED_SHARED(sample, GetParam().file);
        source = sample;
    }
    const bool needsLazPerf = !GetParam().uncompressed || source.ends_with(".laz");
    if (const std::string reason = Support::lazPerfMissing(); needsLazPerf && !reason.empty())
        GTEST_SKIP() << reason;

    const Support::ConsoleCapture console;
    Tidewatch::registerReaders();
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::ReadOptions options;
    options.FragmentPoints = 40'000;
    ConvLib::readFile(*bundle, source, options);
    ExportLib::ExportPointCloudToLas exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = folder / "trip.las";
    exporter.Version = GetParam().version;
    exporter.uncompressed = GetParam().uncompressed;
    ASSERT_TRUE(exporter.Run());
    EXPECT_THAT(exporter.Errors, ::testing::IsEmpty());

    const WrittenLas from = WrittenLas::read(source);
    const WrittenLas to = WrittenLas::read(exporter.writtenFiles().at(0).path);
    auto expected = decode(source);
    const auto got = decode(exporter.writtenFiles()[0].path);
    ASSERT_EQ(got.size(), expected.size());

    Trip trip{from.format(), GetParam().version, LasParts(from.format()).rgb, false};
    for (const LasRecord& r : expected)
        trip.isWideColor = trip.isWideColor || *std::max_element(r.rgb.begin(), r.rgb.end()) > 255;
    for (std::size_t i = 0; i < got.size(); ++i) {
        LasRecord& want = expected[i];
        LasRecord have = got[i];
        const std::int32_t LasRecord::*const axes[]{&LasRecord::x, &LasRecord::y, &LasRecord::z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double before = want.*axes[axis] * from.scale(axis) + from.offset(axis);
            const double after = have.*axes[axis] * to.scale(axis) + to.offset(axis);
            // Half a step, and what doubles of this size cannot hold.
            ASSERT_NEAR(before, after, to.scale(axis) / 2 + std::abs(before) * 1e-15) << "point " << i;
        }
        want.x = have.x;
        want.y = have.y;
        want.z = have.z;
        have.extraBytes.clear();
        for (const Loss& loss : losses) {
            if (loss.applies(trip))
                loss.apply(want, trip);
        }
        ASSERT_TRUE(want == have) << "point " << i;
    }
}

std::vector<Journey> journeys() {
    std::vector<Journey> list;
    for (const char* const file :
         {"format0", "format3", "format5", "format6", "format8", "format10", "1.2-with-color.las",
          "autzen_trim.laz", "autzen_trim_7.las", "epsg_4326.las", "extrabytes.las", "test1_4.las"}) {
        for (const int version : {2, 3, 4}) {
            for (const bool uncompressed : {true, false})
                list.push_back({file, version, uncompressed});
        }
    }
    return list;
}

INSTANTIATE_TEST_SUITE_P(, LasRoundTrip, ::testing::ValuesIn(journeys()), [](const auto& one) {
    return Support::testName(one.param.file) +
           (one.param.uncompressed ? "PlainVersion" : "CompressedVersion") +
           std::to_string(one.param.version);
});

/// Reflectance and Amplitude of one file become those of the next, one point late; and once more on the way
/// back.
TEST(LasRoundTripTwice, ReflectanceAndAmplitudeAreOnePointLateEachTime) {
    const Support::TemporaryFolder folder;
    Tidewatch::registerReaders();
    const std::vector<float> reflectance{-25, -10, 0, 5};
    const std::vector<unsigned short> amplitude{10, 20, 30, 65535};
    const auto first = Anchor::makeStrong<Sheaf::Bundle>();
    Support::GridBuilder(*first, 0, "g")
        .field("Positions", "a", LasExport::pointsOnALine(4))
        .field("Reflectance", "a", reflectance)
        .field("Amplitude", "a", amplitude);
    const auto exportTo = [&](const Anchor::StrongPtr<Sheaf::Bundle>& bundle, const std::string& name) {
        ExportLib::ExportPointCloudToLas exporter;
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder / name;
        exporter.uncompressed = true;
        EXPECT_TRUE(exporter.Run());
        return WrittenLas::read(folder / name).records();
    };
    const auto once = exportTo(first, "once.las");
    const auto second = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::readFile(*second, folder / "once.las", {});
    const auto twice = exportTo(second, "twice.las");
    ASSERT_EQ(twice.size(), 4U);
    const auto raw = [](const LasRecord& r, std::size_t place) {
        return Support::number<std::uint16_t>(r.extraBytes, place);
    };
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(raw(once[i], 0), i < 1 ? 0 : amplitude[i - 1]);
        EXPECT_EQ(raw(twice[i], 0), i < 2 ? 0 : amplitude[i - 2]);
        EXPECT_EQ(raw(once[i], 2), i < 1 ? 0 : std::lround((reflectance[i - 1] + 25.0F) * 2184.0F));
        EXPECT_EQ(raw(twice[i], 2), i < 2 ? 0 : std::lround((reflectance[i - 2] + 25.0F) * 2184.0F));
    }
}

} // namespace
