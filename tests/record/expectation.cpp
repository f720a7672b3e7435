// SPDX-License-Identifier: Apache-2.0
#include "record/expectation.hpp"

#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace Record {

namespace {

void writeLines(const std::filesystem::path& path, const std::vector<std::string>& lines) {
    std::filesystem::create_directories(path.parent_path());
    std::string text;
    for (const std::string& line : lines)
        text.append(line).append("\n");
    Support::writeBytes(path, text);
}

std::vector<std::string> readLines(const std::filesystem::path& path) {
    const std::string text = Support::readBytes(path);
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

} // namespace

std::string difference(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
    const auto [left, right] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    if (left == expected.end() && right == actual.end())
        return {};
    constexpr std::size_t context = 5;
    constexpr std::size_t behind = 8;
    const auto place = static_cast<std::size_t>(left - expected.begin());
    std::string text = "the lists part at line " + std::to_string(place + 1) + " of " +
                       std::to_string(expected.size()) + " (now " + std::to_string(actual.size()) + "):\n";
    for (std::size_t i = place - std::min(place, context); i < place; ++i)
        text += "    " + expected[i] + "\n";
    for (std::size_t i = place; i < std::min(place + behind, expected.size()); ++i)
        text += "  - " + expected[i] + "\n";
    for (std::size_t i = place; i < std::min(place + behind, actual.size()); ++i)
        text += "  + " + actual[i] + "\n";
    return text;
}

bool isBeingRecorded() {
    const char* const update = std::getenv("TIDEWATCH_RECORD_UPDATE");
    return update != nullptr && std::string_view(update) == "1";
}

void expectRecorded(const std::string& name, const std::vector<std::string>& lines) {
    const std::filesystem::path path = std::filesystem::path(TIDEWATCH_RECORD_EXPECTED) / (name + ".txt");
    if (isBeingRecorded()) {
        writeLines(path, lines);
        GTEST_SKIP() << name << " has been recorded anew";
    }
    if (!std::filesystem::exists(path))
        FAIL() << "nothing is recorded as " << name << "; TIDEWATCH_RECORD_UPDATE=1 records it";
    const std::string parting = difference(readLines(path), lines);
    if (!parting.empty())
        ADD_FAILURE() << name << ": " << parting;
}

void dump(const std::string& name, const std::vector<std::string>& lines) {
    if (const char* const folder = std::getenv("TIDEWATCH_RECORD_DUMP"))
        writeLines(std::filesystem::path(folder) / (name + ".txt"), lines);
}

} // namespace Record
