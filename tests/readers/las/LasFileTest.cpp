// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasFile.hpp"

#include "anchor/Error.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/MemoryFile.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/systemReason.hpp"

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using Support::LasFileBuilder;
using Support::patch;
using ::testing::AllOf;
using ::testing::HasSubstr;
using Tidewatch::Las::ExtraAttribute;
using Tidewatch::Las::LasFile;

class LasFileTest : public ::testing::Test {
protected:
    static LasFile open(const std::string& bytes) { return LasFile(Support::MemoryFile(bytes).path()); }

    /// The message of the refusal; a failed test where the file is taken.
    static std::string refusal(const std::string& bytes) {
        try {
            static_cast<void>(open(bytes));
        } catch (const Anchor::FormatError& error) {
            EXPECT_THAT(error.what(), ::testing::StartsWith("/proc/self/fd/"));
            return error.what();
        }
        ADD_FAILURE() << "the file is taken";
        return {};
    }

    static LasFileBuilder small(unsigned minor = 2, unsigned format = 0) {
        LasFileBuilder builder;
        builder.minor = minor;
        builder.format = format;
        builder.addVariedPoints(5);
        return builder;
    }
};

TEST_F(LasFileTest, EveryVersionAndFormatIsRead) {
    for (unsigned minor = 0; minor <= 4; ++minor) {
        for (unsigned format = 0; format <= 10; ++format) {
            LasFileBuilder builder = small(minor, format);
            // The 64-bit count, which formats from 6 on have alone, came with 1.4.
            if (minor < 4 && format >= 6)
                continue;
            const LasFile file = open(builder.build());
            EXPECT_EQ(file.header().versionMinor, minor);
            EXPECT_EQ(file.header().pointFormat, format);
            EXPECT_EQ(file.header().pointCount, 5U);
            EXPECT_EQ(file.header().recordLength, builder.recordLength());
            EXPECT_FALSE(file.compression());
        }
    }
}

TEST_F(LasFileTest, ScaleOffsetAndBoundsAreReadPerAxis) {
    LasFileBuilder builder = small();
    builder.scale = {0.01, 0.001, -2};
    builder.offset = {-5, 1e6, 0.5};
    builder.points.resize(2);
    builder.points[0].y = 200007;
    builder.points[1].y = 300000;
    const LasFile file = open(builder.build());
    EXPECT_EQ(file.header().scale, builder.scale);
    EXPECT_EQ(file.header().offset, builder.offset);
    EXPECT_EQ(file.header().coordinate(1, -3), -3 * 0.001 + 1e6);
    EXPECT_EQ(file.header().minimum[1], 200007 * 0.001 + 1e6);
    EXPECT_EQ(file.header().maximum[1], 300000 * 0.001 + 1e6);
}

TEST_F(LasFileTest, HeaderLongerThanItsVersionNeedsIsRead) {
    for (const unsigned minor : {0U, 2U, 3U, 4U}) {
        LasFileBuilder builder = small(minor);
        builder.headerTail = std::string(321, 'x');
        builder.describe("");
        const LasFile file = open(builder.build());
        EXPECT_EQ(file.header().headerSize, LasFileBuilder::headerSize(minor) + 321);
        EXPECT_EQ(file.header().pointCount, 5U);
    }
}

TEST_F(LasFileTest, GlobalEncodingOfOldVersionsIsReservedAndIgnored) {
    std::string bytes = small(1).build();
    patch(bytes, 6, std::uint16_t{0xFFFF});
    EXPECT_EQ(open(bytes).header().globalEncoding, 0);
    bytes = small(2).build();
    patch(bytes, 6, std::uint16_t{17});
    EXPECT_EQ(open(bytes).header().globalEncoding, 17);
}

TEST_F(LasFileTest, StartSignatureThatTheOffsetOfLas10RefersToIsSkipped) {
    LasFileBuilder builder = small(0);
    builder.startSignature = "\xDD\xCC";
    const std::string bytes = builder.build();
    EXPECT_EQ(open(bytes).header().pointOffset, 229U);
    // Where the two bytes are no surplus they belong to the first point.
    EXPECT_EQ(open(bytes.substr(0, bytes.size() - 2)).header().pointOffset, 227U);
    builder.minor = 1;
    EXPECT_EQ(open(builder.build()).header().pointOffset, 227U);
}

TEST_F(LasFileTest, FileWithoutPointsIsRead) {
    for (unsigned minor = 0; minor <= 4; ++minor) {
        LasFileBuilder builder;
        builder.minor = minor;
        EXPECT_EQ(open(builder.build()).header().pointCount, 0U);
    }
}

TEST_F(LasFileTest, CountsOf14FollowTheRuleForLegacyFields) {
    std::string bytes = small(4, 1).build();
    // Only the 64-bit field.
    patch(bytes, 107, std::uint32_t{0});
    EXPECT_EQ(open(bytes).header().pointCount, 5U);
    // Only the legacy field.
    patch(bytes, 107, std::uint32_t{4});
    patch(bytes, 247, std::uint64_t{0});
    EXPECT_EQ(open(bytes).header().pointCount, 4U);
    // Two that disagree.
    patch(bytes, 247, std::uint64_t{5});
    EXPECT_THAT(refusal(bytes), AllOf(HasSubstr("header"), HasSubstr("5"), HasSubstr("4")));
}

TEST_F(LasFileTest, WhatTheHeaderStatesIsReadAsItIs) {
    std::string bytes = small(4, 1).build();
    bytes.replace(58, 6, "Writer");
    patch(bytes, 90, std::uint16_t{400});
    patch(bytes, 92, std::uint16_t{2024});
    patch(bytes, 255 + 8 * 14, std::uint64_t{7});
    const LasFile file = open(bytes);
    EXPECT_EQ(file.header().generatingSoftware, "Writer");
    EXPECT_EQ(file.header().creationDay, 400);
    EXPECT_EQ(file.header().creationYear, 2024);
    EXPECT_EQ(file.header().legacyPointCount, 5U);
    EXPECT_EQ(file.header().longPointCount, 5U);
    ASSERT_EQ(file.header().countsByReturn.size(), 15U);
    EXPECT_EQ(file.header().countsByReturn[14], 7U);
    std::string old = small(2, 1).build();
    patch(old, 111 + 4 * 4, std::uint32_t{3});
    EXPECT_THAT(open(old).header().countsByReturn, ::testing::ElementsAre(0, 0, 0, 0, 3));
}

TEST_F(LasFileTest, RecordsThatTellNothingOfPointsAreListedInOrder) {
    LasFileBuilder builder = small(4, 6);
    builder.extraByteCount = 1;
    for (Support::LasRecord& point : builder.points)
        point.extraBytes = "x";
    builder.vlrs.push_back({"LASF_Projection", 34735, std::string(16, '\1')});
    builder.describe(LasFileBuilder::attribute(1, "a"));
    builder.vlrs.push_back({"LASF_Spec", 7, "superseded"});
    builder.vlrs.push_back({"LASF_Spec", 100, "waveform"});
    builder.vlrs.push_back({"LASF_Spec", 3, "text"});
    builder.vlrs.push_back({"copc", 1, "index"});
    builder.vlrs.push_back({"LAStools", 30, "index"});
    builder.vlrs.push_back({"LAStools", 10, "tile"});
    builder.evlrs.push_back({"LASF_Spec", 65535, "waveforms"});
    builder.evlrs.push_back({"Somebody", 1, "far"});
    const std::string bytes = builder.build();
    const LasFile file = open(bytes);
    std::vector<std::string> found;
    for (const LasFile::UserRecord& record : file.userRecords())
        found.push_back(record.userId + "/" + std::to_string(record.recordId) + " " +
                        bytes.substr(record.offset, record.length));
    EXPECT_THAT(found, ::testing::ElementsAre("LASF_Projection/34735 " + std::string(16, '\1'),
                                              "LASF_Spec/3 text", "LAStools/10 tile", "Somebody/1 far"));
    EXPECT_EQ(file.moreUserRecords(), 0U);
    std::vector<std::string> others;
    for (const LasFile::UserRecord& record : file.boundRecords())
        others.push_back(record.userId + "/" + std::to_string(record.recordId));
    EXPECT_THAT(others, ::testing::ElementsAre("LASF_Spec/4", "LASF_Spec/7", "LASF_Spec/100", "copc/1",
                                               "LAStools/30", "LASF_Spec/65535"));
}

TEST_F(LasFileTest, RecordsBeyondTheLimitAreCounted) {
    LasFileBuilder builder = small();
    for (std::size_t i = 0; i < LasFile::mostUserRecords + 2; ++i)
        builder.vlrs.push_back({"Somebody", 1, ""});
    const LasFile file = open(builder.build());
    EXPECT_EQ(file.userRecords().size(), LasFile::mostUserRecords);
    EXPECT_EQ(file.moreUserRecords(), 2U);
}

TEST_F(LasFileTest, ExtraBytesAreDescribedInRecordOrder) {
    LasFileBuilder builder;
    builder.minor = 4;
    builder.format = 6;
    builder.extraByteCount = 21;
    builder.describe(
        LasFileBuilder::attribute(3, "Amplitude", 24, 0.5, -1) + LasFileBuilder::attribute(0, "blob", 5) +
        LasFileBuilder::attribute(23, "triple of u16", 8, 0) + LasFileBuilder::attribute(0, "nothing", 0) +
        LasFileBuilder::attribute(9, std::string(32, 'n'), 0, std::nan(""), 7));
    builder.addVariedPoints(2);
    const auto attributes = open(builder.build()).extraAttributes();
    ASSERT_EQ(attributes.size(), 6U);
    EXPECT_EQ(attributes[0].name, "Amplitude");
    EXPECT_EQ(attributes[0].type, ExtraAttribute::Type::UInt16);
    EXPECT_EQ(attributes[0].offset, 0);
    EXPECT_EQ(attributes[0].scale, 0.5);
    EXPECT_EQ(attributes[0].shift, -1.0);
    EXPECT_FALSE(attributes[1].isScalar());
    EXPECT_EQ(attributes[1].offset, 2);
    EXPECT_EQ(attributes[1].size, 5);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(attributes[2 + i].component, i + 1)
            << "the deprecated pairs and triples are several numbers";
        EXPECT_EQ(attributes[2 + i].entry, 2U);
        EXPECT_EQ(attributes[2 + i].size, 2);
        EXPECT_EQ(attributes[2 + i].offset, 7 + 2 * i);
        EXPECT_FALSE(attributes[2 + i].isScalar()) << "a scale of 0 tells nothing";
    }
    EXPECT_EQ(attributes[5].name, std::string(32, 'n')) << "a name may fill its field without a terminator";
    EXPECT_EQ(attributes[5].offset, 13);
    EXPECT_EQ(attributes[5].scale, std::nullopt) << "without its option bit the value does not count";
}

TEST_F(LasFileTest, SizesOfAllDescribedTypesAddUp) {
    LasFileBuilder builder = small();
    builder.points.clear();
    builder.extraByteCount = 42 + 84 + 126;
    std::string entries;
    for (unsigned type = 1; type <= 30; ++type)
        entries += LasFileBuilder::attribute(type, "a");
    builder.describe(entries);
    const auto attributes = open(builder.build()).extraAttributes();
    ASSERT_EQ(attributes.size(), 60U);
    EXPECT_EQ(attributes[9].offset + attributes[9].size, 42);
    EXPECT_EQ(attributes[59].offset + attributes[59].size, 252);
}

TEST_F(LasFileTest, DescriptionsContinueInASecondRecord) {
    LasFileBuilder builder = small();
    builder.points.clear();
    builder.extraByteCount = 3;
    builder.describe(LasFileBuilder::attribute(3, "a"));
    builder.describe(LasFileBuilder::attribute(1, "b"));
    const auto attributes = open(builder.build()).extraAttributes();
    ASSERT_EQ(attributes.size(), 2U);
    EXPECT_EQ(attributes[1].offset, 2);
}

// What must be refused, one by one.

TEST_F(LasFileTest, MissingFileIsAFileErrorWithTheReason) {
    try {
        const LasFile file("/nonexistent/a.las");
        FAIL() << "it opens";
    } catch (const Anchor::FileError& error) {
        EXPECT_EQ(error.what(), "/nonexistent/a.las: cannot open: " + Support::systemReason(ENOENT));
    }
}

TEST_F(LasFileTest, FolderAndPipeAreNoRegularFiles) {
    const Support::TemporaryFolder folder;
    EXPECT_THROW(LasFile(folder.path().string()), Anchor::FileError);
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THROW(LasFile{pipe}, Anchor::FileError);
}

TEST_F(LasFileTest, FileThatChangedIsNotOpenedAgain) {
    const Support::TemporaryFolder folder;
    const std::string path = folder / "a.las";
    const std::string bytes = small().build();
    Support::writeBytes(path, bytes);
    const LasFile file(path);
    EXPECT_NO_THROW(static_cast<void>(file.open()));
    Support::writeBytes(path, bytes + "x");
    EXPECT_THROW(static_cast<void>(file.open()), Anchor::FileError);
    std::filesystem::remove(path);
    EXPECT_THROW(static_cast<void>(file.open()), Anchor::FileError);
}

TEST_F(LasFileTest, EmptyAndShortFilesAreRefused) {
    EXPECT_THAT(refusal(""), HasSubstr("header: the file has 0 bytes"));
    const std::string bytes = small().build();
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(refusal(bytes.substr(0, size)).empty()) << size;
}

TEST_F(LasFileTest, WrongSignatureIsRefused) {
    std::string bytes = small().build();
    bytes[3] = 'X';
    EXPECT_THAT(refusal(bytes), HasSubstr("not a LAS file"));
}

TEST_F(LasFileTest, UnknownVersionsAreRefused) {
    std::string bytes = small(4, 6).build();
    bytes[25] = 5;
    EXPECT_THAT(refusal(bytes), HasSubstr("LAS 1.5 is not known"));
    bytes[24] = 2;
    bytes[25] = 0;
    EXPECT_THAT(refusal(bytes), HasSubstr("LAS 2.0 is not known"));
}

TEST_F(LasFileTest, HeaderSizeBelowTheVersionsIsRefused) {
    std::string bytes = small(4, 6).build();
    patch(bytes, 94, std::uint16_t{227});
    EXPECT_THAT(refusal(bytes), HasSubstr("has 375 bytes; stated are 227"));
    bytes = small(3).build();
    patch(bytes, 94, std::uint16_t{234});
    EXPECT_THAT(refusal(bytes), HasSubstr("has 235 bytes; stated are 234"));
}

TEST_F(LasFileTest, UnknownPointFormatsAreRefused) {
    std::string bytes = small().build();
    bytes[104] = 11;
    EXPECT_THAT(refusal(bytes), HasSubstr("point format 11 is not known"));
    bytes[104] = 63;
    EXPECT_THAT(refusal(bytes), HasSubstr("point format 63 is not known"));
    bytes[104] = 0x40;
    EXPECT_THAT(refusal(bytes), HasSubstr("experimental"));
}

TEST_F(LasFileTest, CompressedPointsWithoutACompressionRecordAreRefused) {
    std::string bytes = small().build();
    bytes[104] = static_cast<char>(0x80);
    EXPECT_THAT(refusal(bytes), HasSubstr("compression record"));
}

TEST_F(LasFileTest, RecordLengthBelowTheFormatsIsRefused) {
    for (unsigned format = 0; format <= 10; ++format) {
        LasFileBuilder builder = small(4, format);
        std::string bytes = builder.build();
        patch(bytes, 105, static_cast<std::uint16_t>(builder.recordLength() - 1));
        EXPECT_THAT(refusal(bytes), HasSubstr("a point of format")) << format;
        patch(bytes, 105, std::uint16_t{0});
        EXPECT_THAT(refusal(bytes), HasSubstr("stated are 0")) << format;
    }
}

TEST_F(LasFileTest, PointOffsetOutsideTheFileIsRefused) {
    std::string bytes = small().build();
    patch(bytes, 96, static_cast<std::uint32_t>(bytes.size() + 1));
    EXPECT_THAT(refusal(bytes), HasSubstr("the point data begins at"));
    patch(bytes, 96, std::uint32_t{226});
    EXPECT_THAT(refusal(bytes), HasSubstr("the point data begins at 226"));
    patch(bytes, 96, std::uint32_t{0xFFFFFFFF});
    EXPECT_THAT(refusal(bytes), HasSubstr("the point data begins at 4294967295"));
}

TEST_F(LasFileTest, CountBeyondTheFileIsRefused) {
    std::string bytes = small().build();
    for (const std::uint32_t count : {6U, 0x10000000U, 0xFFFFFFFFU}) {
        patch(bytes, 107, count);
        EXPECT_THAT(refusal(bytes),
                    HasSubstr(std::to_string(count) + " points of 20 bytes are stated, but the "
                                                      "file has room for 5"));
    }
    bytes = small(4, 6).build();
    patch(bytes, 247, std::numeric_limits<std::uint64_t>::max());
    EXPECT_THAT(refusal(bytes), HasSubstr("room for 5"));
}

TEST_F(LasFileTest, PointsThatRunIntoExtendedRecordsAreRefused) {
    LasFileBuilder builder = small(4, 6);
    builder.evlrs.push_back({"other", 1, std::string(100, 'x')});
    std::string bytes = builder.build();
    patch(bytes, 247, std::uint64_t{6});
    EXPECT_THAT(refusal(bytes), HasSubstr("room for 5"));
}

TEST_F(LasFileTest, ScaleThatIsZeroOrNoNumberIsRefused) {
    const double inf = std::numeric_limits<double>::infinity();
    for (const double scale : {1e300, -1e300}) {
        std::string large = small().build();
        patch(large, 131, scale);
        EXPECT_THAT(refusal(large), HasSubstr("exceed the range of numbers"));
    }
    for (const double scale : {0.0, -0.0, std::nan(""), inf, -inf}) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            std::string bytes = small().build();
            patch(bytes, 131 + 8 * axis, scale);
            EXPECT_THAT(refusal(bytes), HasSubstr(std::string("the ") + "xyz"[axis] + " scale factor is"));
        }
    }
}

TEST_F(LasFileTest, OffsetThatIsNoNumberIsRefused) {
    for (const double offset : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            std::string bytes = small().build();
            patch(bytes, 155 + 8 * axis, offset);
            EXPECT_THAT(refusal(bytes), HasSubstr(std::string("the ") + "xyz"[axis] + " offset is"));
        }
    }
}

TEST_F(LasFileTest, BoundsThatAreNoNumbersDoNotMatter) {
    std::string bytes = small().build();
    patch(bytes, 179, std::nan(""));
    EXPECT_NO_THROW(static_cast<void>(open(bytes)));
}

TEST_F(LasFileTest, RecordsThatRunIntoThePointsAreRefused) {
    LasFileBuilder builder = small();
    builder.vlrs.push_back({"other", 1, "12345"});
    std::string bytes = builder.build();
    patch(bytes, 227 + 20, std::uint16_t{6});
    EXPECT_THAT(refusal(bytes), HasSubstr("variable length record 0: its 6 bytes"));
    bytes = builder.build();
    patch(bytes, 100, std::uint32_t{2});
    EXPECT_THAT(refusal(bytes), HasSubstr("variable length record 1: it begins at"));
    patch(bytes, 100, std::uint32_t{0xFFFFFFFF});
    EXPECT_THAT(refusal(bytes), HasSubstr("variable length record 1: it begins at"));
}

TEST_F(LasFileTest, ExtendedRecordsOutsideTheFileAreRefused) {
    LasFileBuilder builder = small(4, 6);
    builder.evlrs.push_back({"other", 1, "12345"});
    const std::string good = builder.build();
    const auto begin = Support::number<std::uint64_t>(good, 235);

    std::string bytes = good;
    for (const std::uint64_t length : {std::uint64_t{6}, std::numeric_limits<std::uint64_t>::max()}) {
        patch(bytes, begin + 20, length);
        EXPECT_THAT(refusal(bytes), HasSubstr("extended variable length record 0: its"));
    }
    bytes = good;
    patch(bytes, 243, std::uint32_t{2});
    EXPECT_THAT(refusal(bytes), HasSubstr("extended variable length record 1: it begins at"));
    bytes = good;
    for (const std::uint64_t place :
         {std::uint64_t{0}, std::uint64_t{good.size() + 1}, std::numeric_limits<std::uint64_t>::max() - 3}) {
        patch(bytes, 235, place);
        EXPECT_THAT(refusal(bytes), HasSubstr("the extended variable length records begin at"));
    }
}

TEST_F(LasFileTest, DescriptionsBeyondTheExtraBytesAreRefused) {
    LasFileBuilder builder = small();
    builder.points.clear();
    builder.extraByteCount = 3;
    builder.describe(LasFileBuilder::attribute(5, "long"));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("entry 0 (\"long\") ends at byte 4, but a point has 3"));
    builder.vlrs.clear();
    builder.describe(LasFileBuilder::attribute(3, "a") + LasFileBuilder::attribute(3, "b"));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("entry 1 (\"b\") ends at byte 4"));
    builder.vlrs.clear();
    builder.describe(LasFileBuilder::attribute(0, "blob", 255));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("ends at byte 255"));
}

TEST_F(LasFileTest, DescriptionsThatAreDamagedAreRefused) {
    LasFileBuilder builder = small();
    builder.points.clear();
    builder.extraByteCount = 8;
    builder.describe(LasFileBuilder::attribute(31, "a\x1b[2J"));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("(\"a\\x1b[2J\") has the data type 31"));
    builder.vlrs.clear();
    builder.describe(LasFileBuilder::attribute(3, "a").substr(0, 191));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("191 bytes"));
    for (const double scale : {0.0, std::nan("")}) {
        builder.vlrs.clear();
        builder.describe(LasFileBuilder::attribute(3, "a", 8, scale));
        EXPECT_THAT(refusal(builder.build()), HasSubstr("has the scale"));
    }
    builder.vlrs.clear();
    builder.describe(LasFileBuilder::attribute(3, "a", 16, 1, std::numeric_limits<double>::infinity()));
    EXPECT_THAT(refusal(builder.build()), HasSubstr("and the offset inf"));
}

} // namespace
