// SPDX-License-Identifier: Apache-2.0
#include "library/report/Losses.hpp"

#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

bool LossPolicy::refuses(const std::vector<Loss>& losses) const {
    return strict && std::any_of(losses.begin(), losses.end(),
                                 [&](const Loss& loss) { return !accepted.contains(loss.kind); });
}

std::vector<Loss> LossPolicy::shown(const std::vector<Loss>& losses, std::string_view remedy) const {
    // Hundreds of inputs may give hundreds of messages of one kind.
    constexpr std::size_t shownOfKind = 3;
    std::map<std::string, std::vector<const Loss*>> byKind;
    std::vector<std::string> kinds; // in their order
    for (const Loss& loss : losses) {
        if (accepted.contains(loss.kind))
            continue;
        auto& ofKind = byKind[loss.kind];
        if (ofKind.empty())
            kinds.push_back(loss.kind);
        ofKind.push_back(&loss);
    }
    std::vector<Loss> result;
    for (const std::string& kind : kinds) {
        const auto& ofKind = byKind[kind];
        // If only one message would be left, it is shown instead of the line about it.
        const std::size_t shown = ofKind.size() > shownOfKind ? shownOfKind - 1 : ofKind.size();
        for (std::size_t i = 0; i < shown; ++i)
            result.push_back(*ofKind[i]);
        if (shown != ofKind.size())
            result.push_back({kind, fmt::format("... and {} more of kind {}{}",
                                                grouped(ofKind.size() - shown), kind, remedy)});
    }
    return result;
}

void Losses::add(std::string_view kind, std::string message) {
    others_.push_back({{std::string(kind), std::move(message)}, {}});
}

void Losses::addOf(std::string_view where, std::string_view kind, std::string text) {
    const auto [entry, isNew] = shared_.try_emplace({std::string(kind), text}, others_.size());
    if (isNew)
        others_.push_back({{std::string(kind), std::move(text)}, {}});
    others_[entry->second].where.emplace_back(where);
}

void Losses::add(const Losses& others) {
    fields_.insert(others.fields_.begin(), others.fields_.end());
    for (const auto& [loss, places] : others.others_) {
        if (places.empty())
            add(loss.kind, loss.message);
        for (const std::string& where : places)
            addOf(where, loss.kind, loss.message);
    }
}

void Losses::addField(const std::string& name) {
    fields_.insert(name);
}

void Losses::addProperties(const ConvLib::InputReport& input, bool byCellTypes) {
    std::vector<std::string> properties = input.notCarried();
    if (byCellTypes) {
        for (std::string& lost : input.lostByCellTypes())
            properties.push_back(std::move(lost));
    }
    if (!properties.empty())
        add("properties", fmt::format("{}: not carried: {}", input.file(), joined(properties)));
}

std::vector<Loss> Losses::list(std::string_view format) const {
    std::vector<Loss> all;
    if (!fields_.empty())
        all.push_back(
            {"fields", fmt::format("{} does not carry the field{} {}", format, fields_.size() == 1 ? "" : "s",
                                   joined({fields_.begin(), fields_.end()}))});
    for (const auto& [loss, where] : others_) {
        all.push_back({loss.kind, where.empty() ? loss.message : listed(where) + ": " + loss.message});
    }
    return all;
}

} // namespace Tidewatch
