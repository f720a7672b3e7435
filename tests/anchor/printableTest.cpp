// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Printable, ControlCharactersAreShownAsNumbers) {
    EXPECT_EQ(Anchor::printable("a\x1b[2Jb\n\x7f"), "a\\x1b[2Jb\\x0a\\x7f");
    EXPECT_EQ(Anchor::printable(std::string_view("\0x", 2)), "\\x00x");
}

TEST(Printable, OtherBytesStayAsTheyAre) {
    EXPECT_EQ(Anchor::printable(""), "");
    EXPECT_EQ(Anchor::printable("D\xc3\xbcne 1 \\"), "D\xc3\xbcne 1 \\");
    // Hebrew, Chinese, a character beyond 16 bits, and the neighbours of those that are escaped.
    for (const char* const text :
         {"\xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d", "\xe6\xb5\xb7", "\xf0\x9f\x8c\x8a", "\xc2\xa0", "\xd8\x9b",
          "\xd8\x9d", "\xe2\x80\x8d", "\xe2\x80\x90", "\xe2\x80\xaf", "\xe2\x81\xa5", "\xe2\x81\xaa",
          "\xf4\x8f\xbf\xbf", "\xef\xbf\xbd"})
        EXPECT_EQ(Anchor::printable(text), text);
}

TEST(Printable, CharactersThatTurnTextOrEndLinesAreShownAsNumbers) {
    EXPECT_EQ(Anchor::printable("a\xe2\x80\xaezal.x"), "a\\xe2\\x80\\xaezal.x");
    EXPECT_EQ(Anchor::printable("\xd8\x9c"), "\\xd8\\x9c");
    EXPECT_EQ(Anchor::printable("\xc2\x9b"), "\\xc2\\x9b");
    for (const char last : {'\x8e', '\x8f', '\xa8', '\xa9', '\xaa', '\xab', '\xac', '\xad', '\xae'})
        EXPECT_EQ(Anchor::printable(std::string("\xe2\x80") + last).size(), 12U);
    for (const char last : {'\xa6', '\xa7', '\xa8', '\xa9'})
        EXPECT_EQ(Anchor::printable(std::string("\xe2\x81") + last).size(), 12U);
}

TEST(Printable, BytesThatAreNotUtf8AreShownAsNumbers) {
    EXPECT_EQ(Anchor::printable("a\xff z"), "a\\xff z");
    EXPECT_EQ(Anchor::printable("D\xfcne"), "D\\xfcne");
    // Cut off, overlong, surrogate, too large, and a byte that only continues.
    EXPECT_EQ(Anchor::printable("\xe6\xb5"), "\\xe6\\xb5");
    EXPECT_EQ(Anchor::printable("\xc0\x80"), "\\xc0\\x80");
    EXPECT_EQ(Anchor::printable("\xe0\x9f\xbf"), "\\xe0\\x9f\\xbf");
    EXPECT_EQ(Anchor::printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(Anchor::printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(Anchor::printable("\x80"), "\\x80");
    EXPECT_EQ(Anchor::printable("\xc3\xc3\xbc"), "\\xc3\xc3\xbc");
}

TEST(Printable, LinesStayLines) {
    EXPECT_EQ(Anchor::printableLines("a\x1b\nb\n\n\xff"), "a\\x1b\nb\n\n\\xff");
    EXPECT_EQ(Anchor::printableLines("a\n"), "a\n");
    EXPECT_EQ(Anchor::printableLines(""), "");
}

} // namespace
