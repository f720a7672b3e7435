// SPDX-License-Identifier: Apache-2.0
#include "convlib/LineWriter.hpp"

#include "support/TemporaryFolder.hpp"
#include "support/ThreadWorkers.hpp"
#include "support/writesSoFar.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ConvLib::LineWriter;

/// Sets a global C++ locale with decimal commas and grouped digits for as long as it lives.
class CommaLocale {
public:
    CommaLocale() : before_(std::locale::global(std::locale(std::locale::classic(), new Punctuation))) {}
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    ~CommaLocale() { std::locale::global(before_); }

private:
    class Punctuation : public std::numpunct<char> {
    protected:
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::locale before_;
};

void writeSomeOfEverything(LineWriter& lines, int count) {
    for (int i = 0; i < count; ++i) {
        lines.text("line ");
        lines.integer(i * 1000000LL);
        lines.character(' ');
        lines.general(1234.5 + i, 8);
        lines.character(' ');
        lines.generalRow(std::array{-0.5, 1e-10, 1e10}, 6);
        lines.character(' ');
        lines.fixed(1234567.0625, 3);
        lines.character(' ');
        lines.fixed(0.5F, 1);
        lines.character(' ');
        lines.fixed(-1.5L, 2);
        lines.endLine();
    }
}

TEST(LineWriter, EveryKindOfPieceIsWrittenInOrder) {
    Support::TemporaryFolder folder;
    {
        std::ofstream stream(folder / "out");
        LineWriter lines(stream, false);
        writeSomeOfEverything(lines, 2);
    }
    EXPECT_EQ(Support::readBytes(folder / "out"),
              "line 0 1234.5 -0.5 1e-10 1e+10 1234567.062 0.5 -1.50\n"
              "line 1000000 1235.5 -0.5 1e-10 1e+10 1234567.062 0.5 -1.50\n");
}

TEST(LineWriter, FlushingPutsEveryLineIntoTheFileAtOnce) {
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "out");
    stream << "header\n";
    LineWriter lines(stream, true);
    std::string expected = "header\n";
    for (int i = 0; i < 20; ++i) {
        lines.integer(i);
        lines.character(' ');
        lines.text(std::string(static_cast<std::size_t>(i) * 1000, 'x'));
        lines.endLine();
        expected += std::to_string(i);
        expected += ' ';
        expected += std::string(static_cast<std::size_t>(i) * 1000, 'x');
        expected += '\n';
        ASSERT_EQ(Support::readBytes(folder / "out"), expected);
    }
}

TEST(LineWriter, NotFlushingGivesTheSameBytesInTheEnd) {
    Support::TemporaryFolder folder;
    for (const bool flush : {true, false}) {
        std::ofstream stream(folder / (flush ? "flushed" : "blocks"));
        LineWriter lines(stream, flush);
        writeSomeOfEverything(lines, 20000);
        lines.finish();
        EXPECT_FALSE(lines.failed());
        EXPECT_EQ(lines.lines(), 20000U);
    }
    const std::string flushed = Support::readBytes(folder / "flushed");
    EXPECT_GT(flushed.size(), 4 * LineWriter::blockSize);
    EXPECT_TRUE(flushed == Support::readBytes(folder / "blocks"));
}

TEST(LineWriter, NotFlushingWritesNothingBeforeABlockIsFull) {
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "out");
    LineWriter lines(stream, false);
    lines.text("a line");
    lines.endLine();
    EXPECT_EQ(Support::readBytes(folder / "out"), "");
    lines.finish();
    EXPECT_EQ(Support::readBytes(folder / "out"), "a line\n");
    lines.text("after it");
    lines.finish();
    EXPECT_EQ(Support::readBytes(folder / "out"), "a line\nafter it");
}

TEST(LineWriter, FlushingTakesOneWriteForEachLine) {
    if (const char* const reason = Support::whyWritesAreNotCounted())
        GTEST_SKIP() << reason;
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "out");
    LineWriter lines(stream, true);
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{50}, std::size_t{1023}, std::size_t{1024}, std::size_t{5000},
          std::size_t{8191}, std::size_t{9000}, std::size_t{200000}, LineWriter::blockSize - 1}) {
        const std::string line(size, 'x');
        const auto before = *Support::writesSoFar();
        for (int i = 0; i < 5; ++i) {
            lines.text(line);
            lines.endLine();
        }
        EXPECT_EQ(*Support::writesSoFar() - before, 5U) << "lines of " << size << " bytes";
    }
}

TEST(LineWriter, CountsBytesHandedOverAndLinesEnded) {
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "out");
    LineWriter lines(stream, false);
    EXPECT_EQ(lines.bytes(), 0U);
    EXPECT_EQ(lines.lines(), 0U);
    lines.text("12345");
    lines.endLine();
    lines.text("no end");
    EXPECT_EQ(lines.bytes(), 0U);
    EXPECT_EQ(lines.lines(), 1U);
    lines.finish();
    EXPECT_EQ(lines.bytes(), 12U);
    EXPECT_EQ(lines.lines(), 1U);
}

TEST(LineWriter, FullDeviceIsReportedAndWritingGoesOn) {
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    for (const bool flush : {true, false}) {
        std::ofstream stream("/dev/full");
        LineWriter lines(stream, flush);
        EXPECT_FALSE(lines.failed());
        writeSomeOfEverything(lines, 10000);
        lines.finish();
        EXPECT_TRUE(lines.failed());
        EXPECT_EQ(lines.lines(), 10000U);
        EXPECT_GT(lines.bytes(), 10000U);
    }
}

TEST(LineWriter, StreamThatCouldNotBeOpenedIsReportedAndWritingGoesOn) {
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "missing/out");
    LineWriter lines(stream, true);
    EXPECT_TRUE(lines.failed());
    writeSomeOfEverything(lines, 100);
    lines.finish();
    EXPECT_TRUE(lines.failed());
}

TEST(LineWriter, StreamSetToThrowDoesNotThrowThroughTheWriter) {
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    std::ofstream stream("/dev/full");
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    {
        LineWriter lines(stream, true);
        EXPECT_NO_THROW(writeSomeOfEverything(lines, 10));
        EXPECT_TRUE(lines.failed());
    }
    stream.exceptions(std::ios::goodbit);
}

TEST(LineWriter, LineLongerThanABlockIsWrittenWhole) {
    Support::TemporaryFolder folder;
    for (const bool flush : {true, false}) {
        const auto path = folder / (flush ? "flushed" : "blocks");
        std::ofstream stream(path);
        LineWriter lines(stream, flush);
        lines.text("begin ");
        const std::string longText(3 * LineWriter::blockSize + 5, 'x');
        lines.text(longText);
        for (int i = 0; i < 100000; ++i)
            lines.character('0' + static_cast<char>(i % 10));
        lines.endLine();
        lines.text("next");
        lines.endLine();
        lines.finish();
        const std::string content = Support::readBytes(path);
        ASSERT_EQ(content.size(), 6 + longText.size() + 100000 + 1 + 5);
        EXPECT_EQ(content.substr(0, 10), "begin xxxx");
        EXPECT_EQ(content.substr(content.size() - 9), "789\nnext\n");
        EXPECT_EQ(lines.bytes(), content.size());
    }
}

TEST(LineWriter, ReserveBeyondABlockGivesThatRoom) {
    Support::TemporaryFolder folder;
    std::ofstream stream(folder / "out");
    LineWriter lines(stream, false);
    lines.text("before");
    const std::size_t size = 2 * LineWriter::blockSize;
    char* const room = lines.reserve(size);
    std::fill(room, room + size, 'y');
    lines.commit(room + size);
    lines.text("after");
    lines.finish();
    EXPECT_TRUE(Support::readBytes(folder / "out") == "before" + std::string(size, 'y') + "after");
}

TEST(LineWriter, LongestFixedTextsAreWrittenWhole) {
    Support::TemporaryFolder folder;
    {
        std::ofstream stream(folder / "out");
        LineWriter lines(stream, false);
        lines.fixed(std::numeric_limits<long double>::max(), 6);
        lines.endLine();
        lines.fixed(std::numeric_limits<double>::lowest(), 0);
        lines.endLine();
        lines.fixed(0.5, 1000000);
        lines.endLine();
        lines.fixed(std::numeric_limits<double>::infinity(), INT_MAX);
        lines.endLine();
        lines.fixed(2.25, -1);
    }
    std::istringstream content(Support::readBytes(folder / "out"));
    std::string line;
    std::getline(content, line);
    EXPECT_EQ(line.size(), 4933U + 7);
    std::getline(content, line);
    EXPECT_EQ(line.size(), 1U + 309);
    std::getline(content, line);
    EXPECT_TRUE(line == "0.5" + std::string(999999, '0'));
    std::getline(content, line);
    EXPECT_EQ(line, "inf");
    std::getline(content, line);
    EXPECT_EQ(line, "2.250000");
}

TEST(LineWriter, GlobalLocaleWithCommasAndGroupingChangesNoByte) {
    Support::TemporaryFolder folder;
    {
        std::ofstream stream(folder / "plain");
        LineWriter lines(stream, false);
        writeSomeOfEverything(lines, 100);
    }
    {
        CommaLocale commas;
        std::ofstream stream(folder / "commas");
        std::ostringstream check;
        check << 1234.5;
        ASSERT_EQ(check.str(), "1.234,5");
        LineWriter lines(stream, false);
        writeSomeOfEverything(lines, 100);
    }
    EXPECT_FALSE(Support::readBytes(folder / "plain").empty());
    EXPECT_EQ(Support::readBytes(folder / "commas"), Support::readBytes(folder / "plain"));
}

/// The text of items 0 to count - 1 in blocks of 7: lines of different lengths, each item a part of a line.
std::string composed(const std::filesystem::path& path, std::size_t count, unsigned workers, bool flush,
                     std::vector<std::pair<std::size_t, std::size_t>>* appended = nullptr) {
    std::ofstream stream(path, std::ios::trunc);
    LineWriter lines(stream, flush);
    lines.text("head ");
    const auto lent = Support::threadWorkers(workers);
    lines.composeInBlocks(
        count, 7, lent.get(),
        [](ConvLib::LineText& text, std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                text.integer(i);
                text.text(std::string(i % 50, 'x'));
                if (i % 3 == 2)
                    text.endLine();
            }
        },
        [&](std::size_t begin, std::size_t end) {
            if (appended != nullptr)
                appended->emplace_back(begin, end);
        });
    lines.text("tail");
    lines.endLine();
    lines.finish();
    EXPECT_EQ(lines.lines(), count / 3 + 1);
    stream.close();
    const std::string bytes = Support::readBytes(path);
    EXPECT_EQ(lines.bytes(), bytes.size());
    return bytes;
}

TEST(LineWriter, TextComposedSideBySideIsTheSame) {
    const Support::TemporaryFolder folder;
    for (const std::size_t count : {0U, 1U, 7U, 8U, 1000U, 20'000U}) {
        const std::string expected = composed(folder / "a", count, 1, false);
        for (const unsigned workers : {2U, 3U, 16U}) {
            std::vector<std::pair<std::size_t, std::size_t>> appended;
            EXPECT_EQ(composed(folder / "b", count, workers, false, &appended), expected);
            EXPECT_EQ(composed(folder / "c", count, workers, true), expected);
            std::size_t end = 0;
            for (const auto& [from, to] : appended) {
                EXPECT_EQ(from, end);
                end = to;
            }
            EXPECT_EQ(end, count);
        }
    }
}

TEST(LineWriter, WhoStopsSideBySideKeepsTheBlocksBefore) {
    const Support::TemporaryFolder folder;
    std::ofstream stream(folder / "a");
    LineWriter lines(stream, false);
    const auto workers = Support::threadWorkers(3);
    EXPECT_THROW(lines.composeInBlocks(
                     1000, 10, workers.get(),
                     [](ConvLib::LineText& text, std::size_t begin, std::size_t end) {
                         for (std::size_t i = begin; i < end; ++i) {
                             text.integer(i);
                             text.endLine();
                         }
                     },
                     [](std::size_t, std::size_t end) {
                         if (end == 50)
                             throw std::runtime_error("stop");
                     }),
                 std::runtime_error);
    lines.finish();
    EXPECT_EQ(lines.lines(), 50U);
    EXPECT_EQ(Support::readBytes(folder / "a").substr(0, 4), "0\n1\n");
}

} // namespace
