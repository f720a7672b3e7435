// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Channel.hpp"
#include "readers/source/modules.hpp"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include <sys/types.h>

namespace Tidewatch::Apart {

/// The program tidewatch-read, started once by a process and ended with it. It loads the modules, reads nothing
/// itself, and forks a child for each file that is read.
///
/// The host does not notice it: the program is not its child, sends it no signal and leaves no zombie. A process
/// that was forked off the host gets one of its own. All operations may be called by any thread; they throw
/// Anchor::FileError where the program cannot be started, and start it anew where it is gone.
class ReadingServer {
public:
    static ReadingServer& instance();

    /// A child that waits for a file on its channel.
    struct Child {
        std::uint32_t number = 0;
        /// Of the server: children end with it.
        std::uint64_t generation = 0;
        Channel channel;
    };
    [[nodiscard]] Child fork(ModuleKind kind);

    /// Ends a child.
    void end(const Child& child);

    /// Says how a child came to an end that has closed its channel, such as "ended by signal 11 (SIGSEGV)". Throws
    /// Anchor::FileError where it ended because the program did.
    [[nodiscard]] std::string endingOf(const Child& child);

    /// The processor time that a child has used; nothing when it is unknown.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> processorTime(const Child& child);

    /// Whether the child belongs to the server that runs, and that to this process.
    [[nodiscard]] bool isOurs(const Child& child);

private:
    ReadingServer() = default;

    void requireRunning();
    void start();
    [[nodiscard]] std::optional<Channel::Message> ask(MessageType type, const MessageWriter& payload,
                                                      MessageType answer,
                                                      std::span<const int> descriptors = {});

    std::mutex mutex_;
    Channel channel_;
    pid_t owner_ = -1;
    std::uint64_t generation_ = 0;
    std::uint32_t nextNumber_ = 1;
};

} // namespace Tidewatch::Apart
