// SPDX-License-Identifier: Apache-2.0
#include "readers/las/PointDecoder.hpp"

#include "anchor/Error.hpp"
#include "support/LazAssembly.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/decodeLas.hpp"
#include "support/sharedData.hpp"
#include "support/testName.hpp"

#include <cctype>
#include <filesystem>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

namespace {

using Support::compressLas;
using Support::decodeLas;
using Support::decodeLasBytes;
using Support::decodeRange;
using Support::failureOfLas;
using Support::LasFileBuilder;
using Support::LasRecord;
using Support::LazAssembly;
using Support::patch;
using Support::withoutWavePackets;
using ::testing::AllOf;
using ::testing::HasSubstr;
using Tidewatch::Las::LasFile;
using Tidewatch::Las::Point;
using Tidewatch::Las::PointDecoder;

LasFileBuilder varied(unsigned minor, unsigned format, std::size_t count, std::size_t extraByteCount = 0) {
    LasFileBuilder builder;
    builder.minor = minor;
    builder.format = format;
    builder.extraByteCount = extraByteCount;
    builder.addVariedPoints(count);
    return builder;
}

TEST(PointDecoder, PlainPointsOfEveryVersionAndFormatComeBackWhole) {
    for (unsigned minor = 0; minor <= 4; ++minor) {
        for (unsigned format = 0; format <= (minor < 4 ? 5U : 10U); ++format) {
            for (const std::size_t extraByteCount : {0U, 1U, 11U}) {
                const LasFileBuilder builder = varied(minor, format, 2500, extraByteCount);
                EXPECT_EQ(decodeLasBytes(builder.build()), withoutWavePackets(builder.points))
                    << "1." << minor << ", format " << format;
            }
        }
    }
}

TEST(PointDecoder, CompressedPointsOfEveryFormatComeBackWhole) {
    for (unsigned format = 0; format <= 10; ++format) {
        for (const std::size_t extraByteCount : {0U, 1U, 11U}) {
            const LasFileBuilder builder = varied(4, format, 1300, extraByteCount);
            for (const std::uint32_t chunkSize : {3U, 333U, 50000U}) {
                EXPECT_EQ(decodeLasBytes(compressLas(builder, chunkSize)), withoutWavePackets(builder.points))
                    << "format " << format << ", chunks of " << chunkSize;
            }
        }
    }
}

TEST(PointDecoder, CompressedPointsOfOldVersionsComeBackWhole) {
    for (unsigned minor = 0; minor <= 3; ++minor) {
        const LasFileBuilder builder = varied(minor, minor, 100);
        EXPECT_EQ(decodeLasBytes(compressLas(builder)), builder.points);
    }
}

TEST(PointDecoder, RecordsBeforeAndBehindCompressedPointsDoNotMatter) {
    LasFileBuilder builder = varied(4, 7, 700, 4);
    builder.headerTail = "tail";
    builder.vlrs.push_back({"somebody", 77, std::string(5000, 'v')});
    builder.evlrs.push_back({"somebody", 78, std::string(5000, 'e')});
    EXPECT_EQ(decodeLasBytes(compressLas(builder, 100)), builder.points);
}

TEST(PointDecoder, ChunksOfVariableSizeComeBackWhole) {
    for (const unsigned format : {1U, 3U, 6U, 7U}) {
        const LasFileBuilder builder = varied(4, format, 1000);
        const LazAssembly parts = LazAssembly::make(builder, {1, 400, 3, 596});
        EXPECT_EQ(decodeLasBytes(parts.buildVariable()), builder.points) << format;
    }
}

TEST(PointDecoder, OneStreamComesBackWhole) {
    for (unsigned format = 0; format <= 5; ++format) {
        const LasFileBuilder builder = varied(4, format, 1000, 2);
        EXPECT_EQ(decodeLasBytes(LazAssembly::make(builder, {1000}).buildStream()),
                  withoutWavePackets(builder.points))
            << format;
    }
}

TEST(PointDecoder, ExtraBytesByTheThousandsComeBackWhole) {
    for (const unsigned format : {0U, 6U}) {
        const LasFileBuilder builder = varied(4, format, 60, 3000);
        EXPECT_EQ(decodeLasBytes(builder.build()), builder.points);
        EXPECT_EQ(decodeLasBytes(compressLas(builder, 25)), builder.points);
    }
}

TEST(PointDecoder, LayersThatNobodyAsksForAreSkipped) {
    namespace Layer = Tidewatch::Las::Layer;
    const LasFileBuilder builder = varied(4, 7, 2500, 20);
    const Support::MemoryFile bytes(compressLas(builder, 500));
    const auto file = std::make_shared<LasFile>(bytes.path());
    PointDecoder decoder(file, Layer::Intensity | Tidewatch::Las::extraByteLayers(2, 1));
    const auto got = decodeRange(decoder, *file, 0, 2500);
    std::size_t heights = 0;
    std::size_t colours = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
        const LasRecord& expected = builder.points[i];
        ASSERT_EQ(got[i].x, expected.x);
        ASSERT_EQ(got[i].y, expected.y);
        ASSERT_EQ(got[i].returnNumber, expected.returnNumber);
        ASSERT_EQ(got[i].scannerChannel, expected.scannerChannel);
        ASSERT_EQ(got[i].intensity, expected.intensity);
        ASSERT_EQ(got[i].extraBytes[2], expected.extraBytes[2]);
        ASSERT_EQ(got[i].extraBytes.substr(16), expected.extraBytes.substr(16));
        heights += got[i].z == expected.z ? 1U : 0U;
        colours += got[i].rgb == expected.rgb ? 1U : 0U;
    }
    // Right only where they happen to be.
    EXPECT_LT(heights, 500U);
    EXPECT_LT(colours, 500U);
}

TEST(PointDecoder, RangesInAnyOrderGiveTheSamePoints) {
    const LasFileBuilder builder = varied(4, 3, 5000, 2);
    const LazAssembly variable = LazAssembly::make(builder, {700, 1, 2299, 2000});
    const LazAssembly stream = LazAssembly::make(builder, {5000});
    const std::map<std::string, std::string> files{{"plain", builder.build()},
                                                   {"chunks", compressLas(builder, 640)},
                                                   {"variable chunks", variable.buildVariable()},
                                                   {"stream", stream.buildStream()}};
    const Support::TemporaryFolder folder;
    for (const auto& [kind, bytes] : files) {
        Support::writeBytes(folder / "a.las", bytes);
        const auto file = std::make_shared<LasFile>(folder / "a.las");
        PointDecoder decoder(file);
        std::mt19937 random(3);
        for (int round = 0; round < 200; ++round) {
            const std::uint64_t first = random() % 5000;
            const std::uint64_t count = random() % std::min<std::uint64_t>(5001 - first, 900);
            const auto begin = builder.points.begin() + static_cast<std::ptrdiff_t>(first);
            ASSERT_EQ(decodeRange(decoder, *file, first, count),
                      std::vector<LasRecord>(begin, begin + static_cast<std::ptrdiff_t>(count)))
                << kind << ": " << count << " from " << first << " on";
        }
    }
}

TEST(PointDecoder, EdgesOfChunksAreEnteredRightly) {
    const LasFileBuilder builder = varied(4, 7, 30);
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.laz", compressLas(builder, 10));
    const auto file = std::make_shared<LasFile>(folder / "a.laz");
    for (const std::uint64_t first : {0U, 9U, 10U, 11U, 19U, 20U, 29U}) {
        for (const std::uint64_t before : {0U, 9U, 10U, 20U, 29U}) {
            PointDecoder decoder(file);
            static_cast<void>(decodeRange(decoder, *file, before, 1));
            EXPECT_EQ(decodeRange(decoder, *file, first, 1).front(), builder.points[first]);
        }
    }
}

TEST(PointDecoder, FileWithoutPointsGivesNone) {
    for (const unsigned format : {0U, 6U}) {
        const LasFileBuilder builder = varied(4, format, 0);
        EXPECT_TRUE(decodeLasBytes(builder.build()).empty());
        EXPECT_TRUE(decodeLasBytes(compressLas(builder)).empty());
    }
}

TEST(PointDecoder, TickTellsTheProgressAndMayStopIt) {
    for (const bool compressed : {false, true}) {
        const LasFileBuilder builder = varied(2, 0, 60000);
        const Support::TemporaryFolder folder;
        Support::writeBytes(folder / "a.las", compressed ? compressLas(builder) : builder.build());
        const auto file = std::make_shared<LasFile>(folder / "a.las");
        PointDecoder decoder(file);
        std::vector<std::uint64_t> told;
        decoder.decode(
            0, 60000, [](std::span<const Point>) {}, [&](std::uint64_t done) { told.push_back(done); });
        ASSERT_GE(told.size(), 60000 / PointDecoder::tickInterval);
        EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
        EXPECT_LE(told.back(), 60000U);

        const auto stop = [](std::uint64_t) { throw std::runtime_error("enough"); };
        EXPECT_THROW(decoder.decode(
                         0, 60000, [](std::span<const Point>) {}, stop),
                     std::runtime_error);
        EXPECT_EQ(decodeRange(decoder, *file, 59990, 10).back(), builder.points.back());
    }
}

TEST(PointDecoder, TickIsCalledOnTheWayToThePointsToo) {
    const LasFileBuilder builder = varied(2, 0, 60000);
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.laz", LazAssembly::make(builder, {60000}).buildStream());
    PointDecoder decoder(std::make_shared<LasFile>(folder / "a.laz"));
    std::size_t calls = 0;
    decoder.decode(
        59999, 1, [](std::span<const Point>) {}, [&](std::uint64_t) { ++calls; });
    EXPECT_GE(calls, 3U);
}

TEST(PointDecoder, FileThatIsGoneOrChangedIsAFileError) {
    const LasFileBuilder builder = varied(2, 0, 10);
    const Support::TemporaryFolder folder;
    for (const std::string& bytes : {builder.build(), compressLas(builder)}) {
        Support::writeBytes(folder / "a.las", bytes);
        const auto file = std::make_shared<LasFile>(folder / "a.las");
        PointDecoder decoder(file);
        Support::writeBytes(folder / "a.las", bytes + "more");
        EXPECT_THROW(static_cast<void>(decodeRange(decoder, *file, 0, 1)), Anchor::FileError);
        std::filesystem::remove(folder / "a.las");
        EXPECT_THROW(static_cast<void>(decodeRange(decoder, *file, 0, 1)), Anchor::FileError);
    }
}

TEST(PointDecoder, FileThatIsWrittenToWhileItIsOpenIsAFileError) {
    const LasFileBuilder builder = varied(2, 0, 5000);
    const Support::TemporaryFolder folder;
    for (const std::string& bytes : {builder.build(), compressLas(builder, 1000)}) {
        Support::writeBytes(folder / "a.las", bytes);
        const auto file = std::make_shared<LasFile>(folder / "a.las");
        PointDecoder decoder(file);
        static_cast<void>(decodeRange(decoder, *file, 0, 1));
        // The same bytes, another time: no byte tells, and the system does.
        std::filesystem::last_write_time(folder / "a.las", std::filesystem::file_time_type::clock::now() +
                                                               std::chrono::seconds(2));
        try {
            static_cast<void>(decodeRange(decoder, *file, 1, 4999));
            ADD_FAILURE() << "not noticed";
        } catch (const Anchor::FileError& error) {
            EXPECT_STREQ(error.what(),
                         ((folder / "a.las") + ": has been changed since it was opened").c_str());
        }
    }
}

TEST(PointDecoder, FileThatIsCutWhileItIsOpenIsAFileError) {
    const LasFileBuilder builder = varied(2, 0, 5000);
    const Support::TemporaryFolder folder;
    for (const std::string& bytes : {builder.build(), compressLas(builder, 1000)}) {
        Support::writeBytes(folder / "a.las", bytes);
        const auto file = std::make_shared<LasFile>(folder / "a.las");
        PointDecoder decoder(file);
        static_cast<void>(decodeRange(decoder, *file, 0, 1));
        std::filesystem::resize_file(folder / "a.las", 400);
        EXPECT_THROW(static_cast<void>(decodeRange(decoder, *file, 1, 4999)), Anchor::FileError);
    }
}

// Damaged points.

TEST(PointDecoder, DamagedChunkIsNamedAndTheOthersStayReadable) {
    for (const unsigned format : {1U, 7U}) {
        const LasFileBuilder builder = varied(4, format, 3000);
        LazAssembly parts = LazAssembly::make(builder, {1000, 1000, 1000});
        std::string& damaged = parts.chunks[1].bytes;
        for (std::size_t i = damaged.size() / 2; i < damaged.size() / 2 + 40; ++i)
            damaged[i] = static_cast<char>(~damaged[i]);
        const std::string bytes = parts.buildVariable();
        const Support::TemporaryFolder folder;
        Support::writeBytes(folder / "a.laz", bytes);
        const auto file = std::make_shared<LasFile>(folder / "a.laz");
        PointDecoder decoder(file);
        if (format == 1) {
            try {
                static_cast<void>(decodeRange(decoder, *file, 0, 3000));
                ADD_FAILURE() << "the damage is not noticed";
            } catch (const Anchor::FormatError& error) {
                EXPECT_THAT(error.what(), ::testing::StartsWith((folder / "a.laz") + ": "));
            }
        }
        const auto last = decodeRange(decoder, *file, 2000, 1000);
        EXPECT_EQ(last.back(), builder.points.back());
        const auto first = decodeRange(decoder, *file, 0, 1000);
        EXPECT_EQ(first.front(), builder.points.front());
    }
}

TEST(PointDecoder, StreamThatEndsTooEarlyNamesThePointAndLaszipsWords) {
    const LasFileBuilder builder = varied(2, 1, 1000);
    const std::string bytes = LazAssembly::make(builder, {1000}).buildStream();
    EXPECT_THAT(failureOfLas<Anchor::FormatError>(bytes.substr(0, bytes.size() / 2)),
                AllOf(HasSubstr(": point "), HasSubstr("LASzip says: reading point "),
                      HasSubstr("of 1000 total points"), HasSubstr("ends too early")));
}

TEST(PointDecoder, ChunkWhosePointsEndBeforeItDoesIsDamaged) {
    const LasFileBuilder builder = varied(2, 0, 100);
    LazAssembly parts = LazAssembly::make(builder, {100});
    parts.chunks[0].bytes += std::string(10, 'x');
    EXPECT_THAT(failureOfLas<Anchor::FormatError>(parts.build(LazAssembly::table(parts.entries(), false))),
                HasSubstr("chunk 0: it is damaged: its points end at"));
}

TEST(PointDecoder, LayerSizesThatOverflow32BitsAreRefusedBeforeDecompression) {
    LazAssembly parts = LazAssembly::make(varied(4, 6, 50), {50});
    for (const std::size_t layer : {1U, 4U}) {
        const std::size_t place = 30 + 4 + 4 * layer;
        patch(parts.chunks[0].bytes, place,
              Support::number<std::uint32_t>(parts.chunks[0].bytes, place) + 0x80000000U);
    }
    EXPECT_THAT(failureOfLas<Anchor::FormatError>(parts.build(LazAssembly::table(parts.entries(), false))),
                HasSubstr("chunk 0: layer 1 is to have"));
}

TEST(PointDecoder, GpsTimeThatSwitchesSequencesWithoutEndIsRefused) {
    // Each switch makes LASzip call itself; five million of them fit in some 150 bytes and would take 240 MB
    // of stack.
    using Formats::Las::BitModel;
    using Formats::Las::SymbolModel;
    LasFileBuilder builder = varied(2, 1, 2);
    builder.points[0].numberOfReturns = 1;
    LazAssembly parts = LazAssembly::make(builder, {2});
    Formats::Las::ArithmeticEncoder encoder;
    SymbolModel changedValues(64);
    encoder.symbol(changedValues, 0);
    for (int axis = 0; axis < 3; ++axis) {
        SymbolModel bitCount(33);
        BitModel zeroOrOne;
        encoder.symbol(bitCount, 0);
        encoder.bit(zeroOrOne, false);
    }
    SymbolModel whichTime(6);
    constexpr std::uint32_t switchSequence = 5;
    for (int i = 0; i < 5'000'000; ++i)
        encoder.symbol(whichTime, switchSequence);
    parts.chunks[0].bytes.resize(28);
    parts.chunks[0].bytes += encoder.finish();
    EXPECT_THAT(failureOfLas<Anchor::FormatError>(parts.build(LazAssembly::table(parts.entries(), false))),
                HasSubstr("point 1: cannot be decompressed: its GPS time switches sequences without end"));
}

TEST(PointDecoder, NothingIsPrintedWhateverTheFile) {
    const LasFileBuilder builder = varied(4, 3, 500);
    const std::string good = compressLas(builder, 100);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    for (std::size_t place = 0; place < good.size(); place += 7) {
        std::string bytes = good;
        bytes[place] = static_cast<char>(~bytes[place]);
        static_cast<void>(failureOfLas<Anchor::Error>(bytes));
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// Files that nobody here made.

class SharedLasFile : public ::testing::TestWithParam<std::tuple<std::string, std::uint64_t>> {};

TEST_P(SharedLasFile, CountAndBoundsAreThoseOfTheHeader) {
    const auto [name, count] = GetParam();
    TIDEWATCH_NEED_SHARED(path, name);
    const auto file = std::make_shared<LasFile>(path);
    PointDecoder decoder(file);
    const auto& header = file->header();
    ASSERT_EQ(header.pointCount, count);
    std::array<double, 3> low;
    std::array<double, 3> high;
    low.fill(std::numeric_limits<double>::infinity());
    high.fill(-std::numeric_limits<double>::infinity());
    std::uint64_t seen = 0;
    decoder.decode(0, count, [&](std::span<const Point> points) {
        seen += points.size();
        for (const Point& point : points) {
            const std::array<std::int32_t, 3> stored{point.x, point.y, point.z};
            for (std::size_t axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], header.coordinate(axis, stored[axis]));
                high[axis] = std::max(high[axis], header.coordinate(axis, stored[axis]));
            }
        }
    });
    EXPECT_EQ(seen, count);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(low[axis], header.minimum[axis], 1.001 * header.scale[axis]);
        EXPECT_NEAR(high[axis], header.maximum[axis], 1.001 * header.scale[axis]);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, SharedLasFile,
    ::testing::Values(std::tuple{"autzen_trim.laz", 110000}, std::tuple{"autzen_trim_7.las", 110000},
                      std::tuple{"extrabytes.las", 1065}, std::tuple{"test1_4.las", 1000},
                      std::tuple{"1.2-with-color.las", 1065}, std::tuple{"epsg_4326.las", 5380}),
    [](const auto& file) { return Support::testName(std::get<0>(file.param)); });

TEST(PointDecoder, CompressedSampleEqualsThePlainOnePointByPoint) {
    TIDEWATCH_NEED_SHARED(compressed, "autzen_trim.laz");
    TIDEWATCH_NEED_SHARED(plain, "autzen_trim_7.las");
    const auto format3 = decodeLas(compressed);
    auto format7 = decodeLas(plain);
    ASSERT_EQ(format3.size(), format7.size());
    std::size_t different = 0;
    for (std::size_t i = 0; i < format7.size(); ++i) {
        // Whole degrees there, steps of 0.006 degrees here.
        EXPECT_NEAR(format7[i].scanAngle * 0.006, format3[i].scanAngle, 0.5);
        format7[i].scanAngle = format3[i].scanAngle;
        different += format7[i] == format3[i] ? 0U : 1U;
    }
    EXPECT_EQ(different, 0U);
}

} // namespace
