// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "readers/InputFile.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// The bytes of a file, one after the other, read in blocks.
class ByteReader {
public:
    /// `progress` may be null. Throws Anchor::FileError.
    explicit ByteReader(const std::string& path, Anchor::StrongPtr<Progress> progress = {});

    /// Nothing at the end. Throws Anchor::FileError, and what `progress` throws.
    [[nodiscard]] std::optional<std::uint8_t> next() {
        if (used_ == filled_ && !fill())
            return std::nullopt;
        return block_[used_++];
    }

    /// Of the next byte.
    [[nodiscard]] std::uint64_t position() const noexcept { return begin_ + used_; }
    [[nodiscard]] std::uint64_t size() const noexcept { return file_.size(); }

private:
    [[nodiscard]] bool fill();

    InputFile file_;
    Anchor::StrongPtr<Progress> progress_;
    std::vector<std::uint8_t> block_;
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
    std::uint64_t begin_ = 0;
};

/// Splits a text file into words, separated by blanks, and lines. In constant memory: words are truncated to
/// longestWord.
class TextScanner {
public:
    enum class Item { Word, LineEnd, FileEnd };

    static constexpr std::size_t longestWord = 256;

    /// As ByteReader.
    explicit TextScanner(const std::string& path, const Anchor::StrongPtr<Progress>& progress = {})
        : bytes_(path, progress) {}

    /// The end of the last line is reported even if the newline is missing. Throws what ByteReader throws.
    [[nodiscard]] Item next();

    /// The last word; valid until the next call of next().
    [[nodiscard]] std::string_view word() const noexcept { return word_; }

    /// Of the last item, from 1.
    [[nodiscard]] std::uint64_t line() const noexcept { return line_; }
    [[nodiscard]] std::string place() const;

    /// The offset in the file after the last item, in bytes.
    [[nodiscard]] std::uint64_t position() const noexcept { return bytes_.position() - (pending_ ? 1 : 0); }
    [[nodiscard]] std::uint64_t size() const noexcept { return bytes_.size(); }

private:
    ByteReader bytes_;
    std::string word_;
    std::optional<std::uint8_t> pending_;
    std::uint64_t line_ = 1;
    bool lineEnded_ = false;
    bool lineBegun_ = false;
};

/// Parses a word as a number, including infinities and NaN; nothing if it is not one.
[[nodiscard]] std::optional<double> numberOf(std::string_view word) noexcept;

/// Parses a word as a count; nothing if it is not one.
[[nodiscard]] std::optional<std::uint64_t> countOf(std::string_view word) noexcept;

/// Compares two words, ignoring the case of letters.
[[nodiscard]] bool isSameWord(std::string_view a, std::string_view b) noexcept;

/// Counts occurrences, and keeps place and message of the first.
struct Repeated {
    std::uint64_t count = 0;
    std::string place;
    std::string message;

    template <class Message>
    void take(const TextScanner& scanner, Message&& makeMessage) {
        if (count++ == 0) {
            place = scanner.place();
            message = makeMessage();
        }
    }
};

} // namespace Tidewatch
