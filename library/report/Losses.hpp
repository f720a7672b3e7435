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
    /// For programs; docs/program.md lists them.
    std::string kind;
    /// For people.
    std::string message;
};

/// Collects losses; fields that are not carried become one entry, whatever number of grids they belong to.
class TIDEWATCH_API Losses {
public:
    void add(std::string_view kind, std::string message);
    /// A loss of one of several grids or files, named by `where`; what is said of several of them in the same
    /// words becomes one entry.
    void addOf(std::string_view where, std::string_view kind, std::string text);
    void addField(const std::string& name);
    /// What an input file holds and its part of the bundle does not.
    void addProperties(const ConvLib::InputReport& input);

    /// All of them, fields first. `format` is the name of the written format: "PCD".
    [[nodiscard]] std::vector<Loss> list(std::string_view format) const;

private:
    struct Entry {
        Loss loss;
        /// What the message is about; empty where it says so itself.
        std::vector<std::string> where;
    };

    std::set<std::string> fields_;
    std::vector<Entry> others_;
};

} // namespace Tidewatch
