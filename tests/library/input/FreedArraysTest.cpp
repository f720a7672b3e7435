// SPDX-License-Identifier: Apache-2.0
#include "library/input/freedArrays.hpp"

#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/// The bytes that malloc holds after arrays of 8 MiB were freed among which smaller blocks are kept.
std::size_t heldAfterArrays() {
    std::vector<std::unique_ptr<std::vector<char>>> kept;
    for (int round = 0; round < 8; ++round) {
        const std::vector<char> array(std::size_t{8} << 20, 'a');
        const std::vector<char> other(std::size_t{8} << 20, 'b');
        kept.push_back(std::make_unique<std::vector<char>>(std::size_t{256} << 10, 'c'));
    }
    return ::mallinfo2().fordblks;
}

TEST(FreedArrays, GoBackToTheSystem) {
    // In a process of its own, since the setting is one of the process.
    EXPECT_EXIT(
        {
            Tidewatch::giveFreedArraysBack();
            std::_Exit(heldAfterArrays() < (std::size_t{4} << 20) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    // Otherwise they stay.
    EXPECT_EXIT(std::_Exit(heldAfterArrays() > (std::size_t{4} << 20) ? 0 : 1), testing::ExitedWithCode(0),
                "");
}

#else

TEST(FreedArrays, GoBackToTheSystem) {
    GTEST_SKIP() << "glibc: this build has another malloc";
}

#endif

} // namespace
