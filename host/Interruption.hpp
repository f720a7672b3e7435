// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Tidewatch {

/// Thrown through an exporter or a reader when the user has asked the program to stop.
///
/// It is not a std::exception on purpose: code on the way that turns exceptions into messages of its own must
/// not take it for an error.
struct Interrupted {};

/// The wish to stop: SIGINT, SIGTERM and SIGHUP.
class Interruption {
public:
    Interruption() = delete;

    /// From now on the first of these signals only notes the wish; a second one ends the process at once.
    /// A hang-up that was ignored before (nohup) stays ignored.
    static void install();

    [[nodiscard]] static bool isRequested() noexcept;

    /// Throws Interrupted when the wish has been noted.
    static void check();
};

} // namespace Tidewatch
