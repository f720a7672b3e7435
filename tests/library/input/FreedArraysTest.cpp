// SPDX-License-Identifier: Apache-2.0
#include "library/input/freedArrays.hpp"

#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

#if defined(__GLIBC__) && !defined(TIDEWATCH_ADDRESS_SANITIZER) && !defined(TIDEWATCH_THREAD_SANITIZER)

/// The bytes that malloc holds free.
std::size_t held() {
    return ::mallinfo2().fordblks;
}

/// Makes arrays of 8 MiB and frees them, with smaller blocks among them that are kept.
std::vector<std::vector<char>> makeArrays() {
    std::vector<std::vector<char>> kept;
    for (int round = 0; round < 8; ++round) {
        const std::vector<char> array(std::size_t{8} << 20, 'a');
        const std::vector<char> other(std::size_t{8} << 20, 'b');
        kept.emplace_back(std::size_t{256} << 10, 'c');
    }
    return kept;
}

constexpr std::size_t little = std::size_t{4} << 20;

TEST(FreedArrays, GoBackToTheSystem) {
    // In a separate process, because the setting affects the whole process.
    EXPECT_EXIT(
        {
            Tidewatch::giveFreedArraysBack();
            const std::size_t before = held();
            const auto kept = makeArrays();
            std::_Exit(held() < before + little ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    // Otherwise they stay.
    EXPECT_EXIT(
        {
            const auto kept = makeArrays();
            std::_Exit(held() > little ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

#else

TEST(FreedArrays, GoBackToTheSystem) {
    GTEST_SKIP() << "glibc: this build has another malloc";
}

#endif

} // namespace
