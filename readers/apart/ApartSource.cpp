// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/ApartSource.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/apart/PieceMessages.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace Tidewatch {

namespace {

using Apart::Channel;
using Apart::Descriptor;
using Apart::ErrorKind;
using Apart::MessageReader;
using Apart::MessageType;
using Apart::MessageWriter;
using Apart::ReadingServer;

// How often the host is asked whether to continue while the process is silent.
constexpr std::chrono::milliseconds tickInterval{200};

std::atomic<bool> sandboxIsRequired = false;

// Memory for pieces: some of the size that sources prefer, and few enough to stay in the processor's cache.
constexpr std::uint64_t memoryForPieces = 2 * ArrayMemory::goodPiece;

// Smaller arrays come in messages, which takes fewer calls of the system.
constexpr std::uint64_t minSharedBytes = std::uint64_t{64} << 10;

[[noreturn]] void throwAs(std::uint8_t kind, const std::string& message) {
    switch (static_cast<ErrorKind>(kind)) {
    case ErrorKind::File:
        throw Anchor::FileError(message);
    case ErrorKind::Limit:
        throw Anchor::LimitError(message);
    case ErrorKind::Model:
        throw Anchor::ModelError(message);
    case ErrorKind::Format:
        break;
    }
    throw Anchor::FormatError(message);
}

/// Memory that another process fills. It is sealed against growing and against shrinking, which would crash
/// its readers.
Descriptor sharedMemory(std::uint64_t size, const std::string& path) {
    const auto require = [&](bool succeeded) {
        if (!succeeded)
            throw Anchor::LimitError(
                fmt::format("{}: there is not enough memory for the {} bytes to be read: {}",
                            Anchor::printable(path), size, std::generic_category().message(errno)));
    };
    Descriptor memory(::memfd_create("tidewatch", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    require(static_cast<bool>(memory));
    require(::ftruncate(memory.get(), static_cast<off_t>(size)) == 0);
    require(::fcntl(memory.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) == 0);
    return memory;
}

/// Whether this process may create a memory file of this size: the limit for files on disk applies to both.
bool mayHaveFileOf(std::uint64_t size) {
    rlimit limit{};
    return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           size <= limit.rlim_cur;
}

} // namespace

std::chrono::nanoseconds ApartSource::patience = std::chrono::seconds(20);

void requireSandbox(bool isRequired) noexcept {
    sandboxIsRequired = isRequired;
}

Sandbox probeSandbox() {
    auto& server = ReadingServer::instance();
    auto child = server.fork(ModuleKind::Bundles);
    std::optional<Channel::Message> answer;
    if (child.channel.send(MessageType::Probe))
        answer = child.channel.receive();
    server.end(child);
    if (!answer || answer->type != MessageType::Locked)
        throw Anchor::FileError("tidewatch-read: does not report what is in force");
    MessageReader reader(answer->payload);
    Sandbox sandbox;
    sandbox.seccomp = reader.byte() != 0;
    sandbox.landlock = reader.number32();
    sandbox.limits = reader.byte() != 0;
    return sandbox;
}

ApartSource::ApartSource(ModuleKind kind, const SourceFiles& files, std::uint64_t most)
    : path_(files.path),
      child_(ReadingServer::instance().fork(kind)) {
    std::vector<int> descriptors;
    std::vector<std::string> names;
    for (const SourceFiles::File& file : files.files) {
        // No real raster has that many companion files.
        if (descriptors.size() == Channel::mostDescriptors)
            break;
        descriptors.push_back(file.descriptor);
        names.push_back(file.name);
    }
    MessageWriter request;
    request.number64(most).byte(sandboxIsRequired ? 1 : 0).text(path_).texts(names);
    // A failure to open is the answer to the first request.
    isLost_ = !child_.channel.send(MessageType::Open, request, descriptors);
}

ApartSource::~ApartSource() {
    if (!isLost_ && ReadingServer::instance().isOurs(child_)) {
        try {
            ReadingServer::instance().end(child_);
        } catch (...) {
            // The process ends when its socket closes, at the latest.
        }
    }
}

bool ApartSource::isUsable() const {
    return !isLost_ && ReadingServer::instance().isOurs(child_);
}

void ApartSource::fail(const std::string& object, const std::string& what) {
    throw Anchor::FormatError(fmt::format("{}{}{}: {}", Anchor::printable(path_), object.empty() ? "" : ": ",
                                          Anchor::printable(object), what));
}

/// Takes the pieces of one array.
class ApartSource::Transfer {
public:
    Transfer(ApartSource& source, ArrayMemory& target, const Tick& tick)
        : source_(source),
          target_(target),
          tick_(tick),
          messages_(target.size()) {}

    /// Does some work that will be needed later; false if there is none.
    [[nodiscard]] bool prepare() {
        const bool hasMore = target_.provideMore();
        return provideShared() || hasMore;
    }

    /// Whether a message is about pieces; what it says is checked, and done by carryOut(). Throws Anchor::FormatError.
    [[nodiscard]] bool accept(MessageType type, MessageReader& message) {
        return messages_.accept(type, message, source_.memorySize_);
    }

    /// Does what the accepted message asks for; `share` is what the process has told of its progress. Throws what the target and the host throw. A process that is gone shows
    /// when its next message is awaited.
    void carryOut(double share) {
        share_ = share;
        const Apart::PieceMessages::Piece& piece = messages_.piece();
        auto& channel = source_.child_.channel;
        if (piece.type == MessageType::NeedMemory) {
            source_.memory_ = sharedMemory(piece.count, source_.path_);
            source_.memorySize_ = notShared_ = piece.count;
            const int descriptor = source_.memory_.get();
            static_cast<void>(channel.send(MessageType::Memory, {}, std::span(&descriptor, 1)));
            return;
        }
        const std::span<std::byte> target = target_.piece(piece.begin, piece.count, [this] { tick(); });
        if (piece.type == MessageType::Data) {
            std::copy(piece.bytes.begin(), piece.bytes.end(), reinterpret_cast<char*>(target.data()));
            return;
        }
        copy(piece.place, target);
        static_cast<void>(channel.send(MessageType::Taken));
    }

    [[nodiscard]] bool isComplete() const noexcept { return messages_.isComplete(); }

private:
    void tick() const {
        if (tick_)
            tick_(share_);
    }

    /// Lets the system provide some of a large memory file while the process fills it; false if nothing is left. A
    /// failure only means that the process does it.
    bool provideShared() {
        constexpr std::uint64_t block = std::uint64_t{4} << 20;
        const std::uint64_t begin = source_.memorySize_ - notShared_;
        const std::uint64_t size = std::min(block, notShared_);
        notShared_ = size != 0 && ::fallocate(source_.memory_.get(), 0, static_cast<off_t>(begin),
                                              static_cast<off_t>(size)) == 0
                         ? notShared_ - size
                         : 0;
        return notShared_ != 0;
    }

    void copy(std::uint64_t place, std::span<std::byte> target) const {
        // Copying gigabytes takes seconds, in which a host may want to stop.
        constexpr std::size_t block = std::size_t{16} << 20;
        for (std::size_t done = 0; done < target.size();) {
            const std::size_t size = std::min(block, target.size() - done);
            const ssize_t got =
                ::pread(source_.memory_.get(), target.data() + done, size, static_cast<off_t>(place + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                throw Anchor::FileError(Anchor::printable(source_.path_) + ": cannot copy what was read: " +
                                        std::generic_category().message(errno));
            done += static_cast<std::size_t>(got);
            if (done < target.size())
                tick();
        }
    }

    ApartSource& source_;
    ArrayMemory& target_;
    const Tick& tick_;
    double share_ = 0;
    Apart::PieceMessages messages_;
    std::uint64_t notShared_ = 0; // bytes at the end of a large memory file that the system has not provided
};

std::string ApartSource::ask(MessageType request, const MessageWriter& payload,
                             std::span<const int> descriptors, MessageType answer, const std::string& object,
                             const Tick& tick, Transfer* transfer) {
    auto& server = ReadingServer::instance();
    // Leaving this function without an answer means that the process is still busy and cannot be asked again.
    const bool isSent = !isLost_ && child_.channel.send(request, payload, descriptors);
    isLost_ = true;
    double share = 0;
    std::chrono::nanoseconds usedBefore{};
    bool isSilent = false; // then usedBefore is the time used when silence was first noticed
    bool hasWork = transfer != nullptr;
    while (isSent) {
        const Channel::Wait state =
            child_.channel.wait(hasWork ? std::chrono::milliseconds(0) : tickInterval);
        if (state == Channel::Wait::TimedOut && hasWork) {
            hasWork = transfer->prepare();
            if (tick)
                tick(share);
            continue;
        }
        if (state == Channel::Wait::TimedOut) {
            const auto used = server.processorTime(child_);
            if (used && isSilent && *used - usedBefore > patience) {
                server.end(child_);
                fail(object,
                     fmt::format(
                         "the process that reads it used {} s of processor time without answering, and was "
                         "stopped",
                         std::chrono::duration_cast<std::chrono::seconds>(patience).count()));
            }
            if (used && !isSilent) {
                usedBefore = *used;
                isSilent = true;
            }
            if (tick)
                tick(share);
            continue;
        }
        auto message = child_.channel.receive();
        if (!message)
            break;
        isSilent = false;
        bool isAccepted = false;
        try {
            MessageReader reader(message->payload);
            if (message->type == MessageType::Progress) {
                const double told = reader.real();
                share = std::isfinite(told) ? std::clamp(told, share, 1.0) : share;
            } else if (message->type == MessageType::Failed) {
                const std::uint8_t kind = reader.byte();
                const std::string text = Anchor::printable(reader.text());
                isLost_ = false;
                throwAs(kind, text.find(Anchor::printable(path_)) != std::string::npos
                                  ? text
                                  : Anchor::printable(path_) + ": " + text);
            } else if (transfer != nullptr && transfer->accept(message->type, reader)) {
                isAccepted = true;
            } else if (message->type == answer) {
                isLost_ = false;
                return std::move(message->payload);
            } else {
                break;
            }
        } catch (const Anchor::FormatError&) {
            if (!isLost_)
                throw;
            break; // a truncated message
        }
        if (isAccepted) {
            transfer->carryOut(share);
            hasWork = true;
        }
        if (tick)
            tick(share);
    }
    fail(object, "the process that reads it " + server.endingOf(child_));
}

bool ApartSource::isRecognised() {
    const std::string answer = ask(MessageType::Recognise, {}, {}, MessageType::Recognised, "", {});
    return answer == std::string(1, '\1');
}

Structure ApartSource::structure(const Tick& tick) {
    const std::string answer = ask(MessageType::Describe, {}, {}, MessageType::Described, "", tick);
    try {
        MessageReader reader(answer);
        Structure structure = reader.structure();
        reader.finish();
        return structure;
    } catch (const Anchor::FormatError& error) {
        fail("", std::string("the answer of the process that reads it ") + error.what());
    }
}

std::vector<std::string> ApartSource::read(const Structure::Array& array, ArrayMemory& target,
                                           std::uint64_t most, const Tick& tick) {
    constexpr std::uint64_t maxKeptBytes = std::uint64_t{64} << 20;
    const std::uint64_t size = target.size();
    const std::uint64_t needed = std::min(size, memoryForPieces);
    const bool isSent = size < minSharedBytes || !mayHaveFileOf(size);
    const bool isNew = !isSent && (!memory_ || memorySize_ < needed);
    if (isNew) {
        memory_ = sharedMemory(needed, path_);
        memorySize_ = needed;
    }
    MessageWriter request;
    request.array(array).number64(size).number64(most).byte(isSent ? 1 : 0);
    const int descriptor = memory_.get();
    Transfer transfer(*this, target, tick);
    const std::string answer = ask(MessageType::Read, request, std::span(&descriptor, isNew ? 1 : 0),
                                   MessageType::Done, array.object, tick, &transfer);
    if (!transfer.isComplete())
        fail(array.object, "the answer of the process that reads it is cut off");
    if (memorySize_ > maxKeptBytes) {
        memory_ = Descriptor();
        memorySize_ = 0;
    }
    try {
        return MessageReader(answer).texts();
    } catch (const Anchor::FormatError& error) {
        fail(array.object, std::string("the answer of the process that reads it ") + error.what());
    }
}

} // namespace Tidewatch
