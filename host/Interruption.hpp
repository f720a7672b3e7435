// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Tidewatch {

/// Thrown through an exporter or a reader when the user has asked the program to stop.
///
/// It is not a std::exception on purpose: code that turns exceptions into messages must not treat it as an
/// error.
struct Interrupted {
    /// What is to be said of the files.
    std::string outcome = "nothing was put in place";
};

/// Requests to stop by SIGINT, SIGTERM and SIGHUP.
class Interruption {
public:
    Interruption() = delete;

    /// From now on the first of these signals only records the request; a second one ends the process at
    /// once. If SIGHUP was ignored before (nohup), it stays ignored.
    static void install();

    [[nodiscard]] static bool isRequested() noexcept;

    /// Throws Interrupted if a request has been recorded.
    static void check();
};

} // namespace Tidewatch
