// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/check/checkFile.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tidewatch {

/// "fault header", ... of all findings, in their order.
inline std::vector<std::string> kindsOf(const CheckReport& report) {
    std::vector<std::string> kinds;
    for (const CheckFinding& finding : report.findings())
        kinds.push_back(std::string(severityName(finding.severity)) + " " + finding.kind);
    return kinds;
}

/// The finding of a kind; throws where there is none.
inline const CheckFinding& findingOf(const CheckReport& report, const std::string& kind) {
    for (const CheckFinding& finding : report.findings()) {
        if (finding.kind == kind)
            return finding;
    }
    throw std::runtime_error("no finding of the kind " + kind);
}

/// Checks a file of these bytes.
inline CheckReport checkBytes(const std::string& bytes, const std::string& name = "file") {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / name, bytes);
    return checkFile(folder / name);
}

} // namespace Tidewatch
