// SPDX-License-Identifier: Apache-2.0
//
// tidewatch view, from outside.
#include "host/ProgramFixture.hpp"
#include "library/view/viewPage.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class ViewProgramTest : public ProgramFixture {
protected:
    ViewProgramTest() : ProgramFixture({"view"}) {}

    void writeCloud(const std::string& name = "in.h5") const {
        auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        Support::GridBuilder(*bundle, 0, "dunes")
            .field("Positions", "", randomPoints(300, 1))
            .field("Intensity", "", std::vector<unsigned short>(300, 7));
        Support::GridBuilder(*bundle, 3, "dunes").field("Positions", "", randomPoints(200, 2));
        write(name, bundle);
    }
};

class ViewPageProgramTest : public ViewProgramTest {
protected:
    void SetUp() override {
        if (!canMakeViewPages())
            GTEST_SKIP() << "no npm packages of view/: scripts/setup.sh installs them";
        writeCloud();
    }
};

TEST_F(ViewPageProgramTest, APageStandsWhereItIsWanted) {
    const auto result = run({"in.h5", "-o", "out/page.html"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, StartsWith("out/page.html: 500 points, "));
    EXPECT_EQ(result.err, "");
    const std::string page = read("out/page.html");
    EXPECT_THAT(page, AllOf(StartsWith("<!doctype html>"), HasSubstr("\"title\":\"in.h5\""),
                            HasSubstr("default-src 'none'"), HasSubstr("three.js authors")));
    EXPECT_THAT(page, Not(HasSubstr("<!--data-->")));
    EXPECT_THAT(names(), ElementsAre("in.h5", "out", "out/page.html"));
}

TEST_F(ViewPageProgramTest, TheReferenceSystemAndItsUnitAreNamed) {
    EXPECT_EQ(run({"in.h5", "-o", "page.html", "--crs", "EPSG:25832"}).status, 0);
    EXPECT_THAT(read("page.html"),
                HasSubstr("\"system\":\"ETRS89 / UTM zone 32N (EPSG:25832)\",\"unit\":\"m\""));
    EXPECT_EQ(run({"in.h5", "-o", "page.html", "--overwrite"}).status, 0);
    EXPECT_THAT(read("page.html"), HasSubstr("\"system\":null,\"unit\":\"\""));
}

TEST_F(ViewPageProgramTest, FewerPointsAreSaid) {
    const auto result = run({"in.h5", "-o", "page.html", "--points", "50", "--time", "0", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, AllOf(HasSubstr("\"points\": 50"), HasSubstr("the page shows 50 of 300 points")));
    EXPECT_THAT(result.err, HasSubstr("the page shows 50 of 300 points"));
}

TEST_F(ViewPageProgramTest, AFileThatStandsThereStaysUnlessItMayGo) {
    ::Support::writeBytes(place_ / "page.html", "mine");
    EXPECT_EQ(run({"in.h5", "-o", "page.html"}).status, 1);
    EXPECT_EQ(read("page.html"), "mine");
    EXPECT_EQ(run({"in.h5", "-o", "page.html", "--overwrite"}).status, 0);
    EXPECT_THAT(read("page.html"), StartsWith("<!doctype"));
}

TEST_F(ViewPageProgramTest, WithoutAnOutputAPageInTheCacheIsOpened) {
    // What is opened notes its arguments.
    fs::create_directory(place_ / "bin");
    ::Support::writeBytes(
        place_ / "bin/xdg-open",
        "#!/bin/sh\nprintf '%s' \"$*\" > \"$XDG_CACHE_HOME/note\" && mv \"$XDG_CACHE_HOME/note\" \"$XDG_CACHE_HOME/opened\"\n");
    fs::permissions(place_ / "bin/xdg-open", fs::perms::owner_all);
    const auto withCache = [&] {
        ::setenv("XDG_CACHE_HOME", (place_ / "cache").c_str(), 1);
        ::setenv("PATH", ((place_ / "bin") + ":/usr/bin:/bin").c_str(), 1);
    };
    for (int time = 0; time < 2; ++time) {
        const auto result = run({"in.h5"}, withCache);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, StartsWith((place_ / "cache/tidewatch/in.h5.html") + ": 500 points"));
        EXPECT_THAT(read("cache/tidewatch/in.h5.html"), StartsWith("<!doctype"));
        for (int tries = 0; tries < 500 && !fs::exists(place_ / "cache/opened"); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(read("cache/opened"), place_ / "cache/tidewatch/in.h5.html");
        fs::remove(place_ / "cache/opened");
    }
}

TEST_F(ViewPageProgramTest, WithoutADesktopThePlaceOfThePageIsSaid) {
    fs::create_directory(place_ / "empty");
    const auto result = run({"in.h5"}, [&] {
        ::unsetenv("XDG_CACHE_HOME");
        ::setenv("HOME", (place_ / "home").c_str(), 1);
        ::setenv("PATH", (place_ / "empty").c_str(), 1);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("there is no xdg-open here"), HasSubstr("home/.cache/tidewatch/in.h5.html")));
    const auto homeless = run({"in.h5"}, [&] {
        ::unsetenv("XDG_CACHE_HOME");
        ::unsetenv("HOME");
    });
    EXPECT_EQ(homeless.status, 2);
    EXPECT_THAT(homeless.err, HasSubstr("HOME"));
}

TEST_F(ViewPageProgramTest, AnInputIsNeverReplaced) {
    const std::string before = read("in.h5");
    fs::create_hard_link(place_ / "in.h5", place_ / "page.html");
    EXPECT_EQ(run({"in.h5", "-o", "page.html", "--overwrite"}).status, 1);
    EXPECT_EQ(read("in.h5"), before);
}

TEST_F(ViewProgramTest, APictureStandsWhereItIsWanted) {
    writeCloud();
    const auto result = run({"in.h5", "-o", "a.PNG", "--size", "320x240"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, StartsWith("a.PNG: 300 points, "));
    const std::string bytes = read("a.PNG");
    EXPECT_THAT(bytes, StartsWith("\x89PNG"));
    EXPECT_EQ(bytes.substr(16, 8), std::string("\0\0\1\x40\0\0\0\xF0", 8));
    EXPECT_EQ(run({"in.h5", "-o", "b.png", "--size", "320x240"}).status, 0);
    EXPECT_EQ(read("b.png"), bytes);
    EXPECT_EQ(run({"in.h5", "-o", "c.png", "--color", "class"}).status, 1);
    EXPECT_THAT(names(), ElementsAre("a.PNG", "b.png", "in.h5"));
}

TEST_F(ViewProgramTest, WrongUsageIsSaid) {
    writeCloud();
    for (const ProgramRunner::Arguments& arguments :
         std::vector<ProgramRunner::Arguments>{{"in.h5", "-o", "page.pdf"},
                                               {"in.h5", "-o", "page"},
                                               {"in.h5", "-o", "a.png", "--points", "5"},
                                               {"in.h5", "-o", "a.html", "--size", "300x300"},
                                               {"in.h5", "-o", "a.png", "--size", "30x300"},
                                               {"in.h5", "-o", "a.png", "--size", "300"},
                                               {"in.h5", "-o", "a.png", "--size", "300x99999"},
                                               {"in.h5", "-o", "a.png", "--color", "smell"},
                                               {"in.h5", "-o", "a.html", "--points", "0"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(result.err, StartsWith("tidewatch: "));
    }
    EXPECT_THAT(names(), ElementsAre("in.h5"));
}

TEST_F(ViewProgramTest, ADamagedInputLeavesNothingBehind) {
    writeCloud();
    const std::string whole = read("in.h5");
    ::Support::writeBytes(place_ / "cut.h5", whole.substr(0, whole.size() / 2));
    for (const char* output : {"a.html", "a.png"})
        EXPECT_EQ(run({"cut.h5", "-o", output}).status == 0, false);
    EXPECT_THAT(names(), ElementsAre("cut.h5", "in.h5"));
}

} // namespace
} // namespace Tidewatch
