// SPDX-License-Identifier: Apache-2.0
//
// tidewatch-read: reads bundle files and rasters for the library that starts it, see ReadingServer.
#include "readers/apart/program/Server.hpp"

#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include <sys/socket.h>
#include <sys/stat.h>

namespace {

/// The socket whose number the library passes; -1 if it is not a socket.
int socketOf(std::string_view argument) {
    int number = -1;
    int type = 0;
    socklen_t size = sizeof type;
    const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), number);
    const bool isSocket = error == std::errc() && end == argument.data() + argument.size() && number > 2 &&
                          ::getsockopt(number, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
    return isSocket ? number : -1;
}

/// Closes all inherited descriptors except the socket.
void keepOnly(int socket) {
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
#ifdef TIDEWATCH_ADDRESS_SANITIZER
    constexpr int lastReplaced = 1; // reports go to standard error
#else
    constexpr int lastReplaced = 2;
#endif
    for (int number = 0; number <= lastReplaced; ++number)
        ::dup2(nothing, number);
    ::close_range(3, static_cast<unsigned>(socket) - 1, 0);
    ::close_range(static_cast<unsigned>(socket) + 1, ~0U, 0);
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    if (::chdir("/") != 0)
        ::_exit(1);
    ::umask(077);
}

} // namespace

int main(int argc, char** argv) {
    const int socket = argc == 2 ? socketOf(argv[1]) : -1;
    if (socket < 0) {
        std::fputs("tidewatch-read " TIDEWATCH_VERSION
                   ": is started by tidewatch to read files; see tidewatch --help\n",
                   stderr);
        return 2;
    }
    keepOnly(socket);
    try {
        Tidewatch::Apart::serveLibrary(Tidewatch::Apart::Channel(Tidewatch::Apart::Descriptor(socket)));
    } catch (...) {
        ::_exit(1);
    }
    ::_exit(0);
}
