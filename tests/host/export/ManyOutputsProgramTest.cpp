// SPDX-License-Identifier: Apache-2.0
//
// Many outputs from outside: lists of inputs, outputs that stand by themselves, runs that are killed and go on, and runs
// that write nothing.
#include "host/ProgramFixture.hpp"
#include "library/report/Json.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class ManyOutputs : public ProgramFixture {
protected:
    /// Files in01.laz, in02.laz, ..., each of other points, and a list of them, list.txt.
    void writeInputs(std::size_t count, std::size_t points = 40) const {
        std::string list;
        for (std::size_t number = 1; number <= count; ++number) {
            Support::LasFileBuilder file;
            file.format = 1;
            for (std::size_t i = 0; i < points; ++i) {
                Support::LasRecord point;
                point.x = static_cast<std::int32_t>(number * 1000 + i * i % 97);
                point.intensity = static_cast<std::uint16_t>(i);
                file.points.push_back(point);
            }
            const std::string name = nameOf(number);
            write(name, file);
            list += name + "\n";
        }
        Support::writeBytes(place_ / "list.txt", list);
    }

    static std::string nameOf(std::size_t number) {
        return (number < 10 ? "in0" : "in") + std::to_string(number) + ".laz";
    }

    /// Cuts a file in the middle of its points.
    void damage(const std::string& name) const {
        const std::string bytes = read(name);
        Support::writeBytes(place_ / name, bytes.substr(0, bytes.size() - 60));
    }

    [[nodiscard]] std::vector<std::string> namesBelow(const std::string& folder) const {
        std::vector<std::string> all;
        for (const auto& [name, content] : contentOf(folder))
            all.push_back(name);
        return all;
    }

    /// The content of every file below a folder, by name.
    [[nodiscard]] std::map<std::string, std::string> contentOf(const std::string& folder) const {
        std::map<std::string, std::string> found;
        if (!fs::exists(place_ / folder))
            return found;
        for (const auto& entry : fs::recursive_directory_iterator(place_ / folder))
            found[entry.path().lexically_relative(place_ / folder)] =
                entry.is_regular_file() ? Support::readBytes(entry.path()) : "";
        return found;
    }
};

TEST_F(ManyOutputs, ListsNameInputs) {
    writeInputs(3);
    const auto all = run({"las", "@list.txt", "-o", "a/{grid}.las"});
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_THAT(contentOf("a"), SizeIs(3));

    // Among other inputs, with empty lines and line ends of other systems, and no end of the last line.
    Support::writeBytes(place_ / "two.txt", "\nin03.laz\r\n\nin01.laz");
    EXPECT_EQ(run({"las", "in02.laz", "@two.txt", "--merge", "-o", "m.las"}).status, 0);
    EXPECT_EQ(run({"las", "in02.laz", "in03.laz", "in01.laz", "--merge", "-o", "n.las"}).status, 0);
    EXPECT_TRUE(read("m.las") == read("n.las"));

    // Names that end in NUL may contain line ends.
    fs::create_directories(place_ / "two\nlines");
    fs::rename(place_ / "in01.laz", place_ / "two\nlines/in01.laz");
    Support::writeBytes(place_ / "nul", std::string("two\nlines/in01.laz\0in02.laz\0", 28));
    const auto nul = run({"info", "@nul"});
    EXPECT_EQ(nul.status, 0) << nul.err;

    EXPECT_THAT(run({"check", "@nul"}).out, HasSubstr("in02.laz"));

    // A name that begins with @ is written with a folder.
    fs::rename(place_ / "in03.laz", place_ / "@in03.laz");
    EXPECT_EQ(run({"info", "./@in03.laz"}).status, 0);
}

TEST_F(ManyOutputs, StandardInputMayBeTheList) {
    writeInputs(2);
    const auto result = run({"las", "-", "-o", "a/{grid}.las"}, [this] {
        const int file = ::open((place_ / "list.txt").c_str(), O_RDONLY);
        ::dup2(file, STDIN_FILENO);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(contentOf("a"), SizeIs(2));
}

TEST_F(ManyOutputs, ListsThatCannotBeUsedSayWhy) {
    writeInputs(1);
    const auto missing = run({"info", "@none.txt"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.err, HasSubstr("none.txt: cannot be opened"));
    Support::writeBytes(place_ / "empty.txt", "\n\n");
    const auto empty = run({"info", "@empty.txt"});
    EXPECT_EQ(empty.status, 2);
    EXPECT_THAT(empty.err, HasSubstr("empty.txt: the list has no names of files"));
    const auto folder = run({"info", "@."});
    EXPECT_EQ(folder.status, 1);
    EXPECT_THAT(folder.err, HasSubstr(".: cannot be read"));
    EXPECT_EQ(run({"info", "-", "-"}).status, 2);
}

TEST_F(ManyOutputs, EachGivesTheBytesOfTogetherInEveryFormat) {
    writeInputs(4);
    const std::vector<std::pair<std::string, std::string>> commands{
        {"las", "/{grid}.laz"}, {"pcd", "/{grid}.pcd"}, {"ascii", "/{grid}"}};
    for (const auto& [command, pattern] : commands) {
        EXPECT_EQ(run({command, "@list.txt", "-o", command + pattern}).status, 0);
        const auto each = run({command, "@list.txt", "--each", "-o", command + "-each" + pattern});
        EXPECT_EQ(each.status, 0) << each.err;
        EXPECT_TRUE(contentOf(command) == contentOf(command + "-each")) << command;
        for (int part = 1; part <= 3; ++part)
            EXPECT_EQ(run({command, "@list.txt", "--part", std::to_string(part) + "/3", "-o",
                           command + "-parts" + pattern})
                          .status,
                      0);
        EXPECT_TRUE(contentOf(command) == contentOf(command + "-parts")) << command;
    }
}

TEST_F(ManyOutputs, OneThatFailsEndsTheOthersUnlessTheyAreToGoOn) {
    writeInputs(5);
    damage("in02.laz");
    const auto together = run({"las", "@list.txt", "-o", "t/{grid}.las"});
    EXPECT_EQ(together.status, 1);
    EXPECT_THAT(contentOf("t"), IsEmpty());

    const auto each = run({"las", "@list.txt", "--each", "-o", "e/{grid}.las"});
    EXPECT_EQ(each.status, 1);
    EXPECT_THAT(each.err, HasSubstr("in02.laz"));

    const auto going = run({"las", "@list.txt", "--keep-going", "--json", "-o", "k/{grid}.las"});
    EXPECT_EQ(going.status, 1);
    EXPECT_THAT(going.err, AllOf(HasSubstr("in02.laz"), HasSubstr("1 failed")));
    EXPECT_THAT(namesBelow("k"), ElementsAre("in01.las", "in03.las", "in04.las", "in05.las"));
    const Json document = Json::parse(going.out);
    ASSERT_EQ(document.at("failures").size(), 1U);
    EXPECT_THAT(document.at("failures")[0].at("message").get<std::string>(), HasSubstr("in02.laz"));
    EXPECT_EQ(document.at("outputs").at("written"), 4);
}

TEST_F(ManyOutputs, InputsThatAreNotThereAreFailuresToo) {
    writeInputs(2);
    const auto going = run({"pcd", "@list.txt", "none.laz", "--keep-going", "-o", "k/{grid}.pcd"});
    EXPECT_EQ(going.status, 1);
    EXPECT_THAT(going.err, HasSubstr("none.laz"));
    EXPECT_THAT(contentOf("k"), SizeIs(2));
    // Points of all inputs together would be too few.
    const auto merged = run({"pcd", "@list.txt", "none.laz", "--keep-going", "--merge", "-o", "m.pcd"});
    EXPECT_EQ(merged.status, 1);
    EXPECT_FALSE(fs::exists(place_ / "m.pcd"));
}

TEST_F(ManyOutputs, WhatIsInTheWayOfOneIsItsOwnFailure) {
    writeInputs(3);
    fs::create_directories(place_ / "out");
    Support::writeBytes(place_ / "out/in02.las", "mine");
    const auto each = run({"las", "@list.txt", "--each", "-o", "out/{grid}.las"});
    EXPECT_EQ(each.status, 1);
    EXPECT_THAT(each.err, HasSubstr("out/in02.las: already exists"));
    EXPECT_THAT(contentOf("out"), SizeIs(1)); // told before any work
    const auto going = run({"las", "@list.txt", "--keep-going", "-o", "out/{grid}.las"});
    EXPECT_EQ(going.status, 1);
    EXPECT_THAT(contentOf("out"), SizeIs(3));
    EXPECT_EQ(read("out/in02.las"), "mine");
}

TEST_F(ManyOutputs, StrictRefusesOnlyTheOutputsWithLosses) {
    writeInputs(2);
    Support::LasFileBuilder file;
    file.format = 1;
    file.scale = {1e-7, 1e-7, 1e-7};
    file.points.resize(2);
    file.points[0].x = 3;
    write("in03.laz", file);
    const auto strict = run({"las", "in01.laz", "in03.laz", "in02.laz", "--plain", "--strict", "--accept",
                             "fields,properties", "--keep-going", "-o", "s/{grid}.las"});
    EXPECT_EQ(strict.status, 1);
    EXPECT_THAT(strict.err, HasSubstr("s/in03.las: --strict refuses losses"));
    EXPECT_THAT(contentOf("s"), SizeIs(2));
}

TEST_F(ManyOutputs, ExistingOnesAreSkippedAndHalfOnesWrittenAgain) {
    writeInputs(3);
    EXPECT_EQ(run({"ascii", "@list.txt", "-o", "whole/{grid}"}).status, 0);
    const auto whole = contentOf("whole");
    EXPECT_EQ(run({"ascii", "@list.txt", "-o", "out/{grid}"}).status, 0);
    fs::remove_all(place_ / "out/in01");
    ASSERT_TRUE(fs::remove(place_ / "out/in02/Intensity/000000.asc"));
    Support::writeBytes(place_ / "out/in03/Intensity/000000.asc", "as it is");
    const auto result = run({"ascii", "@list.txt", "--skip-existing", "-o", "out/{grid}"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("1 of 3 outputs existed already"));
    auto expected = whole;
    expected["in03/Intensity/000000.asc"] = "as it is";
    EXPECT_TRUE(contentOf("out") == expected);
    const auto again = run({"ascii", "@list.txt", "--skip-existing", "-o", "out/{grid}"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(run({"ascii", "@list.txt", "--skip-existing", "--append", "-o", "out/{grid}"}).status, 2);
}

TEST_F(ManyOutputs, TilesOfPlacesStandByThemselves) {
    writeInputs(2);
    const ProgramRunner::Arguments command{"las", "@list.txt", "--merge", "--tile-size", "0.5", "-o"};
    const auto with = [&](ProgramRunner::Arguments more) {
        ProgramRunner::Arguments all = command;
        all.insert(all.end(), more.begin(), more.end());
        return run(all);
    };
    EXPECT_EQ(with({"a/{tile}.laz"}).status, 0);
    ASSERT_GT(contentOf("a").size(), 2U);
    EXPECT_EQ(with({"b/{tile}.laz", "--part", "1/2"}).status, 0);
    EXPECT_EQ(with({"b/{tile}.laz", "--skip-existing"}).status, 0);
    EXPECT_TRUE(contentOf("a") == contentOf("b"));
}

TEST_F(ManyOutputs, APartWithoutOutputsIsDone) {
    writeInputs(2);
    const auto none = run({"las", "@list.txt", "--part", "3/4", "-o", "a/{grid}.las"});
    EXPECT_EQ(none.status, 0) << none.err;
    EXPECT_THAT(none.err, HasSubstr("part 3/4 has none of the 2 outputs"));
    EXPECT_THAT(contentOf("a"), IsEmpty());
    EXPECT_EQ(run({"las", "@list.txt", "--part", "3/4", "--dry-run", "-o", "a/{grid}.las"}).status, 0);
}

TEST_F(ManyOutputs, WrongPartsAreWrongUsage) {
    writeInputs(1);
    for (const std::string part : {"0/2", "3/2", "1", "1/0", "a/b", "-1/2", "1/2/3"})
        EXPECT_EQ(run({"las", "in01.laz", "--part", part, "-o", "x.las"}).status, 2) << part;
    EXPECT_EQ(run({"las", "in01.laz", "--together", "--each", "-o", "x.las"}).status, 2);
    EXPECT_EQ(run({"las", "in01.laz", "--together", "-o", "x.las"}).status, 0);
}

TEST_F(ManyOutputs, ADryRunSaysWhatWouldBeWrittenAndWhatIsInTheWay) {
    writeInputs(3);
    const auto before = names();
    const auto plan = run({"las", "@list.txt", "--dry-run", "-o", "out/{grid}.las"});
    EXPECT_EQ(plan.status, 0) << plan.err;
    EXPECT_THAT(plan.out, AllOf(HasSubstr("3 inputs and "), HasSubstr("out/in02.las: at most 40 points"),
                                HasSubstr("3 files and about")));
    EXPECT_EQ(names(), before);

    Support::writeBytes(place_ / "there.pcd", "mine");
    const auto blocked = run({"pcd", "in01.laz", "--dry-run", "--json", "-o", "there.pcd"});
    EXPECT_EQ(blocked.status, 1);
    EXPECT_THAT(blocked.err, HasSubstr("there.pcd: already exists"));
    const Json document = Json::parse(blocked.out);
    EXPECT_EQ(document.at("dryRun"), true);
    EXPECT_THAT(document.at("obstacles"), SizeIs(1));
    EXPECT_EQ(document.at("files")[0].at("points"), 40);
    EXPECT_EQ(document.at("losses")[0].at("kind"), "fields");
    EXPECT_EQ(read("there.pcd"), "mine");

    const auto strict = run({"pcd", "in01.laz", "--dry-run", "--strict", "-o", "x.pcd"});
    EXPECT_EQ(strict.status, 1);
    EXPECT_THAT(strict.err, HasSubstr("--strict refuses losses"));
    const auto nothing = run({"las", "in01.laz", "--dry-run", "--grid", "no*", "-o", "x.las"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.err, HasSubstr("nothing would be written: no grid matches"));
    // What an export then does is what was said of its losses that do not depend on values.
    const auto done = run({"pcd", "in01.laz", "--json", "-o", "x.pcd"});
    const Json real = Json::parse(done.out);
    for (const Json& loss : document.at("losses"))
        EXPECT_THAT(real.at("losses"), ::testing::Contains(loss));
}

TEST_F(ManyOutputs, BeyondAHundredANoteSuggestsToPutEachInPlace) {
    writeInputs(101, 2);
    const auto together = run({"las", "@list.txt", "--plain", "-o", "a/{grid}.las"});
    EXPECT_EQ(together.status, 0);
    EXPECT_THAT(together.err, HasSubstr("all 101 outputs are put in place together"));
    const auto each = run({"las", "@list.txt", "--plain", "--each", "-o", "b/{grid}.las"});
    EXPECT_EQ(each.status, 0);
    EXPECT_THAT(each.err, Not(HasSubstr("together")));
}

TEST_F(ManyOutputs, FewOpenFilesAreEnough) {
    writeInputs(300, 2);
    for (const std::string way : {"--together", "--each"}) {
        const auto result = run(
            {"las", "@list.txt", "--plain", "-q", "-j", "2", way, "-o", way.substr(2) + "/{grid}.laz"}, [] {
                const rlimit few{64, 64};
                ::setrlimit(RLIMIT_NOFILE, &few);
            });
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(contentOf(way.substr(2)), SizeIs(300));
    }
    EXPECT_TRUE(contentOf("together") == contentOf("each"));
}

/// Thoroughly, a thousand files and a hundred kills.
TEST_F(ManyOutputs, KilledRunsThatAreRunAgainGiveTheFilesOfAnUndisturbedOne) {
    const bool thorough = std::getenv("TIDEWATCH_THOROUGH") != nullptr;
    const std::size_t inputs = thorough ? 1000 : 100;
    const int kills = thorough ? 100 : 12;
    writeInputs(inputs, 2000);
    const ProgramRunner::Arguments command{"las", "@list.txt", "-q", "-j", "2", "--skip-existing", "-o"};
    const auto to = [&](const std::string& output) {
        ProgramRunner::Arguments all = command;
        all.push_back(output);
        return all;
    };
    EXPECT_EQ(run(to("whole/{grid}.laz")).status, 0);
    const auto whole = contentOf("whole");
    // Unfinished files lie in folders of their own.
    const auto isInPlace = [](const std::string& name) {
        return name.ends_with(".laz") && name.find('/') == std::string::npos;
    };
    const auto countInPlace = [&] {
        std::size_t count = 0;
        std::error_code ignored; // the folder does not exist before the first output
        for (const auto& entry : fs::directory_iterator(place_ / "out", ignored))
            count += isInPlace(entry.path().filename()) ? 1U : 0U;
        return count;
    };

    // Each run is killed a moment after it has put some more outputs in place, which may be none.
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> more(0, 2 * inputs / static_cast<std::size_t>(kills));
    std::uniform_int_distribution<> moment(0, 10'000);
    int killed = 0;
    for (int left = 20 * kills; left > 0 && killed < kills; --left) {
        std::size_t present = countInPlace();
        if (present == inputs) {
            fs::remove_all(place_ / "out");
            present = 0;
        }
        const std::size_t aim = present + more(random);
        ProgramRunner runner(place_.path(), to("out/{grid}.laz"));
        while (runner.isRunning() && countInPlace() < aim)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        if (runner.isRunning()) {
            runner.send(SIGKILL);
            ++killed;
        }
        runner.finish();
        // What is in place is whole, whenever that was.
        for (const auto& [name, content] : contentOf("out")) {
            if (isInPlace(name)) {
                ASSERT_TRUE(whole.contains(name)) << name;
                ASSERT_TRUE(content == whole.at(name)) << name;
            }
        }
    }
    EXPECT_EQ(killed, kills);
    const auto last = run(to("out/{grid}.laz"));
    EXPECT_EQ(last.status, 0) << last.err;
    EXPECT_EQ(namesBelow("out"), namesBelow("whole"));
    EXPECT_TRUE(contentOf("out") == whole);
}

} // namespace
} // namespace Tidewatch
