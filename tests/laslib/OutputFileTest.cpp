// SPDX-License-Identifier: Apache-2.0
#include "OutputFile.hpp"

#include "support/TemporaryFolder.hpp"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace {

struct OutputFiles : ::testing::Test {
    Support::TemporaryFolder folder;
    std::string path = folder / "file";
};

TEST_F(OutputFiles, BytesArriveInOrderWhicheverWayTheyCome) {
    std::string expected;
    OutputFile file(path.c_str());
    ASSERT_TRUE(file.isOpen());
    std::ostream stream(&file);
    for (int i = 0; i < 300'000; ++i) {
        const char byte = static_cast<char>(i % 251);
        if (i % 3 == 0) {
            stream.put(byte);
            expected += byte;
        } else if (i % 3 == 1) {
            *file.reserve(1) = byte;
            file.advance(1);
            expected += byte;
        } else {
            stream.write("xyz", 3);
            expected += "xyz";
        }
    }
    EXPECT_EQ(file.position(), expected.size());
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(Support::readBytes(path) == expected);
}

TEST_F(OutputFiles, PieceLargerThanTheBlockArrives) {
    const std::string piece(1'000'000, 'p');
    OutputFile file(path.c_str());
    file.sputn("ab", 2);
    file.sputn(piece.data(), static_cast<std::streamsize>(piece.size()));
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(Support::readBytes(path) == "ab" + piece);
}

TEST_F(OutputFiles, WhatIsWrittenOnTheWayEndsWithAPage) {
    OutputFile file(path.c_str());
    file.sputn("a header of some length", 23);
    std::size_t looks = 0;
    std::uintmax_t size = 0;
    for (int i = 0; i < 100'000; ++i) {
        std::memset(file.reserve(37), i, 37);
        file.advance(37);
        if (const auto now = std::filesystem::file_size(path); now != size) {
            size = now;
            ++looks;
            EXPECT_EQ(size % 4096, 0U);
        }
    }
    EXPECT_GE(looks, 10U);
    EXPECT_TRUE(file.close());
    std::string expected = "a header of some length";
    for (int i = 0; i < 100'000; ++i)
        expected.append(37, static_cast<char>(i));
    EXPECT_TRUE(Support::readBytes(path) == expected);
}

TEST_F(OutputFiles, SeekOverwritesAndSeekEndGoesOnBehindTheLastByte) {
    OutputFile file(path.c_str());
    file.sputn("0123456789", 10);
    file.seek(2);
    file.sputn("ab", 2);
    EXPECT_EQ(file.position(), 4U);
    file.seekEnd();
    EXPECT_EQ(file.position(), 10U);
    file.sputn("!", 1);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(Support::readBytes(path), "01ab456789!");
}

TEST_F(OutputFiles, StreamTellsAndSeeksPositions) {
    OutputFile file(path.c_str());
    std::ostream stream(&file);
    stream << "0123456789";
    EXPECT_EQ(stream.tellp(), 10);
    stream.seekp(3);
    stream << "x";
    stream.seekp(2, std::ios::cur);
    stream << "y";
    EXPECT_EQ(stream.tellp(), 7);
    stream.seekp(-1, std::ios::end);
    stream << "z!";
    stream.flush();
    EXPECT_TRUE(stream.good());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(Support::readBytes(path), "012x45y78z!");
}

TEST_F(OutputFiles, FileThatWasThereIsEmptied) {
    Support::writeBytes(path, "something long");
    OutputFile file(path.c_str());
    file.sputn("a", 1);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(Support::readBytes(path), "a");
}

TEST_F(OutputFiles, PathThatCannotBeMadeIsNotOpen) {
    const OutputFile file((folder / "gone/file").c_str());
    EXPECT_FALSE(file.isOpen());
}

TEST_F(OutputFiles, ErrorIsKeptWhileTheStreamStaysHealthyAndPositionsGoOn) {
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    OutputFile file("/dev/full");
    ASSERT_TRUE(file.isOpen());
    std::ostream stream(&file);
    const std::string piece(100'000, 'p');
    for (int i = 0; i < 5; ++i)
        stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    EXPECT_TRUE(file.failed());
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.tellp(), 500'000);
    EXPECT_FALSE(file.close());
    EXPECT_FALSE(file.close());
}

} // namespace
