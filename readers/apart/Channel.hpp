// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/apart/Message.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch::Apart {

/// A descriptor that belongs to an object.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return number_; }
    [[nodiscard]] explicit operator bool() const noexcept { return number_ >= 0; }
    void close() noexcept;

private:
    int number_ = -1;
};

/// One end of a pair of sockets over which messages and descriptors go. Descriptors that arrive are closed on
/// exec. Nothing throws because the other end is gone: that is an answer.
class Channel {
public:
    struct Message {
        MessageType type{};
        std::string payload;
        std::vector<Descriptor> descriptors;
    };

    /// What became of waiting for a message.
    enum class Wait : std::uint8_t { Ready, TimedOut, Ended };

    Channel() = default;
    explicit Channel(Descriptor socket) : socket_(std::move(socket)) {}

    /// Two ends that are connected. Throws Anchor::FileError.
    [[nodiscard]] static std::pair<Channel, Channel> pair();

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(socket_); }
    void close() noexcept { socket_.close(); }

    /// Sends a message, with copies of some descriptors; false when the other end is gone.
    bool send(MessageType type, const MessageWriter& payload = {}, std::span<const int> descriptors = {});

    /// Waits for something to arrive.
    [[nodiscard]] Wait wait(std::chrono::milliseconds most) const;

    /// Takes the next message, waiting for it; nothing when the other end is gone or sends what is none.
    [[nodiscard]] std::optional<Message> receive();

    /// How long a message may be, its type included.
    static constexpr std::uint32_t mostBytes = std::uint32_t{1} << 28;
    /// How many descriptors one message may carry.
    static constexpr std::size_t mostDescriptors = 64;

private:
    [[nodiscard]] bool receiveBytes(char* target, std::size_t size, std::vector<Descriptor>& descriptors);

    Descriptor socket_;
};

} // namespace Tidewatch::Apart
