// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkEsriGrid.hpp"

#include "anchor/printable.hpp"
#include "library/check/TextScanner.hpp"
#include "library/check/checkSystem.hpp"
#include "library/check/kinds.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Item = TextScanner::Item;

/// In lower case.
constexpr std::array<std::string_view, 10> keys{"ncols",     "nrows",       "xllcorner", "xllcenter",
                                                "yllcorner", "yllcenter",   "cellsize",  "dx",
                                                "dy",        "nodata_value"};

constexpr std::string_view usualNoData = "-9999";

/// The header key that a word is, or nothing.
std::optional<std::string_view> keyOf(std::string_view word) {
    const auto* const key = std::find_if(keys.begin(), keys.end(),
                                         [&](std::string_view known) { return isSameWord(known, word); });
    return key != keys.end() ? std::optional(*key) : std::nullopt;
}

/// The header of a grid, which may be incomplete or wrong.
class GridHeader {
public:
    /// `place` is that of the header's first entry.
    explicit GridHeader(std::string place) : place_(std::move(place)) {}

    void take(std::string_view key, std::string_view value, CheckReport& report) {
        if (!values_.emplace(key, value).second)
            report.fault(Kind::header, place_, fmt::format("{} appears twice", key));
    }

    /// Returns whether the numbers of columns and rows are known.
    bool check(CheckReport& report) {
        const auto isThere = [&](const char* key) { return values_.contains(key); };
        bool isUsable = true;
        for (const char* const key : {"ncols", "nrows"}) {
            const auto count = isThere(key) ? countOf(values_.at(key)) : std::nullopt;
            isUsable = isUsable && count.has_value();
            if (!isThere(key))
                report.fault(Kind::header, place_, fmt::format("{} is missing", key));
            else if (!count)
                report.fault(Kind::header, place_,
                             fmt::format("{} is {}, which is not a number of cells", key, shown(key)));
        }
        for (const char* const axis : {"x", "y"}) {
            const std::string corner = std::string(axis) + "llcorner";
            const std::string center = std::string(axis) + "llcenter";
            if (values_.contains(corner) == values_.contains(center))
                report.fault(Kind::header, place_,
                             fmt::format("there has to be one of {} and {}", corner, center));
            checkFinite(corner, report);
            checkFinite(center, report);
        }
        checkCellSize(report);
        checkNoData(report);
        if (!isUsable)
            return false;
        columns = *countOf(values_.at("ncols"));
        rows = *countOf(values_.at("nrows"));
        if (columns == 0 || rows == 0)
            report.note(Kind::cells, place_, "the grid has no cells");
        return true;
    }

    std::uint64_t columns = 0;
    std::uint64_t rows = 0;
    std::optional<double> noData = {};

    [[nodiscard]] const std::string& place() const noexcept { return place_; }

private:
    [[nodiscard]] std::string shown(const std::string& key) const {
        return Anchor::printable(values_.at(key));
    }

    void checkFinite(const std::string& key, CheckReport& report) const {
        const auto entry = values_.find(key);
        if (entry == values_.end())
            return;
        const auto value = numberOf(entry->second);
        if (!value || !std::isfinite(*value))
            report.fault(Kind::header, place_,
                         fmt::format("{} is {}, which is not a number", key, shown(key)));
    }

    void checkCellSize(CheckReport& report) const {
        std::vector<std::string> names{"cellsize"};
        if (values_.contains("dx") || values_.contains("dy"))
            names = {"dx", "dy"};
        for (const std::string& name : names) {
            const auto entry = values_.find(name);
            if (entry == values_.end()) {
                report.fault(Kind::header, place_, name + " is missing");
                continue;
            }
            const auto size = numberOf(entry->second);
            // The exporter writes three decimals.
            if (entry->second == "0.000")
                report.warning(Kind::cellSize, place_,
                               name +
                                   " is 0.000: cells of less than 0.0005 are rounded to 0 in three decimals");
            else if (!size || !std::isfinite(*size) || !(*size > 0))
                report.fault(Kind::cellSize, place_, fmt::format("{} is {}", name, shown(name)));
        }
    }

    void checkNoData(CheckReport& report) {
        const auto entry = values_.find("nodata_value");
        if (entry == values_.end()) {
            noData = numberOf(usualNoData);
            report.note(Kind::noData, place_,
                        fmt::format("there is no NODATA_VALUE; {} stands for it then", usualNoData));
            return;
        }
        noData = numberOf(entry->second);
        if (!noData)
            report.fault(Kind::noData, place_,
                         fmt::format("NODATA_VALUE is {}, which is not a number", shown("nodata_value")));
    }

    std::string place_;
    std::map<std::string, std::string, std::less<>> values_;
};

/// Detects a sequence of grids of bytes as the exporter writes them with a precision: each value as the
/// character with its code, between two blanks. The characters may be blanks and newlines themselves.
class CharacterGrids {
public:
    explicit CharacterGrids(const std::string& path) : bytes_(path) {}

    [[nodiscard]] bool areThere() {
        if (!advance())
            return false;
        while (byte_) {
            if (!takeGrid())
                return false;
        }
        return true;
    }

private:
    bool advance() {
        byte_ = bytes_.next();
        return byte_.has_value();
    }

    /// Consumes the text; false if something else is there.
    bool take(std::string_view text) {
        for (const char character : text) {
            if (byte_ != static_cast<std::uint8_t>(character))
                return false;
            advance();
        }
        return true;
    }

    std::optional<std::string> takeLine() {
        constexpr std::size_t longest = 400;
        std::string line;
        while (byte_ && *byte_ != '\n' && line.size() < longest) {
            line += static_cast<char>(*byte_);
            advance();
        }
        return take("\n") ? std::optional(line) : std::nullopt;
    }

    std::optional<std::uint64_t> takeCount(std::string_view key) {
        const auto line = take(key) ? takeLine() : std::nullopt;
        return line ? countOf(*line) : std::nullopt;
    }

    bool takeGrid() {
        const auto columns = takeCount("NCOLS ");
        const auto rows = columns ? takeCount("NROWS ") : std::nullopt;
        if (!rows)
            return false;
        for (const std::string_view key : {"XLLCENTER ", "YLLCENTER ", "CELLSIZE "}) {
            if (!take(key) || !takeLine())
                return false;
        }
        if (!take("NODATA_VALUE -9999.\n"))
            return false;
        for (std::uint64_t row = 0; row < *rows; ++row) {
            for (std::uint64_t column = 0; column < *columns; ++column) {
                if (!takeCell())
                    return false;
            }
            if (!take("\n"))
                return false;
        }
        return true;
    }

    bool takeCell() {
        if (byte_ != static_cast<std::uint8_t>(' '))
            return take("-9999. ");
        // Any character.
        return advance() && (advance(), take(" "));
    }

    ByteReader bytes_;
    std::optional<std::uint8_t> byte_;
};

class EsriGridCheck {
public:
    EsriGridCheck(CheckReport& report, const Anchor::StrongPtr<Progress>& progress)
        : report_(report),
          scanner_(report.file(), progress) {}

    void run() {
        Item item = scanner_.next();
        while (item != Item::FileEnd) {
            if (item == Item::LineEnd) {
                item = scanner_.next();
                continue;
            }
            ++grids_;
            if (grids_ == 2)
                report_.note(
                    Kind::severalGrids, scanner_.place(),
                    "another grid begins here, and most programs read only the first; tidewatch ascii "
                    "without --append writes a file for each");
            item = takeGrid();
        }
    }

private:
    /// Starts at a word and stops at the first word of another grid, or at the end of the file.
    Item takeGrid() {
        GridHeader header(scanner_.place());
        Item item = Item::Word;
        while (item == Item::Word) {
            const auto key = keyOf(scanner_.word());
            if (!key)
                break;
            item = scanner_.next();
            if (item != Item::Word) {
                report_.fault(Kind::header, scanner_.place(), fmt::format("{} has no value", *key));
            } else {
                header.take(*key, scanner_.word(), report_);
                item = scanner_.next();
            }
            while (item == Item::LineEnd)
                item = scanner_.next();
        }
        const bool isUsable = header.check(report_);
        return takeValues(header, isUsable, item);
    }

    Item takeValues(const GridHeader& header, bool isUsable, Item item) {
        Repeated wrongRows;
        Repeated wrongNumbers;
        Repeated notFinite;
        std::uint64_t rows = 0;
        std::uint64_t total = 0;
        std::uint64_t empty = 0;
        std::uint64_t inRow = 0;
        for (; item != Item::FileEnd; item = scanner_.next()) {
            if (item == Item::LineEnd) {
                if (inRow != 0) {
                    ++rows;
                    if (inRow != header.columns)
                        wrongRows.take(scanner_, [&] {
                            return fmt::format("it has {}, {} columns are stated", counted(inRow, "value"),
                                               grouped(header.columns));
                        });
                }
                inRow = 0;
                continue;
            }
            const std::string_view word = scanner_.word();
            if (inRow == 0 && keyOf(word))
                break;
            ++inRow;
            ++total;
            const auto value = numberOf(word);
            if (!value)
                wrongNumbers.take(
                    scanner_, [&] { return fmt::format("\"{}\" is not a number", Anchor::printable(word)); });
            else if (*value == header.noData)
                ++empty;
            else if (!std::isfinite(*value))
                notFinite.take(scanner_, [&] { return fmt::format("a value is {}", word); });
        }
        if (wrongNumbers.count != 0)
            report_.fault(Kind::values, wrongNumbers.place, wrongNumbers.message, wrongNumbers.count);
        if (notFinite.count != 0)
            report_.note(Kind::notFinite, notFinite.place, notFinite.message, notFinite.count);
        if (total != 0 && empty == total)
            report_.note(Kind::noData, header.place(), "no cell has a value");
        if (isUsable)
            checkCells(header, rows, total, wrongRows);
        return item;
    }

    void checkCells(const GridHeader& header, std::uint64_t rows, std::uint64_t total,
                    const Repeated& wrongRows) {
        const bool isRight = header.columns == 0
                                 ? total == 0
                                 : total % header.columns == 0 && total / header.columns == header.rows;
        if (!isRight && wrongRows.count != 0)
            report_.fault(Kind::cells, wrongRows.place, wrongRows.message, wrongRows.count);
        else if (!isRight)
            report_.fault(Kind::cells, header.place(),
                          fmt::format("{} of cells are stated, there are {}", counted(header.rows, "row"),
                                      grouped(rows)));
        else if (wrongRows.count != 0)
            report_.note(Kind::cells, wrongRows.place, "lines are not rows; " + wrongRows.message,
                         wrongRows.count);
    }

    CheckReport& report_;
    TextScanner scanner_;
    std::uint64_t grids_ = 0;
};

void checkPrj(CheckReport& report) {
    namespace fs = std::filesystem;
    const fs::path path = fs::path(report.file()).replace_extension(".prj");
    std::error_code ignored;
    if (!fs::is_regular_file(path, ignored)) {
        report.note(Kind::noSystem, {}, "there is no coordinate reference system: no .prj file is beside it");
        return;
    }
    const InputFile file(path);
    constexpr std::uint64_t longest = std::uint64_t{1} << 20;
    std::vector<std::uint8_t> bytes(std::min(file.size(), longest));
    bytes.resize(file.readUpTo(0, bytes));
    checkSystemText(report, path.filename(), {bytes.begin(), bytes.end()});
}

} // namespace

bool looksLikeEsriGrid(std::string_view head) {
    const std::size_t begin = head.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos)
        return false;
    head.remove_prefix(begin);
    const auto key = keyOf(head.substr(0, head.find_first_of(" \t\r\n")));
    return key.has_value();
}

void checkEsriGrid(CheckReport& report, const Anchor::StrongPtr<Progress>& progress) {
    CheckReport found(report.file());
    EsriGridCheck(found, progress).run();
    report.setFormat("ESRI ASCII grid");
    const auto& findings = found.findings();
    const bool mayBeCharacters = std::any_of(findings.begin(), findings.end(), [](const auto& finding) {
        return finding.kind == Kind::values || finding.kind == Kind::cells || finding.kind == Kind::header;
    });
    if (mayBeCharacters && CharacterGrids(report.file()).areThere()) {
        report.warning(Kind::characters, {},
                       "values are the characters of their codes, which few programs read; tidewatch ascii "
                       "--precision 0 writes numbers");
    } else {
        for (const CheckFinding& finding : findings)
            report.add(finding);
    }
    checkPrj(report);
}

} // namespace Tidewatch
