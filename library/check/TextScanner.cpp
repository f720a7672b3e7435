// SPDX-License-Identifier: Apache-2.0
#include "library/check/TextScanner.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <span>
#include <system_error>
#include <utility>

namespace Tidewatch {

namespace {

constexpr std::size_t blockSize = std::size_t{64} << 10;

bool isBlank(std::uint8_t byte) noexcept {
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\v' || byte == '\f';
}

std::string_view withoutPlus(std::string_view word) noexcept {
    return word.starts_with('+') ? word.substr(1) : word;
}

} // namespace

ByteReader::ByteReader(const std::string& path, Anchor::StrongPtr<Progress> progress)
    : file_(path),
      progress_(std::move(progress)),
      block_(blockSize) {
    if (!progress_)
        return;
    progress_->begin("checking " + path, static_cast<double>(file_.size()), "bytes");
    progress_->piece(0, static_cast<double>(file_.size()));
}

bool ByteReader::fill() {
    begin_ += filled_;
    used_ = 0;
    filled_ = file_.readUpTo(begin_, block_);
    if (progress_ && filled_ != 0)
        progress_->tick(file_.path(), static_cast<double>(begin_) / static_cast<double>(file_.size()));
    return filled_ != 0;
}

TextScanner::Item TextScanner::next() {
    if (lineEnded_) {
        ++line_;
        lineEnded_ = false;
        lineBegun_ = false;
    }
    word_.clear();
    while (true) {
        const std::optional<std::uint8_t> byte = pending_ ? pending_ : bytes_.next();
        pending_.reset();
        if (byte && !isBlank(*byte) && *byte != '\n') {
            if (word_.size() < longestWord)
                word_ += static_cast<char>(*byte);
            continue;
        }
        if (!word_.empty()) {
            pending_ = byte;
            lineBegun_ = true;
            return Item::Word;
        }
        if (!byte) {
            if (!lineBegun_)
                return Item::FileEnd;
            lineEnded_ = true;
            return Item::LineEnd;
        }
        lineBegun_ = true;
        if (*byte == '\n') {
            lineEnded_ = true;
            return Item::LineEnd;
        }
    }
}

std::string TextScanner::place() const {
    return "line " + std::to_string(line_);
}

std::optional<double> numberOf(std::string_view word) noexcept {
    word = withoutPlus(word);
    double value = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (stop != end || word.empty() || error == std::errc::invalid_argument)
        return std::nullopt;
    return value;
}

std::optional<std::uint64_t> countOf(std::string_view word) noexcept {
    word = withoutPlus(word);
    std::uint64_t value = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (stop != end || error != std::errc())
        return std::nullopt;
    return value;
}

bool isSameWord(std::string_view a, std::string_view b) noexcept {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

} // namespace Tidewatch
