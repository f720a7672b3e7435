// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkPcd.hpp"

#include "anchor/printable.hpp"
#include "formats/littleEndian.hpp"
#include "library/check/TextScanner.hpp"
#include "library/check/kinds.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>
#include <system_error>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Item = TextScanner::Item;

constexpr std::array<std::string_view, 10> entryNames{"VERSION", "FIELDS", "SIZE",      "TYPE",   "COUNT",
                                                      "WIDTH",   "HEIGHT", "VIEWPOINT", "POINTS", "DATA"};

/// The type of one value of a point.
struct Column {
    char type = 'F';
    unsigned size = 4;

    [[nodiscard]] bool takes(std::string_view word) const noexcept {
        if (type == 'F')
            return numberOf(word).has_value();
        const unsigned bits = 8 * size;
        if (type == 'U') {
            const auto value = countOf(word);
            return value && (bits == 64 || *value >> bits == 0);
        }
        std::int64_t value = 0;
        const char* const end = word.data() + word.size();
        const auto [stop, error] = std::from_chars(word.data(), end, value);
        if (stop != end || error != std::errc())
            return false;
        const std::int64_t half = bits == 64 ? 0 : std::int64_t{1} << (bits - 1);
        return bits == 64 || (value >= -half && value < half);
    }
};

class PcdCheck {
public:
    PcdCheck(CheckReport& report, const Anchor::StrongPtr<Progress>& progress)
        : report_(report),
          scanner_(report.file(), progress) {}

    void run() {
        report_.setFormat("PCD");
        readHeader();
        if (!interpretHeader())
            return;
        const std::string& data = entries_.at("DATA").front();
        report_.setFormat("PCD, " + data);
        if (data == "ascii")
            checkLines();
        else
            checkBinary(data == "binary_compressed");
    }

private:
    void fault(std::string message) { report_.fault(Kind::header, "header", std::move(message)); }

    /// Reads up to and including the DATA line.
    void readHeader() {
        constexpr std::uint64_t maxLines = 1000;
        std::vector<std::string> words;
        while (scanner_.line() <= maxLines) {
            const Item item = scanner_.next();
            if (item == Item::FileEnd)
                return;
            if (item == Item::Word) {
                constexpr std::size_t maxWords = 10'000;
                if (words.size() < maxWords)
                    words.emplace_back(scanner_.word());
                continue;
            }
            if (takeLine(words))
                return;
            words.clear();
        }
    }

    /// True for the DATA line.
    bool takeLine(const std::vector<std::string>& words) {
        if (words.empty())
            return false;
        if (words.front().starts_with('#')) {
            isOwn_ = isOwn_ || (words.size() == 4 && words[1] == "exported" && words[2] == "by" &&
                                words[3] == "Tidewatch");
            return false;
        }
        const auto* const known = std::find(entryNames.begin(), entryNames.end(), words.front());
        if (known == entryNames.end()) {
            fault(fmt::format("line {}: \"{}\" is not an entry of the header", scanner_.line(),
                              Anchor::printable(words.front())));
            return false;
        }
        if (words.size() == 1) {
            fault(fmt::format("{} has no value", words.front()));
            return false;
        }
        if (!entries_.emplace(words.front(), std::vector<std::string>(words.begin() + 1, words.end())).second)
            fault(words.front() + " appears twice");
        if (known < lastEntry_)
            fault(words.front() +
                  " is not in its place: the order is VERSION, FIELDS, SIZE, TYPE, COUNT, WIDTH, "
                  "HEIGHT, VIEWPOINT, POINTS, DATA");
        lastEntry_ = known;
        return words.front() == "DATA";
    }

    /// False if the data cannot be checked.
    bool interpretHeader() {
        bool isComplete = true;
        for (const std::string_view name : entryNames) {
            // Older versions have neither.
            if (name == "COUNT" || name == "VIEWPOINT" || entries_.contains(std::string(name)))
                continue;
            fault(std::string(name) + " is missing");
            isComplete = false;
        }
        if (!isComplete || !takeColumns())
            return false;
        const std::string& version = entries_.at("VERSION").front();
        if (version != ".7" && version != "0.7")
            fault(fmt::format("the version {} is not known; .7 is", Anchor::printable(version)));
        const std::string& data = entries_.at("DATA").front();
        if (data != "ascii" && data != "binary" && data != "binary_compressed") {
            fault(fmt::format("DATA is {}; ascii, binary and binary_compressed are known",
                              Anchor::printable(data)));
            return false;
        }
        return takeCounts();
    }

    bool takeColumns() {
        const auto& fields = entries_.at("FIELDS");
        const auto& sizes = entries_.at("SIZE");
        const auto& types = entries_.at("TYPE");
        const auto counts =
            entries_.contains("COUNT") ? entries_.at("COUNT") : std::vector<std::string>(fields.size(), "1");
        if (sizes.size() != fields.size() || types.size() != fields.size() ||
            counts.size() != fields.size()) {
            fault(fmt::format("FIELDS has {} names, SIZE {}, TYPE {} and COUNT {} values", fields.size(),
                              sizes.size(), types.size(), counts.size()));
            return false;
        }
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const auto size = countOf(sizes[i]);
            const std::string& type = types[i];
            const auto count = countOf(counts[i]);
            const bool isNumber = type == "F" ? size == 4U || size == 8U
                                              : (type == "I" || type == "U") &&
                                                    (size == 1U || size == 2U || size == 4U || size == 8U);
            constexpr std::uint64_t maxValues = 1'000'000;
            if (!isNumber || !count || *count < 1 || *count > maxValues ||
                columns_.size() + *count > maxValues) {
                fault(fmt::format("the field \"{}\" has the size {}, the type {} and the count {}",
                                  Anchor::printable(fields[i]), Anchor::printable(sizes[i]),
                                  Anchor::printable(type), Anchor::printable(counts[i])));
                return false;
            }
            columns_.insert(columns_.end(), *count, Column{type.front(), static_cast<unsigned>(*size)});
            pointSize_ += *size * *count;
        }
        return true;
    }

    bool takeCounts() {
        const auto number = [&](const char* name) {
            const auto value = countOf(entries_.at(name).front());
            if (!value)
                fault(fmt::format("{} is {}, which is not a number", name,
                                  Anchor::printable(entries_.at(name).front())));
            return value;
        };
        const auto width = number("WIDTH");
        const auto height = number("HEIGHT");
        const auto points = number("POINTS");
        if (!width || !height || !points)
            return false;
        points_ = *points;
        const bool isProduct =
            *width == 0 || *height == 0 ? points_ == 0 : points_ % *width == 0 && points_ / *width == *height;
        if (!isProduct)
            report_.fault(Kind::pointCount, "header",
                          fmt::format("WIDTH {} and HEIGHT {} make a number of points other than POINTS, {}",
                                      *width, *height, points_));
        if (const auto view = entries_.find("VIEWPOINT"); view != entries_.end()) {
            constexpr std::size_t viewNumbers = 7;
            const auto& words = view->second;
            if (words.size() != viewNumbers ||
                !std::all_of(words.begin(), words.end(), [](const auto& word) { return numberOf(word); }))
                fault("VIEWPOINT is not a translation and a rotation of seven numbers");
        }
        return true;
    }

    void checkLines() {
        std::uint64_t lines = 0;
        std::size_t words = 0;
        Repeated wrongLengths;
        Repeated wrongNumbers;
        Repeated notFinite;
        for (Item item = scanner_.next(); item != Item::FileEnd; item = scanner_.next()) {
            if (item == Item::Word) {
                const std::string_view word = scanner_.word();
                if (words < columns_.size() && !columns_[words].takes(word))
                    wrongNumbers.take(scanner_, [&] {
                        return fmt::format("\"{}\" is not a number of type {} with {} bytes",
                                           Anchor::printable(word), columns_[words].type,
                                           columns_[words].size);
                    });
                else if (words < columns_.size() && columns_[words].type == 'F' &&
                         !std::isfinite(*numberOf(word)))
                    notFinite.take(scanner_, [&] { return fmt::format("a value is {}", word); });
                ++words;
                continue;
            }
            if (words != 0) {
                ++lines;
                if (words != columns_.size())
                    wrongLengths.take(scanner_, [&] {
                        return fmt::format("it has {} where the header states {}", counted(words, "value"),
                                           columns_.size());
                    });
            }
            words = 0;
        }
        if (wrongLengths.count != 0)
            report_.fault(Kind::values, wrongLengths.place, wrongLengths.message, wrongLengths.count);
        if (wrongNumbers.count != 0)
            report_.fault(Kind::values, wrongNumbers.place, wrongNumbers.message, wrongNumbers.count);
        if (notFinite.count != 0)
            report_.note(Kind::notFinite, notFinite.place, notFinite.message, notFinite.count);
        checkLineCount(lines);
    }

    void checkLineCount(std::uint64_t lines) {
        if (lines == points_)
            return;
        const std::string message =
            fmt::format("{} are stated, and {} follow", counted(points_, "point"), counted(lines, "line"));
        // The exporter counts the points before thinning.
        if (isOwn_ && lines < points_)
            report_.warning(Kind::pointCount, "header",
                            message + "; with --exact-counts tidewatch pcd states the number of lines");
        else
            report_.fault(Kind::pointCount, "header", message);
    }

    void checkBinary(bool isCompressed) {
        const std::uint64_t begin = scanner_.position();
        const std::uint64_t available = scanner_.size() - begin;
        const bool overflows = pointSize_ != 0 && points_ > std::uint64_t(-1) / pointSize_;
        const std::uint64_t needed = overflows ? std::uint64_t(-1) : points_ * pointSize_;
        if (!isCompressed) {
            compareSize(needed, available, begin);
            return;
        }
        std::array<std::uint8_t, 8> sizes{};
        const InputFile file(report_.file());
        if (file.readUpTo(begin, sizes) != sizes.size()) {
            report_.fault(Kind::points, fmt::format("byte {}", begin),
                          "the file ends before the compressed data");
            return;
        }
        const auto compressed = Formats::loadLittleEndian<std::uint32_t>(sizes.data());
        const auto whole = Formats::loadLittleEndian<std::uint32_t>(sizes.data() + 4);
        if (whole != needed)
            report_.fault(Kind::pointCount, fmt::format("byte {}", begin),
                          fmt::format("the compressed data states {}, {} have {}", counted(whole, "byte"),
                                      counted(points_, "point"), grouped(needed)));
        compareSize(compressed, available - sizes.size(), begin + sizes.size());
    }

    void compareSize(std::uint64_t needed, std::uint64_t available, std::uint64_t begin) {
        const std::string place = fmt::format("byte {}", begin);
        if (available < needed)
            report_.fault(
                Kind::points, place,
                fmt::format("the data has {}, {} are stated", counted(available, "byte"), grouped(needed)));
        else if (available > needed)
            report_.warning(Kind::unusedBytes, fmt::format("byte {}", begin + needed),
                            fmt::format("{} after the data are unused", counted(available - needed, "byte")));
    }

    CheckReport& report_;
    TextScanner scanner_;
    std::map<std::string, std::vector<std::string>> entries_;
    std::array<std::string_view, 10>::const_iterator lastEntry_ = entryNames.begin();
    std::vector<Column> columns_;
    std::uint64_t pointSize_ = 0;
    std::uint64_t points_ = 0;
    /// Whether this project's exporter wrote the file.
    bool isOwn_ = false;
};

} // namespace

void checkPcd(CheckReport& report, const Anchor::StrongPtr<Progress>& progress) {
    PcdCheck(report, progress).run();
}

} // namespace Tidewatch
