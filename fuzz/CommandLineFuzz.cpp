// SPDX-License-Identifier: Apache-2.0
//
// Parses arbitrary bytes, split at line ends, as the arguments of the program. Whatever they are, they become a request or
// wrong usage with a message. Nothing is run.
#include "host/CommandLine.hpp"
#include "library/report/UsageError.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words;
    for (std::string_view rest(reinterpret_cast<const char*>(data), size); !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        // Arguments end at a zero byte.
        words.emplace_back(std::string(rest.substr(0, end)).c_str());
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    // Tries the sandbox in a process of its own.
    if (std::find(words.begin(), words.end(), "--version") != words.end())
        return 0;
    std::vector<const char*> arguments;
    arguments.reserve(words.size());
    for (const std::string& word : words)
        arguments.push_back(word.c_str());
    try {
        static_cast<void>(Tidewatch::parseCommandLine(arguments));
    } catch (const Tidewatch::UsageError& error) {
        if (std::string_view(error.what()).empty())
            std::abort();
    }
    return 0;
}
