// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Console.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace Support {

/// Collects console messages for as long as it lives.
class ConsoleCapture {
public:
    ConsoleCapture()
        : before_(Anchor::Console::setSink([this](std::string_view text) { messages.emplace_back(text); })) {}
    ~ConsoleCapture() { Anchor::Console::setSink(before_); }
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    std::vector<std::string> messages;

private:
    Anchor::Console::Sink before_;
};

} // namespace Support
