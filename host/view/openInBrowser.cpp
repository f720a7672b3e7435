// SPDX-License-Identifier: Apache-2.0
#include "host/view/openInBrowser.hpp"

#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <unistd.h>

namespace Tidewatch {

bool openInBrowser(const std::string& path) {
    // Its output must not appear on our terminal, and it may run as long as the browser.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // In a separate session, so that a signal from this program's terminal does not end the browser.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    std::string program = "xdg-open";
    // An absolute path is never taken for an option.
    std::string file = std::filesystem::absolute(path).string();
    char* const arguments[] = {program.data(), file.data(), nullptr};
    pid_t process = 0;
    const int status = ::posix_spawnp(&process, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

} // namespace Tidewatch
