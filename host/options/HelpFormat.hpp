// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
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

    // Help texts are wrapped here, so that they need no line breaks.
    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        const std::string left = "  " + make_option_name(option, isPositional) + make_option_opts(option);
        const std::size_t column = get_column_width();
        const std::string start = left.size() < column ? left + std::string(column - left.size(), ' ')
                                                       : left + "\n" + std::string(column, ' ');
        return start + wrapped(make_option_desc(option), column) + "\n";
    }

    std::string make_footer(const CLI::App* app) const override {
        const std::string footer = app->get_footer();
        return footer.empty() ? footer : wrapped(footer, 0) + "\n";
    }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        std::string text = wrapped(app->get_description(), 0) + "\n" + make_usage(app, std::move(name));
        for (const std::string& group : app->get_groups()) {
            const auto options = app->get_options([&](const CLI::Option* option) {
                return option->nonpositional() && option->get_group() == group;
            });
            if (!options.empty())
                text += make_group(group, false, options);
        }
        return text + make_subcommands(app, mode) + "\n" + make_footer(app);
    }

private:
    static constexpr std::size_t width = 80;

    /// Breaks lines between words so that those after the first begin at a column and none exceeds the width. Lines that
    /// begin with a space are left as they are: users copy them.
    [[nodiscard]] static std::string wrapped(const std::string& text, std::size_t column) {
        std::string result;
        std::size_t place = column;
        bool isVerbatim = false;
        for (std::size_t begin = 0; begin <= text.size();) {
            const std::size_t end = std::min(text.find_first_of(" \n", begin), text.size());
            const std::string word = text.substr(begin, end - begin);
            const bool startsLine = begin == 0 || text[begin - 1] == '\n';
            if (startsLine)
                isVerbatim = word.empty() && end < text.size() && text[end] == ' ';
            if (begin != 0 && startsLine) {
                result += "\n" + std::string(column, ' ');
                place = column;
            } else if (!startsLine && !isVerbatim && place + 1 + word.size() > width) {
                result += "\n" + std::string(column, ' ');
                place = column;
            } else if (!startsLine) {
                result += ' ';
                ++place;
            }
            result += word;
            place += word.size();
            begin = end + 1;
        }
        return result;
    }
};

} // namespace Tidewatch
