// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkFile.hpp"

#include "anchor/Error.hpp"
#include "convlib/Reader.hpp"
#include "library/check/checkBundle.hpp"
#include "library/check/checkEsriGrid.hpp"
#include "library/check/checkLas.hpp"
#include "library/check/checkPcd.hpp"
#include "library/check/checkSystem.hpp"
#include "library/check/kinds.hpp"
#include "readers/InputFile.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace Tidewatch {

namespace {

/// Whether a text may consist of numbers only.
bool isOfNumbers(std::string_view head) {
    constexpr std::string_view characters = "0123456789+-.,;eE \t\r\nnainf";
    return head.find_first_not_of(characters) == std::string_view::npos &&
           head.find_first_of("0123456789") != std::string_view::npos;
}

bool isPcd(std::string_view head) {
    if (head.starts_with("# .PCD"))
        return true;
    // Comments may precede the first entry.
    while (head.starts_with('#')) {
        const std::size_t end = head.find('\n');
        if (end == std::string_view::npos)
            return false;
        head.remove_prefix(end + 1);
    }
    return head.starts_with("VERSION ") && head.find("\nFIELDS ") != std::string_view::npos;
}

bool isWellKnownText(std::string_view head) {
    constexpr std::array<std::string_view, 12> words{"PROJCS[",  "GEOGCS[",      "GEOCCS[",  "COMPD_CS[",
                                                     "VERT_CS[", "LOCAL_CS[",    "PROJCRS[", "GEOGCRS[",
                                                     "GEODCRS[", "COMPOUNDCRS[", "VERTCRS[", "BOUNDCRS["};
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return head.starts_with(word); });
}

/// Why a file is not checked; empty for all others.
std::string_view unchecked(std::string_view head) {
    if (head.starts_with("\x89PNG\r\n"))
        return "pictures are not checked";
    if (head.starts_with("<!DOCTYPE html") || head.starts_with("<!doctype html"))
        return "pages are not checked";
    if (isOfNumbers(head))
        return "XYZ text and lists of values have no header, so nothing says what they should hold; they are not "
               "checked";
    return {};
}

void checkEmpty(CheckReport& report) {
    // The exporter writes such files when cells have no types.
    const std::string extension = std::filesystem::path(report.file()).extension();
    if (extension == ".grd" || extension == ".asc")
        report.note(Kind::notChecked, {}, "the file is empty; tidewatch ascii says why when it writes one");
    else
        report.fault(Kind::format, {}, "the file is empty");
}

void checkByContent(CheckReport& report, const CheckOptions& options,
                    const Anchor::StrongPtr<Progress>& progress) {
    std::vector<std::uint8_t> bytes(ConvLib::Reader::headSize);
    const InputFile file(report.file());
    bytes.resize(file.readUpTo(0, bytes));
    const std::string_view head(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (head.empty())
        return checkEmpty(report);
    if (head.starts_with("LASF"))
        return checkLas(report, progress);
    if (isPcd(head))
        return checkPcd(report, progress);
    if (looksLikeEsriGrid(head))
        return checkEsriGrid(report, progress);
    if (isWellKnownText(head)) {
        report.setFormat("well-known text");
        std::vector<std::uint8_t> text(std::min<std::uint64_t>(file.size(), std::uint64_t{1} << 20));
        text.resize(file.readUpTo(0, text));
        return checkSystemText(report, {}, {text.begin(), text.end()});
    }
    if (const std::string_view why = unchecked(head); !why.empty())
        return report.note(Kind::notChecked, {}, std::string(why));
    const auto readers = ConvLib::registeredReaders();
    const bool isKnown = std::any_of(readers.begin(), readers.end(), [&](const auto& reader) {
        return reader->recognises(report.file(), std::as_bytes(std::span(bytes)));
    });
    if (isKnown)
        return checkBundle(report, options, progress);
    report.fault(
        Kind::format, {},
        "not recognised: it is neither a LAS, LAZ, PCD or bundle file nor an ESRI ASCII grid or another "
        "raster");
}

} // namespace

CheckReport checkFile(const std::string& path, const CheckOptions& options,
                      const Anchor::StrongPtr<Progress>& progress) {
    CheckReport report(path);
    if (progress)
        progress->check();
    try {
        checkByContent(report, options, progress);
    } catch (const Anchor::Error& error) {
        report.faultOf(Kind::file, error.what());
    }
    return report;
}

} // namespace Tidewatch
