// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/InputReport.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Something that an export drops or changes.
struct Loss {
    /// For programs; docs/program.md lists the kinds.
    std::string kind;
    /// A text for the user.
    std::string message;
};

/// All kinds, as docs/program.md lists them.
inline constexpr std::array<std::string_view, 17> lossKinds{
    "fields",   "properties", "overwritten", "joined",    "empty", "skipped",
    "thinning", "rounding",   "characters",  "intensity", "color", "range",
    "units",    "shift",      "count",       "no-data",   "filter"};

/// What is to be done about losses.
struct TIDEWATCH_API LossPolicy {
    /// Whether a loss keeps files from being put in place.
    bool strict = false;
    /// Kinds that are fine.
    std::set<std::string, std::less<>> accepted = {};

    /// Whether a list has a loss that keeps files from being put in place.
    [[nodiscard]] bool refuses(const std::vector<Loss>& losses) const;

    /// What is to be shown of a list: losses whose kind is not accepted, at most three of a kind, the last of which may say
    /// how many more there are and, by `remedy`, where they are to be seen ("; --json lists all").
    [[nodiscard]] std::vector<Loss> shown(const std::vector<Loss>& losses, std::string_view remedy) const;
};

/// Collects losses; all dropped fields become one entry, however many grids they belong to.
class TIDEWATCH_API Losses {
public:
    void add(std::string_view kind, std::string message);
    /// A loss of one of several grids or files, named by `where`; losses with the same kind and text become
    /// one entry.
    void addOf(std::string_view where, std::string_view kind, std::string text);
    void addField(const std::string& name);
    /// Adds the contents of an input file that are not in the bundle; `byCellTypes`: only cells of some types were taken.
    void addProperties(const ConvLib::InputReport& input, bool byCellTypes = false);

    /// Adds those of another collection, as if they had been added one by one.
    void add(const Losses& others);

    /// All of them, fields first. `format` is the name of the written format: "PCD".
    [[nodiscard]] std::vector<Loss> list(std::string_view format) const;

private:
    struct Entry {
        Loss loss;
        /// The grids or files concerned; empty if the message names them itself.
        std::vector<std::string> where;
    };

    std::set<std::string> fields_;
    std::vector<Entry> others_;
    /// The entries that name several grids or files, by kind and text.
    std::map<std::pair<std::string, std::string>, std::size_t> shared_;
};

} // namespace Tidewatch
