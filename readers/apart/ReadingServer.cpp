// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/ReadingServer.hpp"

#include "anchor/Error.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace Tidewatch::Apart {

namespace {

/// Forks without an exit signal, so that the host gets no SIGCHLD and a wait() for any child does not return
/// this one.
pid_t quietFork() {
    return static_cast<pid_t>(::syscall(SYS_clone, 0, nullptr, nullptr, nullptr, nullptr));
}

/// The environment without variables that would change the program: preloaded libraries and HDF5's plugins.
std::vector<char*> environmentOfProgram() {
    std::vector<char*> kept;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!text.starts_with("LD_PRELOAD=") && !text.starts_with("HDF5_PLUGIN") &&
            !text.starts_with("GLIBC_TUNABLES="))
            kept.push_back(*entry);
    }
    static std::string noPlugins = "HDF5_PLUGIN_PRELOAD=::";
    // Its threads would have to be created after the lockdown, which forbids that.
    static std::string oneThread = "GDAL_NUM_THREADS=1";
    // Fills new memory: see Raster::Untouched. Memory that is freed is kept for the next block of a file: the system would
    // have to provide it again, which takes a tenth of the time of a large raster.
    static std::string tunables =
        "GLIBC_TUNABLES=glibc.malloc.perturb=90:glibc.malloc.tcache_count=0:"
        "glibc.malloc.mmap_threshold=33554432:glibc.malloc.trim_threshold=1073741824";
    kept.push_back(noPlugins.data());
    kept.push_back(oneThread.data());
    kept.push_back(tunables.data());
    kept.push_back(nullptr);
    return kept;
}

/// Runs in the forked process until exec: only async-signal-safe calls, since the host may have several
/// threads.
[[noreturn]] void becomeProgram(char* const* arguments, char* const* environment, int socket) {
    // Detaches from the host's terminal and signals.
    ::setsid();
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        ::sigaction(number, &standard, nullptr);
    const pid_t program = quietFork();
    if (program != 0)
        ::_exit(program < 0 ? 1 : 0);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::fcntl(socket, F_SETFD, 0);
    ::execve(arguments[0], arguments, environment);
    ::_exit(1);
}

std::string endingText(int status, bool wasKilled) {
    if (wasKilled)
        return "stopped answering";
    if (WIFSIGNALED(status)) {
        const char* const name = ::sigabbrev_np(WTERMSIG(status));
        return fmt::format("ended by signal {}{}", WTERMSIG(status),
                           name != nullptr ? fmt::format(" (SIG{})", name) : "");
    }
    return fmt::format("ended with status {}", WEXITSTATUS(status));
}

} // namespace

ReadingServer& ReadingServer::instance() {
    // Never destroyed: static objects of a host may hold inputs until the process ends.
    static auto* const server = new ReadingServer;
    return *server;
}

void ReadingServer::requireRunning() {
    const pid_t self = ::getpid();
    if (channel_ && owner_ == self)
        return;
    channel_.close();
    start();
    owner_ = self;
    ++generation_;
}

void ReadingServer::start() {
    const std::string program = Places::readerProgram();
    if (program.empty())
        throw Anchor::FileError(
            "tidewatch-read, the program that reads bundle files and rasters, was not found");
    auto [ours, theirs] = Channel::pair();
    std::string name = program;
    std::string socket = std::to_string(theirs.descriptor());
    std::array<char*, 3> arguments{name.data(), socket.data(), nullptr};
    const std::vector<char*> environment = environmentOfProgram();

    // So that no signal handler of the host runs in the forked process.
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t starter = quietFork();
    if (starter == 0)
        becomeProgram(arguments.data(), environment.data(), theirs.descriptor());
    const int reason = errno;
    while (starter > 0 && ::waitpid(starter, nullptr, __WALL) < 0 && errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (starter < 0)
        throw Anchor::FileError(program + ": cannot be started: " + std::generic_category().message(reason));
    theirs.close();

    const auto ready = ours.receive();
    if (!ready || ready->type != MessageType::Ready)
        throw Anchor::FileError(program + ": cannot be started");
    const std::string version = MessageReader(ready->payload).text();
    if (version != TIDEWATCH_VERSION)
        throw Anchor::FileError(
            fmt::format("{}: has version {}, but version {} is needed", program, version, TIDEWATCH_VERSION));
    channel_ = std::move(ours);
}

std::optional<Channel::Message> ReadingServer::ask(MessageType type, const MessageWriter& payload,
                                                   MessageType answer, std::span<const int> descriptors) {
    if (!channel_ || owner_ != ::getpid())
        return std::nullopt;
    std::optional<Channel::Message> message;
    if (channel_.send(type, payload, descriptors))
        message = channel_.receive();
    if (message && message->type == answer)
        return message;
    // It was killed or does not answer: the next call starts a new one.
    const bool hasFailed = message && message->type == MessageType::Failed;
    if (hasFailed) {
        MessageReader reason(message->payload);
        static_cast<void>(reason.byte());
        throw Anchor::FileError(reason.text());
    }
    channel_.close();
    return std::nullopt;
}

ReadingServer::Child ReadingServer::fork(ModuleKind kind) {
    const std::lock_guard lock(mutex_);
    constexpr int attempts = 2;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        requireRunning();
        auto [ours, theirs] = Channel::pair();
        const std::uint32_t number = nextNumber_++;
        const int socket = theirs.descriptor();
        if (ask(MessageType::Fork,
                MessageWriter()
                    .number32(number)
                    .byte(static_cast<std::uint8_t>(kind))
                    .text(Places::moduleFolder()),
                MessageType::Forked, std::span(&socket, 1)))
            return {number, generation_, std::move(ours)};
    }
    throw Anchor::FileError("the process that reads files has ended");
}

bool ReadingServer::isOurs(const Child& child) {
    const std::lock_guard lock(mutex_);
    return channel_ && owner_ == ::getpid() && child.generation == generation_;
}

void ReadingServer::end(const Child& child) {
    const std::lock_guard lock(mutex_);
    // Without waiting: taking a process apart takes the system a millisecond. If the server is gone, so is the child.
    if (channel_ && owner_ == ::getpid() && child.generation == generation_)
        static_cast<void>(channel_.send(MessageType::EndChild, MessageWriter().number32(child.number)));
}

std::string ReadingServer::endingOf(const Child& child) {
    const std::lock_guard lock(mutex_);
    std::optional<Channel::Message> answer;
    if (child.generation == generation_)
        answer = ask(MessageType::EndingOf, MessageWriter().number32(child.number), MessageType::Ended);
    if (!answer)
        throw Anchor::FileError("the process that reads files has ended");
    MessageReader reader(answer->payload);
    const int status = static_cast<int>(reader.number32());
    return endingText(status, reader.byte() != 0);
}

std::optional<std::chrono::nanoseconds> ReadingServer::processorTime(const Child& child) {
    const std::lock_guard lock(mutex_);
    if (child.generation != generation_)
        return std::nullopt;
    const auto answer =
        ask(MessageType::CpuOfChild, MessageWriter().number32(child.number), MessageType::CpuTime);
    if (!answer)
        return std::nullopt;
    const std::uint64_t time = MessageReader(answer->payload).number64();
    if (time > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return std::nullopt;
    return std::chrono::nanoseconds(static_cast<std::int64_t>(time));
}

} // namespace Tidewatch::Apart
