// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/report/UsageError.hpp"

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace Tidewatch {

/// Adds an option that takes one value each time it is given. `parse` returns nullopt for an invalid text;
/// `store` gets each value.
template <class Parse, class Store>
CLI::Option* addRepeatable(CLI::App& app, const std::string& name, const std::string& placeholder,
                           Parse parse, Store store, const std::string& help) {
    return app
        .add_option_function<std::vector<std::string>>(
            name,
            [=](const std::vector<std::string>& texts) {
                for (const std::string& text : texts) {
                    const auto value = parse(text);
                    if (!value)
                        throw UsageError(fmt::format("{} takes {}, not \"{}\"", name, placeholder, text));
                    store(*value);
                }
            },
            help)
        ->type_name(placeholder)
        // The list would otherwise consume the inputs, too.
        ->allow_extra_args(false);
}

/// The same for an option that may be given only once.
template <class Parse, class Target>
CLI::Option* addValue(CLI::App& app, const std::string& name, const std::string& placeholder, Parse parse,
                      Target& target, const std::string& help) {
    return addRepeatable(
               app, name, placeholder, parse, [&target](const auto& value) { target = value; }, help)
        ->expected(1);
}

} // namespace Tidewatch
