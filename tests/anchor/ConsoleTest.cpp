// SPDX-License-Identifier: Apache-2.0
#include "anchor/Console.hpp"

#include "support/ConsoleCapture.hpp"

#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

TEST(Console, OneTemporaryGivesOneMessage) {
    Support::ConsoleCapture console;
    Anchor::Console() << "Data at T=" << 2.5 << ", points " << 12;
    Anchor::Console() << "Run";
    EXPECT_EQ(console.messages, (std::vector<std::string>{"Data at T=2.5, points 12", "Run"}));
}

TEST(Console, DoubleHasSixSignificantDigits) {
    Support::ConsoleCapture console;
    Anchor::Console() << 1234567.0 << " " << 0.1 << " " << -0.0;
    EXPECT_EQ(console.messages, (std::vector<std::string>{"1.23457e+06 0.1 -0"}));
}

TEST(Console, LimitsOfIntAreWrittenInFull) {
    Support::ConsoleCapture console;
    Anchor::Console() << std::numeric_limits<int>::min() << " " << std::numeric_limits<int>::max();
    EXPECT_EQ(console.messages, (std::vector<std::string>{"-2147483648 2147483647"}));
}

TEST(Console, NothingAddedIsStillAMessage) {
    Support::ConsoleCapture console;
    { const Anchor::Console message; }
    EXPECT_EQ(console.messages, (std::vector<std::string>{""}));
}

TEST(Console, SinkThatThrowsEndsNothing) {
    const auto before = Anchor::Console::setSink([](std::string_view) { throw std::runtime_error("full"); });
    EXPECT_NO_THROW(Anchor::Console() << "lost");
    Anchor::Console::setSink(before);
}

TEST(Console, WithoutASinkWritesALineToStandardError) {
    const auto before = Anchor::Console::setSink({});
    ::testing::internal::CaptureStderr();
    Anchor::Console() << "No Overlap";
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "No Overlap\n");
    Anchor::Console::setSink(before);
}

} // namespace
