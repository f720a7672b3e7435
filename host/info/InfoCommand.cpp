// SPDX-License-Identifier: Apache-2.0
#include "host/info/InfoCommand.hpp"

#include "host/info/inventoryTexts.hpp"
#include "host/report/StandardOutput.hpp"

namespace Tidewatch {

int InfoRequest::run() const {
    Report out(report, "info");
    InputOptions options = inputs;
    options.skipsUnreadable = true;
    const Inputs read(options, out.bar());
    const Inventory inventory = Inventory::of(*read.bundle(), read.reports(), bounds);
    out.bar()->end();
    for (const std::string& note : read.notes())
        out.messages().warning(note);
    writeStandardOutput(report.json ? inventoryJson(inventory) : inventoryText(inventory));
    for (const std::string& failure : read.failures())
        out.messages().error(failure);
    return read.failures().empty() ? 0 : 1;
}

} // namespace Tidewatch
