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

/// Owns a file descriptor.
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

/// One end of a socket pair that carries messages and descriptors. Received descriptors are close-on-exec. A
/// closed other end is reported in the result, not thrown.
class Channel {
public:
    struct Message {
        MessageType type{};
        std::string payload;
        std::vector<Descriptor> descriptors;
    };

    /// The result of waiting for a message.
    enum class Wait : std::uint8_t { Ready, TimedOut, Ended };

    Channel() = default;
    explicit Channel(Descriptor socket) : socket_(std::move(socket)) {}

    /// Two ends that are connected. Throws Anchor::FileError.
    [[nodiscard]] static std::pair<Channel, Channel> pair();

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(socket_); }
    void close() noexcept { socket_.close(); }

    /// Sends a message, with copies of some descriptors; false when the other end is closed.
    bool send(MessageType type, const MessageWriter& payload = {}, std::span<const int> descriptors = {});

    /// Waits for something to arrive.
    [[nodiscard]] Wait wait(std::chrono::milliseconds most) const;

    /// Waits for the next message; nothing when the other end is closed or sends something invalid.
    [[nodiscard]] std::optional<Message> receive();

    /// The max length of a message, including its type.
    static constexpr std::uint32_t mostBytes = std::uint32_t{1} << 28;
    /// The max number of descriptors in a message.
    static constexpr std::size_t mostDescriptors = 64;

private:
    [[nodiscard]] bool receiveBytes(char* target, std::size_t size, std::vector<Descriptor>& descriptors);

    Descriptor socket_;
};

} // namespace Tidewatch::Apart
