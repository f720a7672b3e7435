// SPDX-License-Identifier: Apache-2.0
#include "anchor/printable.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Printable, ControlCharactersAreShownAsNumbers) {
    EXPECT_EQ(Anchor::printable("a\x1b[2Jb\n\x7f"), "a\\x1b[2Jb\\x0a\\x7f");
    EXPECT_EQ(Anchor::printable(std::string_view("\0x", 2)), "\\x00x");
}

TEST(Printable, OtherBytesStayAsTheyAre) {
    EXPECT_EQ(Anchor::printable(""), "");
    EXPECT_EQ(Anchor::printable("D\xc3\xbcne 1 \xff\\"), "D\xc3\xbcne 1 \xff\\");
}

} // namespace
