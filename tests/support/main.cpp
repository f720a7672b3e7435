// SPDX-License-Identifier: Apache-2.0
//
// The suite under sanitizers runs under a locale with decimal commas, to show that no text depends on it.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <stdexcept>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (const char* const name = std::getenv("TIDEWATCH_TEST_LOCALE")) {
        try {
            std::locale::global(std::locale(name));
        } catch (const std::runtime_error&) {
            std::fprintf(stderr, "the locale %s, which TIDEWATCH_TEST_LOCALE asks for, is not there\n", name);
            return 2;
        }
        if (*std::localeconv()->decimal_point != ',') {
            std::fprintf(stderr, "the locale %s has no decimal comma\n", name);
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
