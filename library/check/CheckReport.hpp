// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// A finding of a check.
struct CheckFinding {
    enum class Severity : std::uint8_t {
        /// The file violates its format.
        Fault,
        /// The file is valid, but readers may misinterpret it.
        Warning,
        /// Worth knowing.
        Note
    };

    /// One of checkKinds().
    std::string kind;
    Severity severity = Severity::Fault;
    /// Where in the file: "header", "point 17", "line 12"; the first place of several. Empty for the whole file.
    std::string place;
    std::string message;
    /// The number of occurrences of this kind and severity.
    std::uint64_t count = 1;
};

/// "fault", "warning" or "note".
[[nodiscard]] TIDEWATCH_API std::string_view severityName(CheckFinding::Severity severity) noexcept;

/// All kinds of findings, in the order of docs/check.md.
[[nodiscard]] TIDEWATCH_API std::span<const std::string_view> checkKinds() noexcept;

/// The findings of a check of one file.
class TIDEWATCH_API CheckReport {
public:
    explicit CheckReport(std::string file);

    /// The path as given.
    [[nodiscard]] const std::string& file() const noexcept { return file_; }
    /// The kind of file, for messages: "LAS 1.4, point format 7, compressed"; empty if unknown.
    [[nodiscard]] const std::string& format() const noexcept { return format_; }
    void setFormat(std::string format) { format_ = std::move(format); }

    /// Faults first, then warnings, then notes, each in the order in which they were found.
    [[nodiscard]] const std::vector<CheckFinding>& findings() const noexcept { return findings_; }
    /// The number of findings() of a severity.
    [[nodiscard]] std::size_t number(CheckFinding::Severity severity) const noexcept;
    [[nodiscard]] bool hasFaults() const noexcept { return number(CheckFinding::Severity::Fault) != 0; }

    /// Adds a finding. Findings of the same kind and severity are combined, with place and message of the
    /// first.
    void add(CheckFinding finding);
    void fault(std::string_view kind, std::string place, std::string message, std::uint64_t count = 1);
    void warning(std::string_view kind, std::string place, std::string message, std::uint64_t count = 1);
    void note(std::string_view kind, std::string place, std::string message, std::uint64_t count = 1);
    /// Adds a fault from the text of an Anchor::Error, "file: place: message".
    void faultOf(std::string_view kind, const std::string& error);

private:
    std::string file_;
    std::string format_;
    std::vector<CheckFinding> findings_;
};

} // namespace Tidewatch
