// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/program/Child.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <system_error>

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace Tidewatch::Apart {

namespace {

/// Thrown when the other end is closed.
struct Gone {};

/// Maps memory of the library, to be filled here.
class Mapping {
public:
    Mapping(int descriptor, std::uint64_t size) : size_(size) {
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
    static std::uint64_t sizeOf(int descriptor) {
        struct stat status {};
        return ::fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
    }

    void answer(MessageType type, const MessageWriter& payload) {
        if (!channel_.send(type, payload))
            throw Gone{};
    }

    void fail(ErrorKind kind, const std::string& message) {
        answer(MessageType::Failed, MessageWriter().byte(static_cast<std::uint8_t>(kind)).text(message));
    }

    /// For a library that may not create shared memory.
    void sendArray(const Structure::Array& array, std::uint64_t size, std::uint64_t most,
                   const Source::Tick& tick) {
        constexpr std::size_t pieceSize = std::size_t{1} << 20;
        std::vector<std::byte> elements(size);
        GivenMemory target(elements);
        const auto remarks = source().read(array, target, most, tick);
        for (std::size_t done = 0; done < elements.size(); done += pieceSize) {
            const auto piece = std::span(elements).subspan(done, std::min(pieceSize, elements.size() - done));
            answer(MessageType::Data,
                   MessageWriter().raw({reinterpret_cast<const char*>(piece.data()), piece.size()}));
        }
        answer(MessageType::Done, MessageWriter().texts(remarks));
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
            if (reader.byte() != 0) {
                sendArray(array, size, most, tick);
                return;
            }
            if (!request.descriptors.empty()) {
                const int memory = request.descriptors.front().get();
                memory_.reset();
                memory_ = std::make_unique<Mapping>(memory, sizeOf(memory));
            }
            if (!memory_ || size > memory_->bytes().size())
                throw Anchor::FormatError("the request has no memory for its answer");
            GivenMemory target(memory_->bytes().first(size));
            const auto remarks = source().read(array, target, most, tick);
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
