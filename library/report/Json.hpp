// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace Tidewatch {

/// JSON with members in the order in which they were set.
using Json = nlohmann::ordered_json;

/// A document for standard output. Names from files may contain invalid UTF-8, which is replaced by U+FFFD.
[[nodiscard]] inline std::string jsonText(const Json& document) {
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace Tidewatch
