// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazStream.hpp"

#include "support/TemporaryFolder.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Tidewatch::InputFile;
using Tidewatch::Las::LazStream;

class LazStreamTest : public ::testing::Test {
protected:
    LazStreamTest() {
        for (int i = 0; i < 1000; ++i)
            content_ += static_cast<char>(i % 251);
        Support::writeBytes(folder_ / "a", content_);
    }

    const InputFile& file() {
        if (!file_)
            file_ = std::make_unique<InputFile>(folder_ / "a");
        return *file_;
    }

    [[nodiscard]] std::string expected() const { return "head" + content_.substr(100); }

    Support::TemporaryFolder folder_;
    std::string content_;
    std::unique_ptr<InputFile> file_;
};

TEST_F(LazStreamTest, GivesTheHeadAndThenTheFileByteByByte) {
    LazStream stream(file(), {'h', 'e', 'a', 'd'}, 100);
    std::string got;
    for (int byte = stream.stream().get(); !stream.stream().eof(); byte = stream.stream().get()) {
        got += static_cast<char>(byte);
        ASSERT_EQ(stream.filePosition(), got.size() <= 4 ? 100 : 100 + got.size() - 4);
    }
    EXPECT_EQ(got, expected());
}

TEST_F(LazStreamTest, GivesThemInBlocksAcrossTheBorder) {
    LazStream stream(file(), {'h', 'e', 'a', 'd'}, 100);
    std::string got(10, '\0');
    stream.stream().read(got.data(), 10);
    EXPECT_EQ(got, expected().substr(0, 10));
    got.resize(2000);
    stream.stream().read(got.data(), 2000);
    EXPECT_EQ(stream.stream().gcount(), 894);
    EXPECT_TRUE(stream.stream().eof());
}

TEST_F(LazStreamTest, SeeksAnywhere) {
    LazStream stream(file(), {'h', 'e', 'a', 'd'}, 100);
    for (const std::size_t place : {0U, 3U, 4U, 500U, 2U, 903U, 400U}) {
        stream.stream().seekg(static_cast<std::streamoff>(place));
        EXPECT_EQ(stream.stream().tellg(), static_cast<std::streamoff>(place));
        EXPECT_EQ(static_cast<char>(stream.stream().get()), expected()[place]) << place;
    }
    EXPECT_EQ(stream.toStream(400), 304U);
}

TEST_F(LazStreamTest, EndsWhereItIsTold) {
    LazStream stream(file(), {'h', 'e', 'a', 'd'}, 100);
    std::string got(14, '\0');
    stream.stream().read(got.data(), 14); // the buffer knows more now
    stream.setEnd(112);
    stream.stream().read(got.data(), 2);
    EXPECT_TRUE(stream.stream().good());
    EXPECT_EQ(stream.stream().get(), std::istream::traits_type::eof());

    LazStream other(file(), {'h', 'e', 'a', 'd'}, 100);
    other.setEnd(101);
    other.stream().read(got.data(), 5);
    EXPECT_TRUE(other.stream().good());
    other.setEnd(103); // further on, it goes on where it stood
    other.stream().read(got.data(), 2);
    EXPECT_EQ(got.substr(0, 2), content_.substr(101, 2));
    EXPECT_EQ(other.stream().get(), std::istream::traits_type::eof());
}

TEST_F(LazStreamTest, EndsWhenTheStackHasGrownDeep) {
    LazStream stream(file(), {'h', 'e', 'a', 'd'}, 100);
    stream.markStack();
    struct Deep {
        static int get(LazStream& from, int levels) {
            volatile char frame[256];
            frame[0] = static_cast<char>(levels);
            const int byte = levels == 0 ? from.stream().get() : get(from, levels - 1);
            return frame[0] == static_cast<char>(levels) ? byte : 0;
        }
    };
    EXPECT_EQ(Deep::get(stream, 16), 'h');
    EXPECT_FALSE(stream.stackExceeded());
    // AddressSanitizer may place the array elsewhere.
    EXPECT_EQ(Deep::get(stream, 2048), std::istream::traits_type::eof());
    EXPECT_TRUE(stream.stackExceeded());
}

} // namespace
