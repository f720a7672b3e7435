// SPDX-License-Identifier: Apache-2.0
#include "library/input/fileLists.hpp"

#include "anchor/Error.hpp"
#include "library/output/systemFiles.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace Tidewatch {

namespace {

std::string contentOf(int file, const std::string& name) {
    std::string content;
    std::array<char, 65536> block{};
    for (;;) {
        const ssize_t size = ::read(file, block.data(), block.size());
        if (size > 0)
            content.append(block.data(), static_cast<std::size_t>(size));
        else if (size == 0)
            return content;
        else if (errno != EINTR)
            throw Anchor::FileError(name + ": cannot be read: " + systemMessage(errno));
    }
}

void addNames(std::string_view content, const std::string& list, std::vector<std::string>& names) {
    const std::size_t before = names.size();
    const bool hasNul = content.find('\0') != std::string_view::npos;
    while (!content.empty()) {
        const std::size_t end = content.find(hasNul ? '\0' : '\n');
        std::string_view name = content.substr(0, end);
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        if (!hasNul && name.ends_with('\r')) // lists of other systems
            name.remove_suffix(1);
        if (!name.empty())
            names.emplace_back(name);
    }
    if (names.size() == before)
        throw UsageError(list + ": the list has no names of files");
}

} // namespace

std::vector<std::string> namedInputs(const std::vector<std::string>& arguments) {
    std::vector<std::string> names;
    bool hasReadInput = false;
    for (const std::string& argument : arguments) {
        if (argument == "-") {
            if (hasReadInput)
                throw UsageError("- stands for the names on standard input, and was given twice");
            hasReadInput = true;
            addNames(contentOf(STDIN_FILENO, "standard input"), "standard input", names);
        } else if (argument.size() > 1 && argument.front() == '@') {
            const std::string list = argument.substr(1);
            const Descriptor file(::open(list.c_str(), O_RDONLY | O_CLOEXEC));
            if (!file.isOpen())
                throw Anchor::FileError(list + ": cannot be opened: " + systemMessage(errno));
            addNames(contentOf(file.number(), list), list, names);
        } else {
            names.push_back(argument);
        }
    }
    return names;
}

} // namespace Tidewatch
