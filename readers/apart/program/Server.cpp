// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/program/Server.hpp"

#include "anchor/Error.hpp"
#include "readers/apart/program/Child.hpp"
#include "readers/apart/program/Lockdown.hpp"
#include "readers/source/modules.hpp"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Tidewatch::Apart {

namespace {

/// Opens the regular files that libraries of this process have open once more, under the same descriptors: after a fork,
/// processes would share the position in them. What cannot be opened stays as it is.
void openOwnFiles() {
    constexpr int most = 64; // few are open in the server
    for (int number = 3; number < most; ++number) {
        struct stat status {};
        if (::fstat(number, &status) != 0 || !S_ISREG(status.st_mode))
            continue;
        const Descriptor own(::open(fmt::format("/proc/self/fd/{}", number).c_str(), O_RDONLY | O_CLOEXEC));
        if (own)
            static_cast<void>(::dup3(own.get(), number, O_CLOEXEC));
    }
}

class LibraryServer {
public:
    explicit LibraryServer(Channel channel) : channel_(std::move(channel)) {}

    void run() {
        bool goesOn = channel_.send(MessageType::Ready, MessageWriter().text(TIDEWATCH_VERSION));
        while (goesOn) {
            auto request = channel_.receive();
            if (!request)
                break;
            try {
                goesOn = answer(*request);
                prepareNext();
            } catch (const Anchor::FormatError&) {
                break;
            } catch (const Anchor::Error& error) {
                goesOn = channel_.send(
                    MessageType::Failed,
                    MessageWriter().byte(static_cast<std::uint8_t>(ErrorKind::File)).text(error.what()));
            }
        }
        for (const auto& [number, child] : children_)
            ::kill(child, SIGKILL);
        if (spare_)
            ::kill(spare_->process, SIGKILL);
    }

private:
    bool answer(Channel::Message& request) {
        MessageReader reader(request.payload);
        const std::uint32_t number = reader.number32();
        switch (request.type) {
        case MessageType::Fork: {
            const auto kind = static_cast<ModuleKind>(reader.byte());
            if (request.descriptors.size() != 1)
                return false;
            fork(number, kind, reader.text(), Channel(std::move(request.descriptors.front())));
            return channel_.send(MessageType::Forked);
        }
        case MessageType::EndChild:
            return kill(number);
        case MessageType::EndingOf:
            return tellEnding(number);
        case MessageType::CpuOfChild:
            return channel_.send(MessageType::CpuTime, MessageWriter().number64(processorTime(number)));
        default:
            return false;
        }
    }

    /// A child forked in advance, which waits for the channel to its client.
    struct Spare {
        ModuleKind kind{};
        pid_t process = -1;
        Channel control;
    };

    void fork(std::uint32_t number, ModuleKind kind, const std::string& folder, Channel child) {
        const SourceModule& module = loadModule(kind, folder);
        module.prepare();
        Spare ready = spare_ && spare_->kind == kind ? std::move(*spare_) : makeSpare(kind, module);
        if (spare_ && spare_->kind == kind)
            spare_.reset();
        const int socket = child.descriptor();
        children_[number] = ready.process;
        // If it has died meanwhile, the client finds its channel closed.
        static_cast<void>(ready.control.send(MessageType::Forked, {}, std::span(&socket, 1)));
        // When files of one kind are read one after another, the next process is forked while this one reads.
        next_ = kind == last_ ? std::optional(kind) : std::nullopt;
        last_ = kind;
    }

    Spare makeSpare(ModuleKind kind, const SourceModule& module) {
        auto [ours, theirs] = Channel::pair();
        const pid_t server = ::getpid();
        // _Fork() calls no handlers of libraries. Those of PROJ and GDAL close the database of reference systems, since a
        // fork does not inherit locks; but it is read without locks, and opening it again takes several times as long as
        // reading a small file. This process has one thread.
        const pid_t process = ::_Fork();
        if (process < 0)
            throw Anchor::FileError("the process that reads files cannot be started: " +
                                    std::generic_category().message(errno));
        if (process > 0)
            return {kind, process, std::move(ours)};
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() == server) {
            channel_.close();
            ours.close();
            if (spare_)
                spare_->control.close();
            openOwnFiles();
            module.prepare();
            if (auto start = theirs.receive(); start && start->descriptors.size() == 1) {
                theirs.close();
                Channel channel(std::move(start->descriptors.front()));
                serveFile(channel, module, [this](std::uint64_t most) { return lockdown_.apply(most); });
            }
        }
        // Without the libraries' exit handlers, which a damaged file may have made unsafe.
        ::_exit(0);
    }

    /// Forks the process that is most likely requested next.
    void prepareNext() {
        const auto kind = std::exchange(next_, std::nullopt);
        if (kind && !spare_)
            spare_ = makeSpare(*kind, loadModule(*kind, {}));
    }

    bool kill(std::uint32_t number) {
        const auto known = children_.find(number);
        if (known == children_.end())
            return false;
        ::kill(known->second, SIGKILL);
        ::waitpid(known->second, nullptr, 0);
        children_.erase(known);
        return true;
    }

    bool tellEnding(std::uint32_t number) {
        const auto known = children_.find(number);
        if (known == children_.end())
            return false;
        using namespace std::chrono_literals;
        int status = 0;
        bool wasKilled = true;
        // It has closed its socket, so it should be exiting.
        for (auto left = 2000ms; wasKilled && left > 0ms; left -= 1ms) {
            wasKilled = ::waitpid(known->second, &status, WNOHANG) == 0;
            if (wasKilled)
                std::this_thread::sleep_for(1ms);
        }
        if (wasKilled) {
            ::kill(known->second, SIGKILL);
            ::waitpid(known->second, &status, 0);
        }
        children_.erase(known);
        return channel_.send(
            MessageType::Ended,
            MessageWriter().number32(static_cast<std::uint32_t>(status)).byte(wasKilled ? 1 : 0));
    }

    [[nodiscard]] std::uint64_t processorTime(std::uint32_t number) const {
        const auto known = children_.find(number);
        clockid_t clock{};
        timespec used{};
        if (known == children_.end() || ::clock_getcpuclockid(known->second, &clock) != 0 ||
            ::clock_gettime(clock, &used) != 0)
            return std::numeric_limits<std::uint64_t>::max();
        return static_cast<std::uint64_t>(used.tv_sec) * 1'000'000'000 +
               static_cast<std::uint64_t>(used.tv_nsec);
    }

    Channel channel_;
    Lockdown lockdown_;
    std::map<std::uint32_t, pid_t> children_;
    std::optional<Spare> spare_;
    std::optional<ModuleKind> last_;
    std::optional<ModuleKind> next_;
};

} // namespace

void serveLibrary(Channel channel) {
    LibraryServer(std::move(channel)).run();
}

} // namespace Tidewatch::Apart
