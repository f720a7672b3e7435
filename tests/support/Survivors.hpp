// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace Support {

/// Calls a function with the numbers below a count, in processes of their own, so that a crash, a hang or an
/// exception ends neither the test nor the calls that are left. Gives a line for each number that did not
/// come back within ten seconds, and for each whose call gave a text: its complaint. `most` bounds the memory
/// in MiB that such a process may have come to hold. A line begins with what `label` makes of the number.
inline std::string survivors(
    std::size_t count, long most, const std::function<std::string(std::size_t)>& call,
    const std::function<std::size_t(std::size_t)>& label = [](std::size_t i) { return i; }) {
    struct Shared {
        volatile std::size_t current;
        char complaint[4096];
    };
    void* const memory =
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error("cannot share memory with a child");
    auto& shared = *static_cast<Shared*>(memory);
    std::string complaints;
    constexpr std::size_t batch = 2000;
    for (std::size_t next = 0; next < count;) {
        const pid_t child = ::fork();
        if (child < 0)
            throw std::runtime_error("cannot start a child");
        if (child == 0) {
            const rlimit noCore{0, 0};
            ::setrlimit(RLIMIT_CORE, &noCore);
            for (std::size_t i = next; i < count && i < next + batch; ++i) {
                shared.current = i;
                ::alarm(10);
                std::string complaint;
                try {
                    complaint = call(i);
                } catch (const std::exception& error) {
                    complaint = std::string("unexpected: ") + error.what();
                }
                ::alarm(0);
                rusage usage{};
                ::getrusage(RUSAGE_SELF, &usage);
                if (complaint.empty() && usage.ru_maxrss / 1024 > most)
                    complaint = "holds " + std::to_string(usage.ru_maxrss / 1024) + " MiB";
                if (!complaint.empty()) {
                    complaint.copy(shared.complaint, sizeof shared.complaint - 1);
                    ::_exit(1);
                }
            }
            shared.current = next + batch;
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
            next = shared.current;
            continue;
        }
        complaints +=
            std::to_string(label(shared.current)) + ": " +
            (WIFSIGNALED(status)           ? "ended by signal " + std::to_string(WTERMSIG(status))
             : shared.complaint[0] != '\0' ? std::string(shared.complaint)
                                           : "ended with status " + std::to_string(WEXITSTATUS(status))) +
            '\n';
        for (char& character : shared.complaint)
            character = '\0';
        next = shared.current + 1;
    }
    ::munmap(memory, sizeof(Shared));
    return complaints;
}

} // namespace Support
