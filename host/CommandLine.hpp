// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/bundle/BundleCommand.hpp"
#include "host/check/CheckCommand.hpp"
#include "host/export/ExportCommand.hpp"
#include "host/info/InfoCommand.hpp"
#include "host/sample/SampleCommand.hpp"
#include "host/view/ViewCommand.hpp"

#include <span>
#include <string>
#include <variant>

namespace Tidewatch {

/// `--help` or `--version`: a text for standard output.
struct TextRequest {
    std::string text;

    [[nodiscard]] int run() const;
};

/// What the user requests. Each alternative has `int run() const`, which returns the exit status.
using Request = std::variant<TextRequest, LasRequest, PcdRequest, AsciiRequest, InfoRequest, BundleRequest,
                             SampleRequest, ViewRequest, CheckRequest>;

/// Parses the arguments of the program, without its name. Reads nothing; inputs are as they were given. Throws UsageError.
[[nodiscard]] Request parseCommandLine(std::span<const char* const> arguments);

/// Replaces lists among the inputs by the names in them: namedInputs(), which says what it throws.
void readLists(Request& request);

} // namespace Tidewatch
