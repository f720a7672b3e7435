// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Console.hpp"

#include <cstdio>
#include <string>
#include <string_view>

namespace Tidewatch {

/// The program's standard error: lines of text, and below them, on a terminal, one status line that is drawn
/// anew in place.
///
/// Used by one thread. While it lives, console messages of the libraries come here too, a line each.
class Messages {
public:
    enum class Loudness {
        /// Everything.
        Normal,
        /// Errors only.
        Quiet
    };

    /// `stream` stays the caller's.
    explicit Messages(Loudness loudness, std::FILE* stream = stderr);
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// A line as it stands, also when quiet: what somebody has asked for.
    void line(std::string_view text);

    /// A line as it stands, unless quiet.
    void note(std::string_view text);

    /// "tidewatch: warning: TEXT", unless quiet.
    void warning(std::string_view text);

    /// "tidewatch: TEXT".
    void error(std::string_view text);

    /// Shows a status line, cut to the width of the terminal, in the place of the one before; empty takes it
    /// away.
    void status(std::string_view text);

    /// Whether the stream is a terminal on which a status line can be drawn anew.
    [[nodiscard]] bool canRedraw() const;

private:
    std::FILE* stream_;
    bool quiet_;
    std::string status_;
    Anchor::Console::Sink earlierSink_;
};

} // namespace Tidewatch
