// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace Anchor {

/// One console message: a temporary that collects text and hands it over as a whole when it is destroyed.
///
///     Anchor::Console() << "Data at T=" << time;
///
/// Numbers do not depend on the locale: an int is written in decimal, a double with up to six significant
/// digits as printf's "%g" does.
class TIDEWATCH_API Console {
public:
    /// Receives each message once, without a line end. Called on the thread that wrote the message, never by
    /// two threads at once. It must not write console messages itself; what it throws is swallowed.
    using Sink = std::function<void(std::string_view message)>;

    Console() = default;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    Console& operator<<(const char* text);
    Console& operator<<(const std::string& text);
    Console& operator<<(int number);
    Console& operator<<(double number);

    /// Sends messages to a sink of the host's from now on; an empty sink stands for standard error, a line a
    /// message, which is also where messages go before the first call. Returns the sink that was in place.
    static Sink setSink(Sink sink);

private:
    std::string text_;
};

} // namespace Anchor
