// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/TemporaryFolder.hpp"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include <sys/wait.h>

namespace Tidewatch {

/// What a run of the program left.
struct ProgramResult {
    /// The exit status; 128 + the number of the signal that ended the program.
    int status = -1;
    std::string out;
    std::string err;
};

/// The built program as a separate process.
class ProgramRunner {
public:
    using Arguments = std::vector<std::string>;

    /// Runs to the end. The program works in the folder `place`; `prepare` is called in the new process just
    /// before the program takes it over.
    static ProgramResult run(const std::string& place, const Arguments& arguments,
                             const std::function<void()>& prepare = {}) {
        ProgramRunner runner(place, arguments, prepare);
        return runner.finish();
    }

    ProgramRunner(const std::string& place, const Arguments& arguments,
                  const std::function<void()>& prepare = {}) {
        std::vector<char*> words{const_cast<char*>(TIDEWATCH_PROGRAM_PATH)};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        const std::string out = streams_ / "out";
        const std::string err = streams_ / "err";
        process_ = ::fork();
        if (process_ < 0)
            throw std::runtime_error("cannot fork");
        if (process_ == 0) {
            if (!redirect(STDOUT_FILENO, out) || !redirect(STDERR_FILENO, err) || ::chdir(place.c_str()) != 0)
                ::_exit(126);
            if (prepare)
                prepare();
            ::execv(words[0], words.data());
            ::_exit(127);
        }
    }
    ~ProgramRunner() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
        }
    }
    ProgramRunner(const ProgramRunner&) = delete;
    ProgramRunner& operator=(const ProgramRunner&) = delete;

    void send(int signal) const { ::kill(process_, signal); }

    /// Whether the program still runs; its status is kept for finish() otherwise.
    [[nodiscard]] bool isRunning() {
        if (!ended_ && ::waitpid(process_, &waitStatus_, WNOHANG) == process_)
            ended_ = true;
        return !ended_;
    }

    ProgramResult finish() {
        if (!ended_)
            ::waitpid(process_, &waitStatus_, 0);
        process_ = -1;
        const int status = WIFEXITED(waitStatus_) ? WEXITSTATUS(waitStatus_) : 128 + WTERMSIG(waitStatus_);
        return {status, Support::readBytes(streams_ / "out"), Support::readBytes(streams_ / "err")};
    }

private:
    static bool redirect(int descriptor, const std::string& path) {
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        return file >= 0 && ::dup2(file, descriptor) >= 0 && ::close(file) == 0;
    }

    Support::TemporaryFolder streams_;
    pid_t process_ = -1;
    bool ended_ = false;
    int waitStatus_ = 0;
};

} // namespace Tidewatch
