// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Console.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// The program's standard error: lines of text, and below them, on a terminal, one status line that is
/// redrawn in place.
///
/// What has no place in a message is escaped (Anchor::printable). For use by one thread. During its lifetime, console messages of the libraries go here, too, one line each,
/// subject to the verbosity. Of equal ones the first is shown at once, and the number of the others before the next
/// warning or error, or at the end; Verbosity::Verbose shows all.
class Messages {
public:
    enum class Verbosity {
        /// Everything.
        Verbose,
        /// Of the exporters' console messages, only those that say that something is not written.
        Normal,
        /// Errors only.
        Quiet
    };

    /// The caller owns `stream`.
    explicit Messages(Verbosity verbosity, std::FILE* stream = stderr);
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// Writes a line as it is, even when quiet: for output that was requested.
    void line(std::string_view text);

    /// Writes a line as it is, unless quiet.
    void note(std::string_view text);

    /// "tidewatch: warning: TEXT", unless quiet.
    void warning(std::string_view text);

    /// "tidewatch: TEXT".
    void error(std::string_view text);

    /// Replaces the status line, cut to the width of the terminal; an empty text removes it.
    void status(std::string_view text);

    /// Whether the stream is a terminal on which a status line can be redrawn.
    [[nodiscard]] bool canRedraw() const;

private:
    void takeConsoleMessage(std::string_view message);
    void tellRepeats();

    std::FILE* stream_;
    Verbosity verbosity_;
    std::string status_;
    struct Repeats {
        std::string message;
        /// Besides the one that was shown.
        std::uint64_t more = 0;
    };
    std::vector<Repeats> repeats_;
    Anchor::Console::Sink earlierSink_;
};

} // namespace Tidewatch
