// SPDX-License-Identifier: Apache-2.0
#include "host/Losses.hpp"

#include "host/Wording.hpp"

#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

void Losses::add(std::string_view kind, std::string message) {
    others_.push_back({std::string(kind), std::move(message)});
}

void Losses::addField(const std::string& name) {
    fields_.insert(name);
}

void Losses::addProperties(const ConvLib::InputReport& input) {
    const std::vector<std::string> properties = input.notCarried();
    if (!properties.empty())
        add("properties", fmt::format("{}: not carried: {}", input.file(), joined(properties)));
}

std::vector<Loss> Losses::list(std::string_view format) const {
    std::vector<Loss> all;
    if (!fields_.empty())
        all.push_back(
            {"fields", fmt::format("{} does not carry the field{} {}", format, fields_.size() == 1 ? "" : "s",
                                   joined({fields_.begin(), fields_.end()}))});
    all.insert(all.end(), others_.begin(), others_.end());
    return all;
}

} // namespace Tidewatch
