// SPDX-License-Identifier: Apache-2.0
#include "library/report/ErrorParts.hpp"

namespace Tidewatch {

namespace {

constexpr std::string_view colon = ": ";

/// Cuts what is before the first colon off a text; nothing if there is none.
std::string cutPart(std::string_view& text) {
    const std::size_t end = text.find(colon);
    if (end == std::string_view::npos)
        return {};
    const std::string part(text.substr(0, end));
    text.remove_prefix(end + colon.size());
    return part;
}

} // namespace

ErrorParts ErrorParts::of(std::string_view text, std::string_view file) {
    ErrorParts parts;
    const bool isKnown =
        !file.empty() && text.starts_with(file) && text.substr(file.size()).starts_with(colon);
    if (isKnown) {
        parts.file = file;
        text.remove_prefix(file.size() + colon.size());
    } else if (file.empty()) {
        parts.file = cutPart(text);
    }
    parts.object = cutPart(text);
    parts.cause = text;
    return parts;
}

} // namespace Tidewatch
