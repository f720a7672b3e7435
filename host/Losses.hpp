// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/InputReport.hpp"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// What an export does not carry, or not as it was.
struct Loss {
    /// For programs: "fields", "properties", "overwritten", "skipped", "rounding", "count", "intensity",
    /// "color".
    std::string kind;
    /// For people.
    std::string message;
};

/// Collects losses; fields that are not carried become one entry, whatever number of grids they belong to.
class Losses {
public:
    void add(std::string_view kind, std::string message);
    void addField(const std::string& name);
    /// What an input file holds and its part of the bundle does not.
    void addProperties(const ConvLib::InputReport& input);

    /// All of them, fields first. `format` is the name of the written format: "PCD".
    [[nodiscard]] std::vector<Loss> list(std::string_view format) const;

private:
    std::set<std::string> fields_;
    std::vector<Loss> others_;
};

} // namespace Tidewatch
