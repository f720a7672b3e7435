// SPDX-License-Identifier: Apache-2.0
#include "host/Interruption.hpp"

#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

// Each signal is raised in its own process, since a request to stop cannot be taken back.

TEST(Interruption, NothingIsRequestedBeforeASignal) {
    EXPECT_FALSE(Interruption::isRequested());
    EXPECT_NO_THROW(Interruption::check());
}

TEST(Interruption, EachSignalIsNotedOnce) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT(
            {
                Interruption::install();
                std::raise(signal);
                std::_Exit(Interruption::isRequested() ? 7 : 0);
            },
            ::testing::ExitedWithCode(7), "");
    }
}

TEST(Interruption, ASecondSignalEndsTheProcess) {
    EXPECT_EXIT(
        {
            Interruption::install();
            std::raise(SIGINT);
            std::raise(SIGINT);
            std::_Exit(0);
        },
        ::testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(
        {
            Interruption::install();
            std::raise(SIGTERM);
            std::raise(SIGINT);
            std::_Exit(0);
        },
        ::testing::KilledBySignal(SIGINT), "");
}

TEST(Interruption, AnIgnoredHangUpStaysIgnored) {
    EXPECT_EXIT(
        {
            std::signal(SIGHUP, SIG_IGN);
            Interruption::install();
            std::raise(SIGHUP);
            const bool before = Interruption::isRequested();
            std::raise(SIGINT);
            std::raise(SIGHUP);
            std::_Exit(!before && Interruption::isRequested() ? 7 : 0);
        },
        ::testing::ExitedWithCode(7), "");
}

} // namespace
} // namespace Tidewatch
