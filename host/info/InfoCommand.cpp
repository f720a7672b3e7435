// SPDX-License-Identifier: Apache-2.0
#include "host/info/InfoCommand.hpp"

#include "anchor/printable.hpp"
#include "host/report/StandardOutput.hpp"
#include "library/ProgressParts.hpp"
#include "library/info/inventoryTexts.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

int InfoRequest::run() const {
    Report out(report, "info");
    InputOptions options = inputs;
    options.skipsUnreadable = true;
    const Inputs read(options, out.bar());
    out.bar()->part(ProgressParts::opened, 1);
    Inventory inventory = Inventory::of(*read.bundle(), read.reports(), bounds);
    if (statistics)
        inventory.addStatistics(*read.bundle(), out.bar());
    out.bar()->end();
    std::vector<std::string> failures = read.failures();
    failures.insert(failures.end(), inventory.failures.begin(), inventory.failures.end());
    for (const std::string& note : read.notes())
        out.messages().warning(note);
    if (report.json) {
        writeStandardOutput(inventoryJson(inventory));
    } else {
        std::string text = fields ? inventoryText(inventory) : inventoryTable(inventory);
        if (statistics)
            text += statisticsText(inventory);
        writeStandardOutput(Anchor::printableLines(text));
    }
    for (const std::string& failure : failures)
        out.messages().error(failure);
    return failures.empty() ? 0 : 1;
}

} // namespace Tidewatch
