// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "readers/apart/ApartSource.hpp"
#include "readers/bundle/BundleFileReader.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/bundle/BundleModule.hpp"
#include "readers/bundle/BundleSource.hpp"
#include "readers/registerReaders.hpp"
#include "readers/source/Input.hpp"
#include "support/BundleBuilder.hpp"
#include "support/BundleSeeds.hpp"
#include "support/BundleText.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/systemReason.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Tidewatch::Reading;
using Tidewatch::Apart::ReadingServer;
using Bundle = Anchor::StrongPtr<Sheaf::Bundle>;

Bundle read(const std::string& path, Reading reading = Reading::Apart) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Tidewatch::BundleFileReader(reading).read(*bundle, path, {});
    return bundle;
}

/// A process and the one that started it, as the system tells.
struct Process {
    pid_t number = 0;
    pid_t parent = 0;
};

/// The processes of tidewatch-read that there are for this one, by what the system tells of all.
std::vector<Process> readersOf(pid_t host) {
    std::vector<Process> found;
    const std::string ofHost = "TIDEWATCH_TEST_HOST=" + std::to_string(host) + '\0';
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "environ", std::ios::binary);
        const std::string environment{std::istreambuf_iterator<char>(file), {}};
        std::error_code gone; // any process may end while it is looked at
        if (environment.find(ofHost) == std::string::npos ||
            fs::read_symlink(entry.path() / "exe", gone).filename() != "tidewatch-read")
            continue;
        std::ifstream stat(entry.path() / "stat");
        const std::string text{std::istreambuf_iterator<char>(stat), {}};
        // "number (name) state parent ..."
        std::istringstream rest(text.substr(std::min(text.rfind(')') + 1, text.size())));
        Process process;
        process.number = std::stoi(entry.path().filename().string());
        char state = 0;
        if (rest >> state >> process.parent && state != 'Z')
            found.push_back(process);
    }
    return found;
}

/// The process that forks the others.
pid_t serverOf(pid_t host) {
    const std::vector<Process> all = readersOf(host);
    for (const Process& process : all) {
        if (std::none_of(all.begin(), all.end(),
                         [&](const Process& other) { return other.number == process.parent; }))
            return process.number;
    }
    throw std::runtime_error("there is no process that reads");
}

/// The process that reads the only file that is open.
pid_t childOf(pid_t host) {
    const pid_t server = serverOf(host);
    for (const Process& process : readersOf(host)) {
        if (process.parent == server)
            return process.number;
    }
    throw std::runtime_error("there is no process that reads a file");
}

/// Runs a function in a process of its own, with all that happens at the end of one; gives its status.
template <class Call>
int inChild(Call&& call) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("TIDEWATCH_TEST_HOST", std::to_string(::getpid()).c_str(), 1);
        int status = 100;
        try {
            status = call();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "unexpected: %s\n", error.what());
        }
        std::exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

class ReadingApart : public ::testing::Test {
protected:
    void SetUp() override { Support::Seeds::written(file_); }

    Support::TemporaryFolder folder_;
    std::string file_ = folder_ / "bundle.h5";
};

TEST_F(ReadingApart, SandboxIsWholeOnThisSystem) {
    const Tidewatch::Sandbox sandbox = Tidewatch::probeSandbox();
    EXPECT_TRUE(sandbox.seccomp);
    EXPECT_TRUE(sandbox.limits);
}

TEST_F(ReadingApart, RequiredSandboxThatIsWholeReads) {
    Tidewatch::requireSandbox(true);
    EXPECT_EQ(Support::bundleText(*read(file_)), Support::bundleText(*read(file_, Reading::InProcess)));
    Tidewatch::requireSandbox(false);
}

TEST_F(ReadingApart, ProcessHasOneThreadNoNewPrivilegesAndAFilter) {
    EXPECT_EQ(inChild([&] {
                  const Bundle bundle = read(file_);
                  int filtered = 0;
                  for (const auto& [reader, parent] : readersOf(::getpid())) {
                      std::ifstream file("/proc/" + std::to_string(reader) + "/status");
                      const std::string status{std::istreambuf_iterator<char>(file), {}};
                      filtered += status.find("\nSeccomp:\t2") != std::string::npos &&
                                  status.find("\nNoNewPrivs:\t1") != std::string::npos &&
                                  status.find("\nThreads:\t1\n") != std::string::npos;
                  }
                  return filtered == 1 ? 0 : 1;
              }),
              0);
}

TEST_F(ReadingApart, HostThatWaitsForAnyChildFindsNone) {
    EXPECT_EQ(inChild([&] {
                  const Bundle bundle = read(file_);
                  if (Support::bundleText(*bundle).empty())
                      return 1;
                  return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 2;
              }),
              0);
}

volatile std::sig_atomic_t signals = 0;

TEST_F(ReadingApart, HostThatHandlesOrIgnoresSignalsOfChildrenGetsNone) {
    EXPECT_EQ(inChild([&] {
                  std::signal(SIGCHLD, [](int) { signals = signals + 1; });
                  if (Support::bundleText(*read(file_)).empty())
                      return 1;
                  return signals == 0 ? 0 : 2;
              }),
              0);
    EXPECT_EQ(inChild([&] {
                  std::signal(SIGCHLD, SIG_IGN);
                  return Support::bundleText(*read(file_)).empty() ? 1 : 0;
              }),
              0);
}

TEST_F(ReadingApart, AllProcessesEndWithTheHostHoweverItEnds) {
    for (const bool isKilled : {false, true}) {
        int pipe[2];
        ASSERT_EQ(::pipe(pipe), 0);
        pid_t host = -1;
        EXPECT_EQ(inChild([&] {
                      const Bundle bundle = read(file_);
                      const pid_t self = ::getpid();
                      const bool isThere =
                          readersOf(self).size() == 2 && ::write(pipe[1], &self, sizeof self) > 0;
                      if (isKilled)
                          std::raise(SIGKILL);
                      return isThere ? 0 : 1;
                  }),
                  isKilled ? 1000 + SIGKILL : 0);
        ASSERT_EQ(::read(pipe[0], &host, sizeof host), static_cast<ssize_t>(sizeof host));
        ::close(pipe[0]);
        ::close(pipe[1]);
        for (int left = 1000; left > 0 && !readersOf(host).empty(); --left)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(readersOf(host).empty());
    }
}

TEST_F(ReadingApart, ProcessEndsWhenNothingOfTheFileIsLeft) {
    EXPECT_EQ(inChild([&] {
                  {
                      const Bundle bundle = read(file_);
                      if (readersOf(::getpid()).size() != 2)
                          return 1;
                  }
                  // The server is told and not waited for.
                  for (int left = 1000; left > 0 && readersOf(::getpid()).size() > 1; --left)
                      std::this_thread::sleep_for(std::chrono::milliseconds(10));
                  return readersOf(::getpid()).size() == 1 ? 0 : 2;
              }),
              0);
}

TEST_F(ReadingApart, NoMoreThanEightProcessesReadAndThoseThatEndedStartAgain) {
    EXPECT_EQ(inChild([&] {
                  const std::string expected = Support::bundleText(*read(file_, Reading::InProcess));
                  std::vector<Bundle> bundles;
                  for (int i = 0; i < 20; ++i)
                      bundles.push_back(read(file_));
                  // One more is made ready for the next file.
                  if (readersOf(::getpid()).size() > 2 + Tidewatch::Input::mostOpen)
                      return 1;
                  for (const Bundle& bundle : bundles) {
                      if (Support::bundleText(*bundle) != expected)
                          return 2;
                  }
                  return readersOf(::getpid()).size() <= 2 + Tidewatch::Input::mostOpen ? 0 : 3;
              }),
              0);
}

TEST_F(ReadingApart, FileThatChangedWhileItsProcessWasGoneIsRefused) {
    const Bundle bundle = read(file_);
    std::vector<Bundle> others;
    for (std::size_t i = 0; i < Tidewatch::Input::mostOpen; ++i) {
        const std::string other = folder_ / (std::to_string(i) + ".h5");
        fs::copy_file(file_, other);
        others.push_back(read(other));
    }
    fs::remove(file_);
    Support::Seeds::writtenUniform(file_);
    try {
        ADD_FAILURE() << Support::bundleText(*bundle);
    } catch (const Anchor::FileError& error) {
        EXPECT_EQ(error.what(), file_ + ": has been changed since it was opened");
    }
}

TEST_F(ReadingApart, ProcessThatIsKilledIsAnErrorWithFileObjectAndSignalAndStartsAgain) {
    EXPECT_EQ(
        inChild([&] {
            const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
            Tidewatch::BundleFileReader().read(*bundle, file_, {});
            ::kill(childOf(::getpid()), SIGKILL);
            std::string message;
            try {
                static_cast<void>(Support::bundleText(*bundle));
                return 1;
            } catch (const Anchor::FormatError& error) {
                message = error.what();
            }
            if (message.find(file_ + ": /slices/") != 0 ||
                message.find("the process that reads it ended by signal 9 (SIGKILL)") == std::string::npos)
                return 2;
            return Support::bundleText(*bundle) == Support::bundleText(*read(file_, Reading::InProcess)) ? 0
                                                                                                         : 3;
        }),
        0);
}

TEST_F(ReadingApart, ServerThatIsKilledStartsAgain) {
    EXPECT_EQ(inChild([&] {
                  const std::string expected = Support::bundleText(*read(file_, Reading::InProcess));
                  const Bundle bundle = read(file_);
                  ::kill(serverOf(::getpid()), SIGKILL);
                  for (int left = 1000; left > 0 && !readersOf(::getpid()).empty(); --left)
                      std::this_thread::sleep_for(std::chrono::milliseconds(10));
                  // The first to ask may find its process gone.
                  for (int attempt = 0; attempt < 2; ++attempt) {
                      try {
                          return Support::bundleText(*bundle) == expected ? 0 : 1;
                      } catch (const Anchor::FileError&) {
                      }
                  }
                  return 2;
              }),
              0);
}

TEST_F(ReadingApart, ProcessThatIsForkedOffTheHostReadsOnByItselfAndLeavesTheHostAlone) {
    EXPECT_EQ(inChild([&] {
                  const std::string expected = Support::bundleText(*read(file_, Reading::InProcess));
                  const Bundle bundle = read(file_);
                  const int status =
                      inChild([&] { return Support::bundleText(*bundle) == expected ? 0 : 1; });
                  if (status != 0)
                      return status;
                  return Support::bundleText(*bundle) == expected ? 0 : 2;
              }),
              0);
}

TEST_F(ReadingApart, ProgramThatTheHostStartsInheritsNothing) {
    EXPECT_EQ(inChild([&] {
                  const Bundle bundle = read(file_);
                  return std::system("test -z \"$(ls -l /proc/self/fd | grep -E 'socket|memfd|bundle.h5')\"");
              }),
              0);
}

TEST_F(ReadingApart, HostWhoseFilesMayNotGrowGetsTheSameValues) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    std::vector<double> numbers(400'000);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<double>(i);
    Support::GridBuilder(*bundle, 0, "g").field("N", "a", numbers);
    Tidewatch::writeBundleFile(*bundle, file_);
    EXPECT_EQ(inChild([&] {
                  const rlimit limit{1000, 1000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return Support::bundleText(*read(file_)) == Support::bundleText(*bundle) ? 0 : 1;
              }),
              0);
}

TEST_F(ReadingApart, ReadOfADescriptorThatFailsIsAFileErrorAndNoDamage) {
    const int descriptor = ::open(file_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    Tidewatch::SourceFiles files;
    files.path = file_;
    files.files.push_back({"bundle.h5", descriptor, fs::file_size(file_)});
    const auto expectReadFailure = [&](const std::function<void()>& call) {
        try {
            call();
            ADD_FAILURE() << "no error";
        } catch (const Anchor::FileError& error) {
            // In the language of the process that reads, which need not be that of this one.
            EXPECT_THAT(error.what(),
                        ::testing::AnyOf(file_ + ": cannot read: Bad file descriptor",
                                         file_ + ": cannot read: " + Support::systemReason(EBADF)));
        }
    };
    expectReadFailure([&] { static_cast<void>(Tidewatch::bundleModule().open(files)); });
    expectReadFailure([&] {
        static_cast<void>(
            Tidewatch::ApartSource(Tidewatch::ModuleKind::Bundles, files, 1 << 20).structure([](double) {}));
    });
    ::close(descriptor);
}

} // namespace
