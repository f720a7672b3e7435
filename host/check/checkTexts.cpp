// SPDX-License-Identifier: Apache-2.0
#include "host/check/checkTexts.hpp"

#include "library/report/Json.hpp"
#include "library/report/Wording.hpp"

#include <cstddef>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

using Severity = CheckFinding::Severity;

std::string findingsText(const CheckReport& report, bool faultsOnly) {
    std::string text;
    for (const CheckFinding& finding : report.findings()) {
        if (faultsOnly && finding.severity != Severity::Fault)
            continue;
        text += fmt::format("{}: {} {}: {}{}{}", report.file(), severityName(finding.severity), finding.kind,
                            finding.place, finding.place.empty() ? "" : ": ", finding.message);
        if (finding.count > 1)
            text += fmt::format(" (and {} more)", grouped(finding.count - 1));
        text += "\n";
    }
    return text;
}

std::string checkSummary(std::span<const CheckReport> reports) {
    const auto filesWith = [&](Severity severity) {
        std::size_t number = 0;
        for (const CheckReport& report : reports)
            number += report.number(severity) != 0 ? 1U : 0U;
        return number;
    };
    const auto part = [&](Severity severity) {
        return fmt::format("{} with {}s", grouped(filesWith(severity)), severityName(severity));
    };
    return fmt::format("{} checked: {}, {}, {}\n", counted(reports.size(), "file"), part(Severity::Fault),
                       part(Severity::Warning), part(Severity::Note));
}

std::string checkJson(std::span<const CheckReport> reports) {
    Json document{{"command", "check"}};
    Json& files = document["files"] = Json::array();
    for (const CheckReport& report : reports) {
        Json findings = Json::array();
        for (const CheckFinding& finding : report.findings())
            findings.push_back({{"kind", finding.kind},
                                {"severity", severityName(finding.severity)},
                                {"place", finding.place},
                                {"message", finding.message},
                                {"count", finding.count}});
        files.push_back({{"file", report.file()},
                         {"format", report.format()},
                         {"faults", report.number(Severity::Fault)},
                         {"warnings", report.number(Severity::Warning)},
                         {"notes", report.number(Severity::Note)},
                         {"findings", std::move(findings)}});
    }
    return jsonText(document);
}

} // namespace Tidewatch
