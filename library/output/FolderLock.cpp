// SPDX-License-Identifier: Apache-2.0
#include "library/output/FolderLock.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <thread>

#include <fmt/format.h>
#include <sys/file.h>

namespace Tidewatch {

FolderLock::FolderLock(const std::filesystem::path& folder,
                       const std::function<void(const std::string&)>& say, const std::function<void()>& check)
    : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_.isOpen())
        throw Anchor::FileError(fmt::format("{}: cannot open: {}", folder.string(), systemMessage(errno)));
    constexpr auto interval = std::chrono::milliseconds(20);
    constexpr int intervalsBeforeSaying = 50;
    int intervals = 0;
    while (::flock(folder_.number(), LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR)) {
        if (intervals++ == intervalsBeforeSaying && say)
            say(fmt::format("waiting for another run that adds to files in {}", folder.string()));
        if (check)
            check();
        std::this_thread::sleep_for(interval);
    }
}

} // namespace Tidewatch
