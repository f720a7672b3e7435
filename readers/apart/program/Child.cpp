// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/program/Child.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace Tidewatch::Apart {

namespace {

/// Thrown when the other end is closed.
struct Gone {};

std::uint64_t sizeOf(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

/// Maps memory of the library, to be filled here.
class Mapping {
public:
    explicit Mapping(int descriptor) : size_(sizeOf(descriptor)) {
        if (size_ == 0)
            return;
        memory_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        if (memory_ == MAP_FAILED)
            throw Anchor::LimitError(fmt::format("there is not enough memory for the {} bytes to be read: {}",
                                                 size_, std::generic_category().message(errno)));
    }
    ~Mapping() {
        if (size_ != 0)
            ::munmap(memory_, size_);
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    [[nodiscard]] std::span<std::byte> bytes() const { return {static_cast<std::byte*>(memory_), size_}; }

private:
    void* memory_ = nullptr;
    std::uint64_t size_;
};

/// The array that is read for the library, passed on piece after piece: in memory of the library, or in messages where
/// the library asks for these.
class Pieces final : public ArrayMemory {
public:
    /// `memory` is null for messages; otherwise it may be replaced.
    Pieces(Channel& channel, std::uint64_t size, std::unique_ptr<Mapping>* memory)
        : channel_(channel),
          size_(size),
          memory_(memory) {}

    [[nodiscard]] std::uint64_t size() const override { return size_; }

    [[nodiscard]] std::span<std::byte> piece(std::uint64_t begin, std::uint64_t count,
                                             const std::function<void()>&) override {
        if (begin > size_ || count > size_ - begin)
            throw Anchor::FormatError("a piece lies outside its array");
        // Small ones are passed on together.
        const bool isJoined = current_.count != 0 && begin == current_.begin + current_.count &&
                              current_.count + count <= goodMessage && count <= room() - next_;
        if (!isJoined) {
            passOn();
            if (memory_ != nullptr && (!*memory_ || (*memory_)->bytes().size() < count))
                enlarge(count);
            if (count > room() - next_)
                next_ = 0;
            current_ = {begin, 0, next_};
        }
        // What the library has not taken yet stays.
        const Piece added{begin, count, next_};
        while (filled_.size() >= mostFilled ||
               std::any_of(filled_.begin(), filled_.end(),
                           [&](const Piece& piece) { return added.overlaps(piece); }))
            awaitTaken();
        current_.count += count;
        next_ += count;
        if (memory_ != nullptr)
            return (*memory_)->bytes().subspan(added.place, count);
        own_.resize(next_);
        return std::span(own_).subspan(added.place, count);
    }

    /// Calls `read` with this memory, and passes all of it on.
    template <class Read>
    auto fill(Read&& read) {
        try {
            auto result = read(static_cast<ArrayMemory&>(*this));
            passOn();
            awaitAll();
            return result;
        } catch (const Gone&) {
            throw;
        } catch (...) {
            awaitAll();
            throw;
        }
    }

private:
    struct Piece {
        std::uint64_t begin = 0;
        std::uint64_t count = 0;
        std::uint64_t place = 0; // in the memory

        [[nodiscard]] bool overlaps(const Piece& other) const noexcept {
            return place < other.place + other.count && other.place < place + count;
        }
    };

    void send(MessageType type, const MessageWriter& payload) {
        if (!channel_.send(type, payload))
            throw Gone{};
    }

    [[nodiscard]] Channel::Message receive(MessageType type) {
        auto message = channel_.receive();
        if (!message || message->type != type)
            throw Gone{};
        return std::move(*message);
    }

    /// How much memory there is for pieces; for messages, as much as they need.
    [[nodiscard]] std::uint64_t room() const {
        return memory_ == nullptr ? std::numeric_limits<std::uint64_t>::max() : (*memory_)->bytes().size();
    }

    /// Passes on the piece that has been filled.
    void passOn() {
        const Piece piece = std::exchange(current_, {});
        if (piece.count == 0)
            return;
        if (memory_ != nullptr) {
            filled_.push_back(piece);
            send(MessageType::Filled,
                 MessageWriter().number64(piece.begin).number64(piece.count).number64(piece.place));
            return;
        }
        for (std::uint64_t done = 0; done < piece.count; done += goodMessage) {
            const auto part = std::span(own_).subspan(done, std::min(goodMessage, piece.count - done));
            send(MessageType::Data, MessageWriter()
                                        .number64(piece.begin + done)
                                        .raw({reinterpret_cast<const char*>(part.data()), part.size()}));
        }
        next_ = 0;
    }

    void awaitTaken() {
        static_cast<void>(receive(MessageType::Taken));
        filled_.pop_front();
    }

    void awaitAll() {
        while (!filled_.empty())
            awaitTaken();
    }

    void enlarge(std::uint64_t count) {
        awaitAll();
        send(MessageType::NeedMemory, MessageWriter().number64(count));
        const auto answer = receive(MessageType::Memory);
        if (answer.descriptors.size() != 1)
            throw Gone{};
        memory_->reset();
        *memory_ = std::make_unique<Mapping>(answer.descriptors.front().get());
        if ((*memory_)->bytes().size() < count)
            throw Gone{};
        next_ = 0;
    }

    // Of messages with bytes, and of small pieces together.
    static constexpr std::uint64_t goodMessage = std::uint64_t{512} << 10;
    // If the library's answers were not read, it could not send any more of them after some hundred.
    static constexpr std::size_t mostFilled = 16;

    Channel& channel_;
    std::uint64_t size_;
    std::unique_ptr<Mapping>* memory_;
    std::uint64_t next_ = 0; // where the next piece begins in the memory, if there is room
    Piece current_;          // what has been given out since the last message
    std::deque<Piece> filled_;
    std::vector<std::byte> own_;
};

/// What a child does: serves one file.
class FileServer {
public:
    FileServer(Channel& channel, const SourceModule& module) : channel_(channel), module_(module) {}

    /// Takes the file and locks the process; false when there is nothing to serve.
    bool take(const std::function<Lockdown::InForce(std::uint64_t most)>& lock) {
        auto request = channel_.receive();
        if (!request)
            return false;
        MessageReader reader(request->payload);
        if (request->type == MessageType::Probe) {
            const auto inForce = lock(0);
            answer(MessageType::Locked, MessageWriter()
                                            .byte(inForce.seccomp ? 1 : 0)
                                            .number32(inForce.landlock)
                                            .byte(inForce.limits ? 1 : 0));
            return false;
        }
        if (request->type != MessageType::Open)
            return false;
        const std::uint64_t most = reader.number64();
        const bool isLockRequired = reader.byte() != 0;
        files_.path = reader.text();
        const auto names = reader.texts();
        if (names.empty() || names.size() != request->descriptors.size())
            return false;
        descriptors_ = std::move(request->descriptors);
        for (std::size_t i = 0; i < names.size(); ++i)
            files_.files.push_back({names[i], descriptors_[i].get(), sizeOf(descriptors_[i].get())});
        const auto inForce = lock(most);
        if (isLockRequired && !(inForce.seccomp && inForce.limits))
            refusal_ =
                fmt::format("{}: is not read, since the process that reads it cannot be locked here ({})",
                            files_.path, inForce.seccomp ? "no limits" : "no seccomp");
        return true;
    }

    /// Answers one request; false when there are no more.
    bool serve() {
        const auto request = channel_.receive();
        if (!request)
            return false;
        try {
            answerTo(*request);
        } catch (const Anchor::FileError& error) {
            fail(ErrorKind::File, error.what());
        } catch (const Anchor::LimitError& error) {
            fail(ErrorKind::Limit, error.what());
        } catch (const Anchor::ModelError& error) {
            fail(ErrorKind::Model, error.what());
        } catch (const std::bad_alloc&) {
            fail(ErrorKind::Limit, files_.path + ": there is not enough memory to read it");
        } catch (const std::exception& error) {
            fail(ErrorKind::Format, error.what());
        }
        return true;
    }

private:
    void answer(MessageType type, const MessageWriter& payload) {
        if (!channel_.send(type, payload))
            throw Gone{};
    }

    void fail(ErrorKind kind, const std::string& message) {
        answer(MessageType::Failed, MessageWriter().byte(static_cast<std::uint8_t>(kind)).text(message));
    }

    Source& source() {
        if (!source_)
            source_ = module_.open(files_);
        return *source_;
    }

    void answerTo(const Channel::Message& request) {
        if (!refusal_.empty())
            throw Anchor::FileError(refusal_);
        const Source::Tick tick = [this](double share) {
            answer(MessageType::Progress, MessageWriter().real(share));
        };
        MessageReader reader(request.payload);
        switch (request.type) {
        case MessageType::Recognise:
            answer(MessageType::Recognised, MessageWriter().byte(module_.recognises(files_) ? 1 : 0));
            return;
        case MessageType::Describe:
            answer(MessageType::Described, MessageWriter().structure(source().structure(tick)));
            return;
        case MessageType::Read: {
            const Structure::Array array = reader.array();
            const std::uint64_t size = reader.number64();
            const std::uint64_t most = reader.number64();
            const bool isSent = reader.byte() != 0;
            if (!request.descriptors.empty())
                memory_ = std::make_unique<Mapping>(request.descriptors.front().get());
            Pieces pieces(channel_, size, isSent ? nullptr : &memory_);
            const auto remarks =
                pieces.fill([&](ArrayMemory& target) { return source().read(array, target, most, tick); });
            answer(MessageType::Done, MessageWriter().texts(remarks));
            return;
        }
        default:
            throw Anchor::FormatError("the request is not known");
        }
    }

    Channel& channel_;
    const SourceModule& module_;
    SourceFiles files_;
    std::vector<Descriptor> descriptors_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<Mapping> memory_;
    std::string refusal_;
};

} // namespace

void serveFile(Channel& channel, const SourceModule& module,
               const std::function<Lockdown::InForce(std::uint64_t most)>& lock) {
    try {
        FileServer server(channel, module);
        if (!server.take(lock))
            return;
        while (server.serve()) {
        }
    } catch (const Gone&) {
    } catch (const Anchor::FormatError&) {
        // The library has the same version as this program, so an invalid request is not worth an answer.
    }
}

} // namespace Tidewatch::Apart
