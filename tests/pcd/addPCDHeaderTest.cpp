// SPDX-License-Identifier: Apache-2.0
#include "pcd/addPCDHeader.hpp"

#include "support/TemporaryFolder.hpp"
#include "support/writesSoFar.hpp"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using ExportLib::pcdHeader;
using ExportLib::PCDLayout;

TEST(PCDHeader, PointCountZeroIsWrittenInFull) {
    EXPECT_EQ(pcdHeader(PCDLayout::Plain, 0, {0, 0, 0}), "# .PCD v.7 - Point Cloud Data file format\n"
                                                         "# exported by Tidewatch\n"
                                                         "# shifted by 0 0 0 \n"
                                                         "VERSION .7\n"
                                                         "FIELDS x y z\n"
                                                         "SIZE 4 4 4\n"
                                                         "TYPE F F F\n"
                                                         "COUNT 1 1 1\n"
                                                         "WIDTH 0\n"
                                                         "HEIGHT 1\n"
                                                         "VIEWPOINT 0 0 0 1 0 0 0\n"
                                                         "POINTS 0\n"
                                                         "DATA ascii\n");
}

TEST(PCDHeader, IntensityLayoutSaysItsTitleTwice) {
    EXPECT_EQ(pcdHeader(PCDLayout::Intensity, 18446744073709551615U, {1024, -7, 0}),
              "# .PCD v.7 - Point Cloud Data file format\n"
              "# exported by Tidewatch\n"
              "# shifted by 1024 -7 0 \n"
              "VERSION .7\n"
              "# .PCD v.7 - Point Cloud Data file format\n"
              "FIELDS x y z intensity rgb\n"
              "SIZE 4 4 4 4 4\n"
              "TYPE F F F F F\n"
              "COUNT 1 1 1 1 1\n"
              "WIDTH 18446744073709551615\n"
              "HEIGHT 1\n"
              "VIEWPOINT 1024 -7 0 1 0 0 0\n"
              "POINTS 18446744073709551615\n"
              "DATA ascii\n");
}

TEST(PCDHeader, ShiftOfTrailingBlankInTheCommentAndNoneMoreInViewpoint) {
    const std::string header = pcdHeader(PCDLayout::Plain, 1, {1024, -7, 0});
    EXPECT_NE(header.find("\n# shifted by 1024 -7 0 \n"), std::string::npos);
    EXPECT_NE(header.find("\nVIEWPOINT 1024 -7 0 1 0 0 0\n"), std::string::npos);
}

TEST(PCDHeader, ShiftOfMoreThanEightDigitsIsWrittenInExponentForm) {
    const std::string header = pcdHeader(PCDLayout::Plain, 1, {123456789, 12345678, -123456789});
    EXPECT_NE(header.find("# shifted by 1.2345679e+08 12345678 -1.2345679e+08 \n"), std::string::npos);
    EXPECT_NE(header.find("VIEWPOINT 1.2345679e+08 12345678 -1.2345679e+08 1 0 0 0\n"), std::string::npos);
}

struct HeaderFile : ::testing::Test {
    template <class Write>
    std::string written(Write&& write) {
        std::ofstream out(folder / "header.pcd");
        out.precision(3);
        write(out);
        EXPECT_EQ(out.precision(), 8);
        // Not closed yet: the text must have left the stream already.
        return Support::readBytes(folder / "header.pcd");
    }
    Support::TemporaryFolder folder;
};

TEST_F(HeaderFile, CommonLinesAreWrittenAndFlushedAndPrecisionIsLeftAtEight) {
    EXPECT_EQ(written([](std::ofstream& out) {
                  ExportLib::addPCDHeaderCommon(out, {0.5, 2, 3});
              }),
              "# .PCD v.7 - Point Cloud Data file format\n# exported by Tidewatch\n# shifted by 0.5 2 3 \n"
              "VERSION .7\n");
}

TEST_F(HeaderFile, BothLayoutsWriteTheirText) {
    EXPECT_EQ(written([](std::ofstream& out) {
                  ExportLib::addPCDHeaderPlain(out, 5, {1, 2, 3});
              }),
              pcdHeader(PCDLayout::Plain, 5, {1, 2, 3}));
    EXPECT_EQ(written([](std::ofstream& out) {
                  ExportLib::addPCDHeaderIntensity(out, 5, {1, 2, 3});
              }),
              pcdHeader(PCDLayout::Intensity, 5, {1, 2, 3}));
}

TEST_F(HeaderFile, EachLineIsFlushedUnlessToldOtherwise) {
    if (const char* const reason = Support::whyWritesAreNotCounted())
        GTEST_SKIP() << reason;
    const std::string text = pcdHeader(PCDLayout::Intensity, 5, {1, 2, 3});
    for (const bool flushLines : {true, false}) {
        std::ofstream out(folder / "header.pcd");
        const auto before = *Support::writesSoFar();
        ExportLib::addPCDHeaderIntensity(out, 5, {1, 2, 3}, flushLines);
        out.close();
        const auto lines = static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
        EXPECT_EQ(*Support::writesSoFar() - before, flushLines ? lines : 1U);
        EXPECT_EQ(Support::readBytes(folder / "header.pcd"), text);
    }
}

TEST_F(HeaderFile, FailedStreamIsLeftToTheCaller) {
    std::ofstream out(folder / "no-such-folder/header.pcd");
    ExportLib::addPCDHeaderPlain(out, 5, {1, 2, 3});
    EXPECT_TRUE(out.fail());
}

} // namespace
