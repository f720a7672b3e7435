// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/Channel.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <system_error>
#include <unistd.h>

#include <sys/socket.h>

namespace Tidewatch::Apart {

namespace {

// Length (u32, of what follows) and type (u8).
constexpr std::size_t headSize = 5;

// Messages are received in pieces of this size, so that a false length costs no memory.
constexpr std::size_t pieceSize = std::size_t{1} << 20;

} // namespace

void Descriptor::close() noexcept {
    if (number_ >= 0)
        ::close(std::exchange(number_, -1));
}

std::pair<Channel, Channel> Channel::pair() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw Anchor::FileError("cannot connect to the process that reads files: " +
                                std::generic_category().message(errno));
    return {Channel(Descriptor(ends[0])), Channel(Descriptor(ends[1]))};
}

bool Channel::send(MessageType type, const MessageWriter& payload, std::span<const int> descriptors) {
    const std::size_t length = payload.bytes().size() + 1;
    if (length > mostBytes || descriptors.size() > mostDescriptors)
        throw Anchor::LimitError("contains more than one message between processes can hold");
    std::array<char, headSize> head{};
    for (std::size_t i = 0; i < 4; ++i)
        head[i] = static_cast<char>(length >> (8 * i) & 0xff);
    head[4] = static_cast<char>(type);

    std::array<iovec, 2> parts{};
    parts[0] = {head.data(), head.size()};
    parts[1] = {const_cast<char*>(payload.bytes().data()), payload.bytes().size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        cmsghdr* const first = CMSG_FIRSTHDR(&message);
        first->cmsg_level = SOL_SOCKET;
        first->cmsg_type = SCM_RIGHTS;
        first->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(first), descriptors.data(), descriptors.size_bytes());
    }
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const ssize_t sent = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        message.msg_control = nullptr;
        message.msg_controllen = 0;
        auto left = static_cast<std::size_t>(sent);
        for (iovec& part : parts) {
            const std::size_t taken = std::min(left, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + taken;
            part.iov_len -= taken;
            left -= taken;
        }
    }
    return true;
}

Channel::Wait Channel::wait(std::chrono::milliseconds most) const {
    pollfd entry{socket_.get(), POLLIN, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(most.count()));
    if (ready < 0)
        return errno == EINTR ? Wait::TimedOut : Wait::Ended;
    return ready == 0 ? Wait::TimedOut : Wait::Ready;
}

bool Channel::receiveBytes(char* target, std::size_t size, std::vector<Descriptor>& descriptors) {
    while (size > 0) {
        iovec part{target, size};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> control{};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t got = ::recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry != nullptr;
             entry = CMSG_NXTHDR(&message, entry)) {
            if (entry->cmsg_level != SOL_SOCKET || entry->cmsg_type != SCM_RIGHTS)
                continue;
            const std::size_t count = (entry->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i) {
                int number = -1;
                std::memcpy(&number, CMSG_DATA(entry) + i * sizeof(int), sizeof number);
                descriptors.emplace_back(number);
            }
        }
        if ((message.msg_flags & MSG_CTRUNC) != 0 || descriptors.size() > mostDescriptors)
            return false;
        target += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

std::optional<Channel::Message> Channel::receive() {
    Message message;
    std::array<char, headSize> head{};
    if (!receiveBytes(head.data(), head.size(), message.descriptors))
        return std::nullopt;
    std::uint32_t length = 0;
    for (std::size_t i = 4; i-- > 0;)
        length = length << 8 | static_cast<unsigned char>(head[i]);
    if (length == 0 || length > mostBytes)
        return std::nullopt;
    message.type = static_cast<MessageType>(head[4]);
    const std::size_t size = length - 1;
    while (message.payload.size() < size) {
        const std::size_t before = message.payload.size();
        message.payload.resize(std::min(size, before + pieceSize));
        if (!receiveBytes(message.payload.data() + before, message.payload.size() - before,
                          message.descriptors))
            return std::nullopt;
    }
    return message;
}

} // namespace Tidewatch::Apart
