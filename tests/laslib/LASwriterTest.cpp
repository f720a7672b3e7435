// SPDX-License-Identifier: Apache-2.0
#include "laswriter.hpp"

#include "support/TemporaryFolder.hpp"
#include "support/WrittenLas.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Support::WrittenLas;
namespace fs = std::filesystem;

struct LASwriting : ::testing::Test {
    /// A header of a point format and version, with the format's own record length.
    static LASheader headerOf(U8 minor, U8 format) {
        const U16 lengths[]{20, 28, 26, 34, 0, 0, 30, 36, 38};
        LASheader header;
        header.version_minor = minor;
        header.header_size = minor >= 4 ? 375 : minor == 3 ? 235 : 227;
        header.offset_to_point_data = header.header_size;
        header.point_data_format = format;
        header.point_data_record_length = lengths[format];
        return header;
    }

    std::unique_ptr<LASwriter> open(const std::string& name, const LASheader& header) {
        LASwriteOpener opener;
        opener.set_file_name((folder / name).c_str());
        return std::unique_ptr<LASwriter>(opener.open(&header));
    }

    /// Fills every field, legacy and extended.
    static void fill(LASpoint& point, int i) {
        point.X = 1000 * i;
        point.Y = -i;
        point.Z = 0x01020304;
        point.intensity = static_cast<U16>(i);
        point.return_number = 2;
        point.number_of_returns = 5;
        point.scan_direction_flag = 1;
        point.edge_of_flight_line = 0;
        point.scan_angle_rank = -30;
        point.user_data = 9;
        point.point_source_ID = 0x1234;
        point.extended_scan_angle = -5000;
        point.extended_classification = 77;
        point.extended_return_number = 9;
        point.extended_number_of_returns = 12;
        point.gps_time = 12.5 * i;
        point.rgb[0] = 1;
        point.rgb[1] = 2;
        point.rgb[2] = static_cast<U16>(i);
        point.rgb[3] = static_cast<U16>(40000 + i);
    }

    Support::TemporaryFolder folder;
};

TEST_F(LASwriting, RecordsOfEveryFormatHoldTheirFields) {
    for (const U8 format : {U8{0}, U8{1}, U8{2}, U8{3}, U8{6}, U8{7}, U8{8}}) {
        LASheader header = headerOf(format >= 6 ? 4 : 2, format);
        header.point_data_record_length = static_cast<U16>(header.point_data_record_length + 4);
        LASpoint point;
        ASSERT_TRUE(point.init(&header, format, header.point_data_record_length));
        const auto writer = open("a.las", header);
        ASSERT_TRUE(writer);
        for (int i = 0; i < 3; ++i) {
            fill(point, i);
            point.set_attribute(1, static_cast<U16>(0x4142 + i));
            EXPECT_TRUE(writer->write_point(&point));
        }
        const I64 bytes = writer->close();
        const WrittenLas file = WrittenLas::read(folder / "a.las");
        EXPECT_EQ(bytes, static_cast<I64>(file.bytes.size()));
        ASSERT_EQ(file.count(), 3U);
        const auto records = file.records();
        for (int i = 0; i < 3; ++i) {
            const Support::LasRecord& r = records[static_cast<std::size_t>(i)];
            EXPECT_EQ(r.x, 1000 * i);
            EXPECT_EQ(r.y, -i);
            EXPECT_EQ(r.z, 0x01020304);
            EXPECT_EQ(r.intensity, i);
            EXPECT_EQ(r.returnNumber, format >= 6 ? 9 : 2);
            EXPECT_EQ(r.numberOfReturns, format >= 6 ? 12 : 5);
            EXPECT_EQ(r.scanDirection, 1);
            EXPECT_EQ(r.edgeOfFlightLine, 0);
            EXPECT_EQ(r.classification, format >= 6 ? 77 : 0);
            EXPECT_EQ(r.flags, 0);
            EXPECT_EQ(r.scanAngle, format >= 6 ? -5000 : -30);
            EXPECT_EQ(r.userData, 9);
            EXPECT_EQ(r.pointSourceId, 0x1234);
            EXPECT_EQ(r.gpsTime, format == 0 || format == 2 ? 0 : 12.5 * i);
            EXPECT_EQ(r.rgb[2], format == 2 || format == 3 || format >= 7 ? i : 0);
            EXPECT_EQ(r.nearInfrared, format == 8 ? 40000 + i : 0);
            const char extraBytes[]{0, static_cast<char>(0x42 + i), 0x41, 0};
            EXPECT_EQ(r.extraBytes, std::string(extraBytes, 4));
        }
    }
}

TEST_F(LASwriting, LegacyClassAndFlagsCountInExtendedFormats) {
    const LASheader header = headerOf(4, 6);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 6, 30));
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    point.classification = 2;
    point.extended_classification = 2;
    point.synthetic_flag = 1;
    point.withheld_flag = 1;
    point.extended_classification_flags = 8;
    point.extended_scanner_channel = 3;
    writer->write_point(&point);
    writer->close();
    const auto records = WrittenLas::read(folder / "a.las").records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].classification, 2);
    EXPECT_EQ(records[0].flags, 1 + 4 + 8);
    EXPECT_EQ(records[0].scannerChannel, 3);
}

TEST_F(LASwriting, CompressedFileSaysSoAndDescribesItsCompression) {
    const LASheader header = headerOf(4, 7);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 7, 36));
    const auto writer = open("a.laz", header);
    ASSERT_TRUE(writer);
    for (int i = 0; i < 5; ++i) {
        fill(point, i);
        EXPECT_TRUE(writer->write_point(&point));
    }
    const I64 bytes = writer->close();
    const WrittenLas file = WrittenLas::read(folder / "a.laz");
    EXPECT_EQ(bytes, static_cast<I64>(file.bytes.size()));
    EXPECT_TRUE(file.isCompressed());
    EXPECT_EQ(file.format(), 7U);
    EXPECT_EQ(file.count(), 5U);
    const auto vlrs = file.vlrs();
    ASSERT_EQ(vlrs.size(), 1U);
    EXPECT_EQ(vlrs[0].reserved, 0xAABB);
    EXPECT_EQ(vlrs[0].userId, "laszip encoded");
    EXPECT_EQ(vlrs[0].recordId, 22204);
    EXPECT_EQ(vlrs[0].description, "by laszip of LAStools (221128)");
    EXPECT_EQ(vlrs[0].payload.size(), 34U + 2 * 6);
    // The points begin with the place of the chunk table, which ends the file.
    const auto table = file.at<std::uint64_t>(file.pointsBegin());
    EXPECT_LT(table, file.bytes.size());
    EXPECT_EQ(file.at<std::uint32_t>(table), 0U);
    EXPECT_EQ(file.at<std::uint32_t>(table + 4), 1U);
}

TEST_F(LASwriting, FileWithoutPointsIsAHeaderAndAnEmptyChunkTable) {
    const LASheader header = headerOf(2, 1);
    const auto writer = open("a.laz", header);
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->close(), 343);
    const WrittenLas file = WrittenLas::read(folder / "a.laz");
    EXPECT_EQ(file.at<std::uint64_t>(file.pointsBegin()), 335U);
    EXPECT_EQ(file.at<std::uint64_t>(335), 0U);
}

TEST_F(LASwriting, UpdateWritesCountsExtentAndAttributes) {
    LASheader header = headerOf(4, 6);
    header.point_data_record_length = 32;
    header.add_attribute(LASattribute(2, "before"));
    header.update_extra_bytes_vlr();
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 6, 32));
    writer->write_point(&point);
    LASheader after = headerOf(4, 6);
    after.max_x = 3;
    after.min_z = -4;
    after.extended_number_of_point_records = 17;
    after.extended_number_of_points_by_return[14] = 5;
    after.add_attribute(LASattribute(2, "after"));
    EXPECT_TRUE(writer->update_header(&after, false, true));
    const WrittenLas file = WrittenLas::read(folder / "a.las");
    EXPECT_EQ(file.upper(0), 3);
    EXPECT_EQ(file.lower(2), -4);
    EXPECT_EQ(file.count(), 17U);
    EXPECT_EQ(file.countsByReturn()[14], 5U);
    ASSERT_EQ(file.vlrs().size(), 1U);
    EXPECT_STREQ(file.vlrs()[0].payload.c_str() + 4, "after");
    // Closing corrects the count, silently where the 32-bit one is zero.
    ::testing::internal::CaptureStderr();
    writer->close();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(WrittenLas::read(folder / "a.las").count(), 1U);
}

TEST_F(LASwriting, CloseCorrectsACountThatWasToldWrongAndWarns) {
    LASheader header = headerOf(2, 0);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 0, 20));
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    writer->write_point(&point);
    header.number_of_point_records = 9;
    header.number_of_points_by_return[0] = 8;
    EXPECT_TRUE(writer->update_header(&header));
    ::testing::internal::CaptureStderr();
    writer->close();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "WARNING: written 1 points but expected 9 points\n");
    const WrittenLas file = WrittenLas::read(folder / "a.las");
    EXPECT_EQ(file.count(), 1U);
    EXPECT_EQ(file.countsByReturn()[0], 8U);
}

TEST_F(LASwriting, CloseLeavesTheCountAloneWhenToldSo) {
    LASheader header = headerOf(2, 0);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 0, 20));
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    writer->write_point(&point);
    EXPECT_EQ(writer->close(false), 247);
    EXPECT_EQ(WrittenLas::read(folder / "a.las").count(), 0U);
    EXPECT_EQ(writer->close(), 0);
}

TEST_F(LASwriting, WriterThatIsNotClosedClosesItself) {
    const LASheader header = headerOf(2, 0);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 0, 20));
    auto writer = open("a.laz", header);
    ASSERT_TRUE(writer);
    writer->write_point(&point);
    writer.reset();
    EXPECT_EQ(WrittenLas::read(folder / "a.laz").count(), 1U);
}

TEST_F(LASwriting, CountsOfAnInventoryAreNotSupported) {
    const LASheader header = headerOf(2, 0);
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    EXPECT_FALSE(writer->update_header(&header, true, false));
    EXPECT_EQ(writer->close(), 227);
}

TEST_F(LASwriting, PointsBeyondABlockArriveInOrder) {
    const LASheader header = headerOf(4, 7);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 7, 36));
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    for (int i = 0; i < 40000; ++i) {
        point.X = i;
        ASSERT_TRUE(writer->write_point(&point));
        // In between the header is written, which must not disturb the points.
        if (i % 15000 == 7) {
            EXPECT_TRUE(writer->update_header(&header));
        }
    }
    writer->close();
    const auto records = WrittenLas::read(folder / "a.las").records();
    ASSERT_EQ(records.size(), 40000U);
    for (int i = 0; i < 40000; ++i)
        ASSERT_EQ(records[static_cast<std::size_t>(i)].x, i);
}

TEST_F(LASwriting, OpenWithoutANameSaysSo) {
    const LASheader header;
    LASwriteOpener opener;
    for (const char* const name : {"", static_cast<const char*>(nullptr)}) {
        opener.set_file_name(name);
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(opener.open(&header), nullptr);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ERROR: no laswriter output specified\n");
    }
}

TEST_F(LASwriting, OpenOfAPathThatCannotBeMadeSaysSoInTwoLines) {
    const LASheader header;
    const std::string path = folder / "gone/a.las";
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(open("gone/a.las", header));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ERROR: cannot open file '" + path +
                  "' for write\nERROR: cannot open laswriterlas with file name '" + path + "'\n");
}

TEST_F(LASwriting, OpenRefusesHeadersWhoseSizesCannotBe) {
    LASheader header = headerOf(4, 6);
    header.header_size = 227;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(open("a.las", header));
    EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
    LASheader unknown = headerOf(4, 6);
    unknown.point_data_format = 9;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(open("a.las", unknown));
    EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(LASwriting, ExtraBytesAreUpdatedWhereTheirRecordIs) {
    LASheader header = headerOf(4, 6);
    header.add_attribute(LASattribute(2, "before"));
    header.update_extra_bytes_vlr();
    header.point_data_record_length = 32;
    header.add_vlr("LASF_Spec2", 4, 3, new U8[3]{1, 2, 3});
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 6, 32));
    const auto writer = open("a.las", header);
    ASSERT_TRUE(writer);
    writer->write_point(&point);
    EXPECT_TRUE(writer->update_header(&header, false, true));
    writer->close();
    const auto vlrs = WrittenLas::read(folder / "a.las").vlrs();
    ASSERT_EQ(vlrs.size(), 2U);
    EXPECT_EQ(vlrs[0].payload.substr(4, 6), "before");
    EXPECT_EQ(vlrs[1].payload, "\1\2\3") << "not the last record, but that of the attributes";
}

TEST_F(LASwriting, TrailingRecordsStandBehindThePointsOfTheNewestVersionOnly) {
    for (const std::string name : {"a.las", "a.laz"}) {
        for (const U8 minor : {U8{3}, U8{4}}) {
            LASheader header = headerOf(minor, minor == 4 ? 6 : 1);
            LASvlr record;
            std::string("Somebody").copy(record.user_id, sizeof record.user_id);
            record.record_id = 7;
            record.data.assign(70'000, 'x');
            header.add_trailing_record(record);
            LASpoint point;
            ASSERT_TRUE(point.init(&header, header.point_data_format, header.point_data_record_length));
            const auto writer = open(name, header);
            ASSERT_TRUE(writer);
            writer->write_point(&point);
            const I64 bytes = writer->close();
            const WrittenLas file = WrittenLas::read(folder / name);
            EXPECT_EQ(bytes, static_cast<I64>(file.bytes.size()));
            const auto evlrs = file.evlrs();
            ASSERT_EQ(evlrs.size(), minor == 4 ? 1U : 0U) << name;
            if (minor == 4) {
                EXPECT_EQ(evlrs[0].userId, "Somebody");
                EXPECT_EQ(evlrs[0].recordId, 7);
                EXPECT_EQ(evlrs[0].payload, std::string(70'000, 'x'));
            }
        }
    }
}

TEST_F(LASwriting, OutputErrorIsKeptAndTurnsTheSignOfTheSize) {
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    const LASheader header = headerOf(4, 6);
    LASpoint point;
    ASSERT_TRUE(point.init(&header, 6, 30));
    for (const char* const name : {"a.las", "a.laz"}) {
        fs::create_symlink("/dev/full", folder / name);
        const auto writer = open(name, header);
        ASSERT_TRUE(writer);
        bool accepted = true;
        for (int i = 0; i < 200'000; ++i) {
            // Numbers that do not compress, so that blocks leave before the end.
            point.X = static_cast<I32>(static_cast<U32>(i) * 2654435761U);
            point.gps_time = static_cast<F64>(point.X);
            accepted = writer->write_point(&point);
        }
        EXPECT_FALSE(accepted);
        EXPECT_FALSE(writer->update_header(&header));
        EXPECT_LT(writer->close(), -375);
    }
}

struct ChunksSideBySide : LASwriting, ::testing::WithParamInterface<int> {};

/// Calls the pieces from the last to the first, in as many threads.
void runBackwards(std::size_t pieces, const std::function<void(std::size_t)>& piece) {
    std::vector<std::jthread> threads;
    for (std::size_t i = pieces; i-- > 0;)
        threads.emplace_back(piece, i);
}

TEST_P(ChunksSideBySide, GiveTheBytesOfOneAfterTheOther) {
    const auto format = static_cast<U8>(GetParam());
    LASheader header = headerOf(format >= 6 ? 4 : 2, format);
    header.point_data_record_length = static_cast<U16>(header.point_data_record_length + 4);
    std::mt19937 engine(static_cast<unsigned>(format));
    std::vector<std::uint32_t> random(300'000);
    std::generate(random.begin(), random.end(), std::ref(engine));
    const auto set = [&](LASpoint& point, std::size_t number) {
        const int i = static_cast<int>(number);
        fill(point, i);
        point.X = 3 * i + static_cast<I32>(random[number] % 20);
        point.gps_time = i * 0.25 + static_cast<double>(random[number] % 3);
        // Chunks of very different sizes.
        point.intensity = static_cast<U16>(i / 50'000 % 2 == 0 ? 7 : random[number] >> 8);
        point.classification = static_cast<U8>(i % 3) & 3;
        point.extended_classification = static_cast<U8>(i % 3);
        point.set_attribute(1, static_cast<U16>(i));
    };
    // One by one with `together` 0.
    const auto write = [&](const std::string& name, std::size_t points, std::size_t workers,
                           std::size_t together) {
        const auto writer = open(name, header);
        if (workers != 0)
            writer->work_side_by_side(workers, runBackwards);
        const auto prepare = [&](LASpoint& point) {
            EXPECT_TRUE(point.init(&header, format, header.point_data_record_length));
        };
        LASpoint point;
        prepare(point);
        for (std::size_t begin = 0; together == 0 && begin < points; ++begin) {
            set(point, begin);
            EXPECT_TRUE(writer->write_point(&point));
        }
        for (std::size_t begin = 0; together != 0 && begin < points; begin += together)
            EXPECT_TRUE(writer->write_points(
                std::min(together, points - begin),
                [&](std::size_t first, std::size_t last, const LASwriter::PutPoint& put) {
                    LASpoint own;
                    prepare(own);
                    for (std::size_t i = begin + first; i < begin + last; ++i) {
                        set(own, i);
                        put(own);
                    }
                }));
        EXPECT_EQ(writer->p_count, static_cast<I64>(points));
        const I64 bytes = writer->close();
        std::string content = Support::readBytes(folder / name);
        EXPECT_EQ(bytes, static_cast<I64>(content.size()));
        return content;
    };
    for (const std::size_t points : {0U, 1U, 49'999U, 50'000U, 50'001U, 130'000U}) {
        const std::string packed = write("a.laz", points, 0, 0);
        const std::string plain = write("a.las", points, 0, 0);
        for (const auto& [workers, together] :
             {std::pair{2U, 0U}, {2U, 65'536U}, {3U, 50'000U}, {3U, 7'001U}, {16U, 1'000'000U}}) {
            EXPECT_TRUE(write("b.laz", points, workers, together) == packed)
                << points << " points, " << workers << ", " << together;
            EXPECT_TRUE(write("b.las", points, workers, together) == plain)
                << points << " points, " << workers << ", " << together;
        }
    }
}

TEST_F(LASwriting, MemoryThatRunsOutWhilePointsAreMadeIsAnError) {
    for (const std::string name : {"a.las", "a.laz"}) {
        const LASheader header = headerOf(4, 6);
        const auto writer = open(name, header);
        writer->work_side_by_side(2, runBackwards);
        const auto fail = [](std::size_t, std::size_t, const LASwriter::PutPoint&) {
            throw std::bad_alloc();
        };
        EXPECT_FALSE(writer->write_points(200'000, fail));
        EXPECT_FALSE(writer->write_points(1, fail));
        EXPECT_LT(writer->close(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, ChunksSideBySide, ::testing::Values(0, 1, 2, 3, 6, 7, 8));

} // namespace
