// SPDX-License-Identifier: Apache-2.0
//
// A host that gets everything by dlopen: this program links none of our libraries, so the frame comes and
// goes with the exporters.
#include <dlfcn.h>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

bool isMapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(library) != std::string::npos)
            return true;
    }
    return false;
}

TEST(LoadAlone, UnloadedLibraryIsGoneAndItsFrameWithIt) {
    ASSERT_FALSE(isMapped("libtidewatch-frame"));
    for (int round = 0; round < 3; ++round) {
        void* const library = ::dlopen(TIDEWATCH_EXPORTLIB_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << ::dlerror();
        EXPECT_TRUE(isMapped("libExportLib"));
        EXPECT_TRUE(isMapped("libtidewatch-frame"));
        ::dlclose(library);
        EXPECT_FALSE(isMapped("libExportLib"));
        EXPECT_FALSE(isMapped("libtidewatch-frame"));
    }
}

} // namespace
