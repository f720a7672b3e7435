// SPDX-License-Identifier: Apache-2.0
//
// The program with calls of the system failing under it, one in each run: whatever happens, each output holds its old bytes or
// all of its new ones, the exit status and the messages fit, and nothing is left over.
//
// With TIDEWATCH_THOROUGH=1 each call of each kind fails in turn, otherwise some of them; with a larger number N all but
// allocations, of which every Nth. The counts go to the file that TIDEWATCH_FAULT_TABLE names.
#include "host/ProgramRunner.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sched.h>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace Tidewatch {
namespace {

namespace fs = std::filesystem;

/// A command over the small survey. OUT in its arguments is its folder of outputs.
struct Command {
    std::string name;
    std::vector<std::string> arguments;
    /// Whether outputs of an earlier run are there already.
    bool hasOld = false;

    friend std::ostream& operator<<(std::ostream& out, const Command& command) { return out << command.name; }
};

const std::vector<Command>& commands() {
    static const std::vector<Command> all{
        {"laz", {"las", "survey.h5", "-o", "OUT/{time}-{grid}.laz", "--overwrite"}, true},
        {"las",
         {"las", "survey.laz", "-o", "OUT/new/a.las", "--tiles", "--fragment-points", "200", "--verify"}},
        {"pcd", {"pcd", "survey.laz", "-o", "OUT/a.pcd", "--overwrite"}, true},
        {"ascii", {"ascii", "survey.h5", "-o", "OUT", "--last-wins"}},
        {"append", {"ascii", "survey.laz", "-o", "OUT", "--append"}, true},
        {"bundle", {"bundle", "survey.laz", "-o", "OUT/a.h5", "--overwrite"}, true},
        {"info", {"info", "survey.h5", "survey.laz", "--bounds"}},
    };
    return all;
}

struct Fault {
    const char* kind;
    /// As TIDEWATCH_FAULT takes it.
    std::string error;
};

const std::vector<Fault>& faults() {
    static const std::vector<Fault> all{{"write", std::to_string(ENOSPC)},
                                        {"write", std::to_string(EINTR)},
                                        {"write", "short"},
                                        {"open", std::to_string(EMFILE)},
                                        {"rename", std::to_string(EACCES)},
                                        {"sync", std::to_string(EIO)},
                                        {"close", std::to_string(EIO)},
                                        {"mkdir", std::to_string(ENOSPC)},
                                        {"remove", std::to_string(EACCES)},
                                        {"read", std::to_string(EIO)},
                                        {"read", std::to_string(EINTR)},
                                        {"read", "short"},
                                        {"allocate", std::to_string(ENOMEM)}};
    return all;
}

/// The step from one allocation that fails to the next; 0 for a quick run.
long thoroughStep() {
    const char* const value = std::getenv("TIDEWATCH_THOROUGH");
    return value != nullptr ? std::atol(value) : 0;
}

/// Relative paths and contents of all files below a folder.
using Tree = std::map<std::string, std::string>;

Tree treeOf(const fs::path& folder) {
    Tree tree;
    if (!fs::exists(folder))
        return tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        tree[name] = entry.is_directory() ? std::string("folder") : Support::readBytes(entry.path());
    }
    return tree;
}

/// The folder of unfinished files that is part of a path; empty if none is.
std::string stagingName(const std::string& path) {
    const std::size_t begin = path.find("tidewatch-");
    return begin != std::string::npos ? path.substr(begin, path.find('/', begin) - begin) : std::string();
}

/// The folder that all runs of one command work in.
class Stage {
public:
    explicit Stage(const Command& command) : command_(command) {
        must({"sample", "--points", "600", "-o", "survey.h5"});
        must({"las", "survey.h5", "--time", "0", "-o", "survey.laz"});
        fs::create_directory(place_.path() / "old");
        if (command.hasOld) {
            // Other files of the same names than the run makes.
            must({"sample", "--points", "300", "--seed", "7", "-o", "other.h5"});
            must({"las", "other.h5", "--time", "0", "-o", "other.laz"});
            std::vector<std::string> arguments = command.arguments;
            std::replace(arguments.begin(), arguments.end(), std::string("survey.h5"),
                         std::string("other.h5"));
            std::replace(arguments.begin(), arguments.end(), std::string("survey.laz"),
                         std::string("other.laz"));
            for (std::string& word : arguments) {
                if (word.starts_with("OUT"))
                    word.replace(0, 3, "old");
            }
            if (std::find(arguments.begin(), arguments.end(), "--append") != arguments.end())
                rename("other.laz", arguments);
            must(arguments);
        }
        old_ = treeOf(place_.path() / "old");
        const ProgramResult result = run({}, 0);
        if (result.status != 0)
            throw std::runtime_error("the command fails without a fault: " + result.err);
        new_ = treeOf(out());
    }

    /// Runs the command with a fault; `number` 0 only counts.
    ProgramResult run(const std::optional<Fault>& fault, long number,
                      const std::function<void()>& prepare = {}) {
        fs::remove_all(out());
        fs::create_directory(out());
        copyOld();
        fs::remove(log());
        return runOnWhatIsThere([&] {
            if (fault) {
                ::setenv("LD_PRELOAD", TIDEWATCH_FAULT_INJECTOR, 1);
                ::setenv("TIDEWATCH_FAULT",
                         fmt::format("{}:{}:{}", fault->kind, number, fault->error).c_str(), 1);
                ::setenv("TIDEWATCH_FAULT_LOG", log().c_str(), 1);
            }
            if (prepare)
                prepare();
        });
    }

    /// Puts the outputs of an earlier run into the folder of outputs.
    void copyOld() const { fs::copy(place_.path() / "old", out(), fs::copy_options::recursive); }

    /// Runs the command without touching the outputs before.
    [[nodiscard]] ProgramResult runOnWhatIsThere(const std::function<void()>& prepare = {}) const {
        std::vector<std::string> arguments = command_.arguments;
        // With threads, which call is the Nth would be chance.
        arguments.insert(arguments.end(), {"--jobs", "1"});
        for (std::string& word : arguments) {
            if (word.starts_with("OUT"))
                word.replace(0, 3, "out");
        }
        return ProgramRunner::run(place_.path(), arguments, prepare);
    }

    /// The bytes of all outputs together, before and after a run.
    [[nodiscard]] std::size_t bytes() const {
        std::size_t sum = 0;
        for (const Tree* const tree : {&old_, &new_}) {
            for (const auto& [name, content] : *tree)
                sum += content.size();
        }
        return sum;
    }

    [[nodiscard]] fs::path out() const { return place_.path() / "out"; }
    [[nodiscard]] const Tree& oldTree() const noexcept { return old_; }
    [[nodiscard]] const Tree& newTree() const noexcept { return new_; }

    /// The calls that the last run counted; 0 for one that a signal ended.
    [[nodiscard]] long calls() const {
        std::ifstream file(log());
        for (std::string word; file >> word;) {
            if (word == "calls") {
                long count = 0;
                file >> count;
                return count;
            }
        }
        return 0;
    }

    /// The libraries of others that the failed call came through, innermost first.
    [[nodiscard]] std::vector<std::string> foreignLibraries() const {
        std::vector<std::string> libraries;
        std::ifstream file(log());
        for (std::string line; std::getline(file, line);) {
            if (!line.starts_with("in "))
                continue;
            const std::string library = line.substr(3);
            const auto isOf = [&](std::string_view name) { return library.starts_with(name); };
            if (isOf("libtidewatch") || isOf("libExportLib") || isOf("tidewatch"))
                break;
            if (!isOf("libc.") && !isOf("libstdc++") && !isOf("libfault") && !isOf("libgcc"))
                libraries.push_back(library);
        }
        return libraries;
    }

    /// What is wrong with how the run ended; empty if nothing is.
    [[nodiscard]] std::string judge(const ProgramResult& result) const {
        if (result.status > 128)
            return fmt::format("ended by signal {}", result.status - 128);
        if (result.status != 0 && result.status != 1)
            return fmt::format("status {}", result.status);
        const Tree tree = treeOf(out());
        for (const auto& [name, bytes] : tree) {
            const bool isOld = old_.contains(name) && old_.at(name) == bytes;
            const bool isNew = new_.contains(name) && new_.at(name) == bytes;
            // What cannot be removed is named.
            const std::string unfinished = stagingName(name);
            const bool isNamed = !unfinished.empty() && result.err.find(unfinished) != std::string::npos;
            if (!isOld && !isNew && !isNamed)
                return "left over or neither old nor new: " + name;
        }
        for (const auto& [name, bytes] : old_) {
            if (!tree.contains(name))
                return "gone: " + name;
        }
        if (result.status == 0) {
            for (const auto& [name, bytes] : new_) {
                if (!tree.contains(name) || tree.at(name) != bytes)
                    return "status 0 without " + name;
            }
            return {};
        }
        if (result.err.find("tidewatch: ") == std::string::npos)
            return "status 1 without a message";
        std::istringstream lines(result.err);
        for (std::string line; std::getline(lines, line);) {
            // LASlib's own lines begin so; the program's message with the file's real name comes after them.
            if (!line.starts_with("ERROR: ") && line.find("/proc/self/fd") != std::string::npos)
                return "a message with a temporary name: " + line;
        }
        return {};
    }

private:
    void must(const std::vector<std::string>& arguments) const {
        const ProgramResult result = ProgramRunner::run(place_.path(), arguments);
        if (result.status != 0)
            throw std::runtime_error("setting up fails: " + result.err);
    }

    /// Grids are named after files, and only those of one name add to the same file.
    void rename(const std::string& file, std::vector<std::string>& arguments) const {
        fs::create_directory(place_.path() / "other");
        fs::rename(place_.path() / file, place_.path() / "other/survey.laz");
        std::replace(arguments.begin(), arguments.end(), file, std::string("other/survey.laz"));
    }

    [[nodiscard]] fs::path log() const { return place_.path() / "log"; }

    Command command_;
    Support::TemporaryFolder place_;
    Tree old_;
    Tree new_;
};

/// The numbers of the calls that are to fail: all of them, or some spread over the whole run, the first and the last
/// among them.
std::vector<long> chosen(long calls, long most, bool isAllocation = false) {
    std::vector<long> numbers;
    const long thorough = isAllocation ? thoroughStep() : std::min(thoroughStep(), 1L);
    const long step = thorough > 0 ? thorough : std::max<long>(1, calls / most);
    for (long number = 1; number <= calls; number += step)
        numbers.push_back(number);
    if (calls > 0 && numbers.back() != calls)
        numbers.push_back(calls);
    return numbers;
}

void addToTable(const std::string& line) {
    if (const char* const table = std::getenv("TIDEWATCH_FAULT_TABLE"))
        std::ofstream(table, std::ios::app) << line << '\n';
}

class Faults : public ::testing::TestWithParam<Command> {};

TEST_P(Faults, NoCallThatFailsBreaksAnOutput) {
    Stage stage(GetParam());
    for (const Fault& fault : faults()) {
        const ProgramResult counted = stage.run(fault, 0);
        ASSERT_EQ(stage.judge(counted), "");
        const long calls = stage.calls();
        const bool isAllocation = std::string(fault.kind) == "allocate";
        std::map<std::string, int> ofLibraries;
        int injections = 0;
        int violations = 0;
        for (const long number : chosen(calls, isAllocation ? 25 : 5, isAllocation)) {
            const ProgramResult result = stage.run(fault, number);
            ++injections;
            const std::string wrong = stage.judge(result);
            if (wrong.empty())
                continue;
            // A library of another maker that cannot bear a lack of memory cannot be helped by its caller.
            if (const auto libraries = stage.foreignLibraries(); isAllocation && !libraries.empty()) {
                ++ofLibraries[libraries.front()];
                continue;
            }
            ++violations;
            ADD_FAILURE() << GetParam().name << ", " << fault.kind << " " << number << " of " << calls
                          << " with " << fault.error << ": " << wrong << "\n"
                          << result.err;
        }
        std::string others;
        for (const auto& [library, count] : ofLibraries)
            others += fmt::format(" {} ({})", library, count);
        addToTable(fmt::format("| {} | {} {} | {} | {} | {} |{} |", GetParam().name, fault.kind, fault.error,
                               calls, injections, violations, others));
    }
}

TEST_P(Faults, NoSignalBreaksAnOutput) {
    Stage stage(GetParam());
    for (const char* const kind : {"write", "rename", "close", "read"}) {
        const Fault fault{kind, "0"};
        stage.run(fault, 0);
        const long calls = stage.calls();
        for (const int signal : {SIGKILL, SIGTERM}) {
            for (const long number : chosen(calls, 3)) {
                const ProgramResult result = stage.run(fault, number, [signal] {
                    ::setenv("TIDEWATCH_FAULT_SIGNAL", std::to_string(signal).c_str(), 1);
                });
                const Tree tree = treeOf(stage.out());
                for (const auto& [name, bytes] : tree) {
                    const bool isOld = stage.oldTree().contains(name) && stage.oldTree().at(name) == bytes;
                    const bool isNew = stage.newTree().contains(name) && stage.newTree().at(name) == bytes;
                    const bool isUnfinished = signal == SIGKILL && !stagingName(name).empty();
                    const bool isFolder = bytes == "folder";
                    EXPECT_TRUE(isOld || isNew || isUnfinished || (signal == SIGKILL && isFolder))
                        << GetParam().name << ", signal " << signal << " at " << kind << " " << number << ": "
                        << name;
                }
                if (signal == SIGTERM) {
                    EXPECT_THAT(result.status, ::testing::AnyOf(0, 130))
                        << kind << " " << number << result.err;
                }
            }
        }
    }
}

/// Calls `work` in a process of its own that may mount, and returns its text; nothing where mounting is not allowed.
std::optional<std::string> whereMountingIsAllowed(const std::function<std::string()>& work) {
    const Support::TemporaryFolder folder;
    const std::string told = folder / "told";
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr int notAllowed = 77;
        // Without the second call, mounts might be seen outside.
        if ((::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0) ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=64k") != 0 ||
            ::umount(folder.path().c_str()) != 0)
            ::_exit(notAllowed);
        std::string text;
        try {
            text = work();
        } catch (const std::exception& error) {
            text = error.what();
        }
        Support::writeBytes(told, text);
        ::_exit(0);
    }
    int status = 1;
    if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0)
        return std::nullopt;
    return Support::readBytes(told);
}

TEST_P(Faults, NoFullDiskBreaksAnOutput) {
    Stage stage(GetParam());
    int refused = 0;
    const auto work = [&] {
        std::string wrong;
        const auto tryOn = [&](const std::string& limits) {
            if (::mount("tmpfs", stage.out().c_str(), "tmpfs", 0, limits.c_str()) != 0)
                throw std::runtime_error("cannot mount: " + limits);
            try {
                stage.copyOld();
            } catch (const fs::filesystem_error&) {
                ::umount(stage.out().c_str());
                return;
            }
            const ProgramResult result = stage.runOnWhatIsThere();
            refused += result.status != 0 ? 1 : 0;
            if (const std::string judged = stage.judge(result); !judged.empty())
                wrong += fmt::format("{}, disk of {}: {}\n{}\n", GetParam().name, limits, judged, result.err);
            ::umount(stage.out().c_str());
        };
        const std::size_t pages = stage.bytes() / 4096 + 64;
        const std::size_t step = thoroughStep() > 0 ? 1 : std::max<std::size_t>(1, pages / 6);
        for (std::size_t size = 2; size < pages; size += step)
            tryOn(fmt::format("size={}k", 4 * size));
        for (int inodes = 2; inodes < 10; ++inodes)
            tryOn(fmt::format("nr_inodes={}", inodes));
        if (refused == 0 && GetParam().name != "info")
            wrong += "no disk was too small";
        return wrong;
    };
    const auto wrong = whereMountingIsAllowed(work);
    if (!wrong)
        GTEST_SKIP() << "no mounting: a process may not mount a tmpfs here";
    EXPECT_EQ(*wrong, "");
}

INSTANTIATE_TEST_SUITE_P(Commands, Faults, ::testing::ValuesIn(commands()),
                         [](const auto& command) { return command.param.name; });

TEST(ReadingApart, NoAllocationWhileArraysAreReadApartEndsTheProcess) {
    const Command& info = commands().back();
    ASSERT_EQ(info.name, "info");
    Stage stage(info);
    const Fault fault{"allocate", std::to_string(ENOMEM)};
    stage.run(fault, 0);
    // The arrays come last; each takes about twenty allocations.
    const long first = stage.calls() * 97 / 100;
    for (long number = first; number < first + 40; ++number) {
        const ProgramResult result = stage.run(fault, number);
        if (stage.foreignLibraries().empty()) {
            EXPECT_EQ(stage.judge(result), "") << number << "\n" << result.err;
        }
    }
}

TEST(FaultInjector, WritingStraightToThePlaceOfTheOutputIsNoticed) {
    const Command& pcd = commands()[2];
    ASSERT_EQ(pcd.name, "pcd");
    Stage stage(pcd);
    const Fault fault{"write", std::to_string(ENOSPC)};
    stage.run(fault, 0);
    // The last piece that is written belongs to the output.
    const long last = stage.calls();
    const ProgramResult result =
        stage.run(fault, last, [&] { ::setenv("TIDEWATCH_FAULT_STRAIGHT", stage.out().c_str(), 1); });
    EXPECT_NE(stage.judge(result), "") << "the judge sees nothing";
}

} // namespace
} // namespace Tidewatch
