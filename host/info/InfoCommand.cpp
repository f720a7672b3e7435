// SPDX-License-Identifier: Apache-2.0
#include "host/info/InfoCommand.hpp"

#include "host/info/inventoryTexts.hpp"
#include "host/report/StandardOutput.hpp"

namespace Tidewatch {

int InfoRequest::run() const {
    Report out(report, "info");
    const Inputs read(inputs, out.bar());
    const Inventory inventory = Inventory::of(*read.bundle(), read.reports(), bounds);
    out.bar()->end();
    for (const std::string& note : read.notes())
        out.messages().warning(note);
    writeStandardOutput(report.json ? inventoryJson(inventory) : inventoryText(inventory));
    return 0;
}

} // namespace Tidewatch
