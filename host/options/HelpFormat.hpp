// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>

#include <CLI/CLI.hpp>

namespace Tidewatch {

/// Shows usage lines in the style of manual pages.
class HelpFormat final : public CLI::Formatter {
public:
    HelpFormat() { column_width(30); }

    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string line = "\nUsage: " + name;
        if (app->get_parent() == nullptr)
            return line + " COMMAND [OPTION]... INPUT... -o OUTPUT\n";
        line += " [OPTION]...";
        for (const CLI::Option* option : app->get_options()) {
            if (option->get_positional())
                line += " " + option->get_name() + "...";
        }
        for (const CLI::Option* option : app->get_options()) {
            if (option->get_required() && !option->get_positional())
                line += " -" + option->get_snames().front() + " " + option->get_type_name();
        }
        return line + "\n";
    }

    // The help texts themselves give types and defaults.
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() || option->get_type_size() == 0 ? std::string()
                                                                        : " " + option->get_type_name();
    }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        std::string text = app->get_description() + "\n" + make_usage(app, std::move(name));
        for (const std::string& group : app->get_groups()) {
            const auto options = app->get_options([&](const CLI::Option* option) {
                return option->nonpositional() && option->get_group() == group;
            });
            if (!options.empty())
                text += make_group(group, false, options);
        }
        return text + make_subcommands(app, mode) + "\n" + make_footer(app);
    }
};

} // namespace Tidewatch
