// SPDX-License-Identifier: Apache-2.0
#include "library/report/ErrorParts.hpp"

namespace Tidewatch {

namespace {

constexpr std::string_view colon = ": ";

/// Cuts the name of a file or an object off a text; nothing if the text begins with what is wrong.
std::string cutName(std::string_view& text) {
    const std::size_t end = text.find(colon);
    if (end == std::string_view::npos)
        return {};
    const std::string_view part = text.substr(0, end);
    // "cannot open: No such file or directory", "not recognised (known: LAS/LAZ file, ...)".
    const bool isCause =
        part.starts_with("cannot ") || part.rfind('(') + 1 > part.rfind(')') + 1; // npos + 1 is 0
    if (isCause)
        return {};
    text.remove_prefix(end + colon.size());
    return std::string(part);
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
        parts.file = cutName(text);
    }
    parts.object = cutName(text);
    parts.cause = text;
    return parts;
}

} // namespace Tidewatch
