// SPDX-License-Identifier: Apache-2.0
#include "anchor/Console.hpp"

#include "anchor/NeverDestroyed.hpp"

#include <charconv>
#include <cstdio>
#include <mutex>
#include <utility>

namespace Anchor {

namespace {

struct SharedSink {
    std::mutex mutex;
    Console::Sink sink;
};

thread_local const Console::ThreadSink* sinkOfThread = nullptr;

SharedSink& sharedSink() {
    // Never destroyed: messages may still come from destructors that run at the end of the process.
    static NeverDestroyed<SharedSink> shared;
    return shared.get();
}

} // namespace

Console::~Console() {
    try {
        if (sinkOfThread != nullptr) {
            sinkOfThread->sink_(text_);
            return;
        }
        SharedSink& shared = sharedSink();
        const std::lock_guard lock(shared.mutex);
        if (shared.sink) {
            shared.sink(text_);
        } else {
            text_ += '\n';
            std::fwrite(text_.data(), 1, text_.size(), stderr);
        }
    } catch (...) {
        // A message that cannot be shown must not end the export that it is about.
    }
}

Console& Console::operator<<(const char* text) {
    text_ += text != nullptr ? text : "";
    return *this;
}

Console& Console::operator<<(std::string_view text) {
    text_ += text;
    return *this;
}

Console& Console::operator<<(char character) {
    text_ += character;
    return *this;
}

Console& Console::operator<<(int number) {
    return decimal(static_cast<long long>(number));
}

Console& Console::decimal(long long number) {
    text_ += std::to_string(number);
    return *this;
}

Console& Console::decimal(unsigned long long number) {
    text_ += std::to_string(number);
    return *this;
}

Console& Console::operator<<(double number) {
    char digits[32];
    text_.append(digits,
                 std::to_chars(digits, digits + sizeof digits, number, std::chars_format::general, 6).ptr);
    return *this;
}

Console::ThreadSink::ThreadSink(Sink sink)
    : sink_(std::move(sink)),
      earlier_(std::exchange(sinkOfThread, this)) {}

Console::ThreadSink::~ThreadSink() {
    sinkOfThread = earlier_;
}

Console::Sink Console::setSink(Sink sink) {
    SharedSink& shared = sharedSink();
    const std::lock_guard lock(shared.mutex);
    return std::exchange(shared.sink, std::move(sink));
}

} // namespace Anchor
