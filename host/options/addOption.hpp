// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/options/OptionValues.hpp"
#include "library/report/UsageError.hpp"

#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace Tidewatch {

/// How help and errors describe the value of an option.
struct Placeholder {
    Placeholder(const std::string& inHelp) : name(inHelp), takes(inHelp) {}
    Placeholder(const char* inHelp) : Placeholder(std::string(inHelp)) {}
    Placeholder(std::string inHelp, std::string inErrors)
        : name(std::move(inHelp)),
          takes(std::move(inErrors)) {}

    /// In help: "VERSION".
    std::string name;
    /// In errors: "1.2, 1.3 or 1.4".
    std::string takes;
};

/// Adds an option that takes one value each time it is given. `parse` returns nullopt for an invalid text, or
/// throws InvalidValue with a more specific message; `store` gets each value.
template <class Parse, class Store>
CLI::Option* addRepeatable(CLI::App& app, const std::string& name, const Placeholder& placeholder,
                           Parse parse, Store store, const std::string& help) {
    return app
        .add_option_function<std::vector<std::string>>(
            name,
            [=](const std::vector<std::string>& texts) {
                const std::string shown = name.substr(name.rfind(',') + 1);
                for (const std::string& text : texts) {
                    const auto value = [&] {
                        try {
                            return parse(text);
                        } catch (const InvalidValue& fault) {
                            throw UsageError(fmt::format("{} {}: {}", shown, text, fault.what()));
                        }
                    }();
                    if (!value)
                        throw UsageError(
                            fmt::format("{} takes {}, not \"{}\"", shown, placeholder.takes, text));
                    store(*value);
                }
            },
            help)
        ->type_name(placeholder.name)
        // The list would otherwise consume the inputs, too.
        ->allow_extra_args(false);
}

/// The same for an option that may be given only once.
template <class Parse, class Target>
CLI::Option* addValue(CLI::App& app, const std::string& name, const Placeholder& placeholder, Parse parse,
                      Target& target, const std::string& help) {
    return addRepeatable(
               app, name, placeholder, parse, [&target](const auto& value) { target = value; }, help)
        ->expected(1);
}

} // namespace Tidewatch
