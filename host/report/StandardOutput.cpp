// SPDX-License-Identifier: Apache-2.0
#include "host/report/StandardOutput.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Tidewatch {

void writeStandardOutput(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            throw Anchor::FileError("cannot write to standard output: " + systemMessage(errno));
    }
}

void openMissingStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // The system assigns the lowest free number, so this opens exactly the missing one.
        if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace Tidewatch
