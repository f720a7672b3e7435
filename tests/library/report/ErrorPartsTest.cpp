// SPDX-License-Identifier: Apache-2.0
#include "library/report/ErrorParts.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

TEST(ErrorParts, AreFileObjectAndCause) {
    const auto parts = ErrorParts::of("a.laz: header: the x offset is nan: so");
    EXPECT_EQ(parts.file, "a.laz");
    EXPECT_EQ(parts.object, "header");
    EXPECT_EQ(parts.cause, "the x offset is nan: so");
}

TEST(ErrorParts, WithoutAnObjectAreFileAndCause) {
    const auto parts = ErrorParts::of("a.laz: vanished");
    EXPECT_EQ(parts.file, "a.laz");
    EXPECT_EQ(parts.object, "");
    EXPECT_EQ(parts.cause, "vanished");
    EXPECT_EQ(ErrorParts::of("vanished").cause, "vanished");
    EXPECT_EQ(ErrorParts::of("vanished").file, "");
}

TEST(ErrorParts, ColonsInsideACauseEndNoObject) {
    const auto reason = ErrorParts::of("a.laz: cannot open: No such file or directory");
    EXPECT_EQ(reason.object, "");
    EXPECT_EQ(reason.cause, "cannot open: No such file or directory");
    const auto brackets = ErrorParts::of("a.txt: not recognised (known: LAS/LAZ file)");
    EXPECT_EQ(brackets.object, "");
    EXPECT_EQ(brackets.cause, "not recognised (known: LAS/LAZ file)");
    EXPECT_EQ(ErrorParts::of("a.h5: field (x): empty").object, "field (x)");
}

TEST(ErrorParts, AKnownFileMayHaveAnyName) {
    const auto parts = ErrorParts::of("a: b.laz: point 3: lost", "a: b.laz");
    EXPECT_EQ(parts.file, "a: b.laz");
    EXPECT_EQ(parts.object, "point 3");
    EXPECT_EQ(parts.cause, "lost");
    EXPECT_EQ(ErrorParts::of("header: lost", "a.laz").object, "header");
    EXPECT_EQ(ErrorParts::of("header: lost", "a.laz").file, "");
}

} // namespace
} // namespace Tidewatch
