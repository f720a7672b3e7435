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

/// The program tidewatch-read, started once per process, with which it ends. It loads the modules, reads
/// nothing itself, and forks a child for each file.
///
/// The program is not a child of the host, so it causes no signal and no zombie there. A process forked by
/// the host gets its own server. All operations are thread-safe; they throw Anchor::FileError when the
/// program cannot be started, and restart it if it has ended.
class ReadingServer {
public:
    static ReadingServer& instance();

    /// A child that expects a file on its channel.
    struct Child {
        std::uint32_t number = 0;
        /// Which server forked it: children end with their server.
        std::uint64_t generation = 0;
        Channel channel;
    };
    [[nodiscard]] Child fork(ModuleKind kind);

    void end(const Child& child);

    /// Says how a child that has closed its channel ended, such as "ended by signal 11 (SIGSEGV)". Throws
    /// Anchor::FileError if it ended because the server did.
    [[nodiscard]] std::string endingOf(const Child& child);

    /// The processor time that a child has used; nothing when it is unknown.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> processorTime(const Child& child);

    /// Whether the child belongs to the running server of this process.
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
