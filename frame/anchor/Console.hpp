// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <concepts>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Anchor {

/// One console message: a temporary object that collects text and emits it as a whole when it is destroyed.
///
///     Anchor::Console() << "Data at T=" << time;
///
/// Numbers do not depend on the locale: an integer is written in decimal, a double with up to six significant
/// digits as printf's "%g" does.
class TIDEWATCH_API Console {
public:
    /// Receives each message once, without a newline. Called on the thread that wrote the message, never by
    /// two threads at once. It must not write console messages itself; exceptions that it throws are ignored.
    using Sink = std::function<void(std::string_view message)>;

    Console() = default;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    Console& operator<<(const char* text);
    Console& operator<<(std::string_view text);
    Console& operator<<(char character);
    Console& operator<<(int number);
    Console& operator<<(double number);

    /// Any other integer type, such as std::size_t or std::int64_t.
    template <std::integral T>
    Console& operator<<(T number) {
        if constexpr (std::is_signed_v<T>)
            return decimal(static_cast<long long>(number));
        else
            return decimal(static_cast<unsigned long long>(number));
    }

    /// Sends messages to the host's sink from now on; an empty sink means standard error, one line per
    /// message, which is also the default. Returns the previous sink.
    static Sink setSink(Sink sink);

    /// Redirects the console messages of the current thread while the object exists. Must be destroyed on the thread that
    /// created it, in reverse order of creation.
    class TIDEWATCH_API ThreadSink {
    public:
        explicit ThreadSink(Sink sink);
        ~ThreadSink();
        ThreadSink(const ThreadSink&) = delete;
        ThreadSink& operator=(const ThreadSink&) = delete;

    private:
        friend class Console;
        Sink sink_;
        const ThreadSink* earlier_;
    };

private:
    Console& decimal(long long number);
    Console& decimal(unsigned long long number);

    std::string text_;
};

} // namespace Anchor
