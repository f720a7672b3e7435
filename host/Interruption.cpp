// SPDX-License-Identifier: Apache-2.0
#include "host/Interruption.hpp"

#include <atomic>
#include <csignal>

namespace Tidewatch {

namespace {

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not take a lock");

constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};

void setAction(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    // The libraries read and write files without handling EINTR.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

extern "C" void recordRequest(int) {
    requested = true;
    for (const int signal : signals) {
        struct sigaction current {};
        sigaction(signal, nullptr, &current);
        if (current.sa_handler != SIG_IGN)
            setAction(signal, SIG_DFL);
    }
}

} // namespace

void Interruption::install() {
    for (const int signal : signals) {
        struct sigaction current {};
        sigaction(signal, nullptr, &current);
        // A script's background processes ignore SIGINT; if it is sent to one explicitly, that is intended.
        if (signal != SIGHUP || current.sa_handler != SIG_IGN)
            setAction(signal, recordRequest);
    }
}

bool Interruption::isRequested() noexcept {
    return requested;
}

void Interruption::check() {
    if (requested)
        throw Interrupted();
}

} // namespace Tidewatch
