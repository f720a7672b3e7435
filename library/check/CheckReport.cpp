// SPDX-License-Identifier: Apache-2.0
#include "library/check/CheckReport.hpp"

#include "library/check/kinds.hpp"
#include "library/report/ErrorParts.hpp"

#include <algorithm>
#include <utility>

namespace Tidewatch {

using Severity = CheckFinding::Severity;

std::string_view severityName(Severity severity) noexcept {
    switch (severity) {
    case Severity::Fault:
        return "fault";
    case Severity::Warning:
        return "warning";
    case Severity::Note:
        break;
    }
    return "note";
}

std::span<const std::string_view> checkKinds() noexcept {
    return Kind::all;
}

CheckReport::CheckReport(std::string file) : file_(std::move(file)) {}

std::size_t CheckReport::number(Severity severity) const noexcept {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [&](const CheckFinding& finding) { return finding.severity == severity; }));
}

void CheckReport::add(CheckFinding finding) {
    const auto same = std::find_if(findings_.begin(), findings_.end(), [&](const CheckFinding& earlier) {
        return earlier.kind == finding.kind && earlier.severity == finding.severity;
    });
    if (same != findings_.end()) {
        same->count += finding.count;
        return;
    }
    const auto behind =
        std::upper_bound(findings_.begin(), findings_.end(), finding,
                         [](const auto& a, const auto& b) { return a.severity < b.severity; });
    findings_.insert(behind, std::move(finding));
}

void CheckReport::fault(std::string_view kind, std::string place, std::string message, std::uint64_t count) {
    add({std::string(kind), Severity::Fault, std::move(place), std::move(message), count});
}

void CheckReport::warning(std::string_view kind, std::string place, std::string message,
                          std::uint64_t count) {
    add({std::string(kind), Severity::Warning, std::move(place), std::move(message), count});
}

void CheckReport::note(std::string_view kind, std::string place, std::string message, std::uint64_t count) {
    add({std::string(kind), Severity::Note, std::move(place), std::move(message), count});
}

void CheckReport::faultOf(std::string_view kind, const std::string& error) {
    ErrorParts parts = ErrorParts::of(error, file_);
    fault(kind, std::move(parts.object), std::move(parts.cause));
}

} // namespace Tidewatch
