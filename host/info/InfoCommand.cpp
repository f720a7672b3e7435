// SPDX-License-Identifier: Apache-2.0
#include "host/info/InfoCommand.hpp"

#include "host/info/inventoryTexts.hpp"
#include "host/report/StandardOutput.hpp"

namespace Tidewatch {

int InfoRequest::run() const {
    const Report out(report, "info");
    const Inputs read(inputs, out.bar());
    const Inventory inventory = Inventory::of(*read.bundle(), read.reports(), bounds);
    out.bar()->end();
    writeStandardOutput(report.json ? inventoryJson(inventory) : inventoryText(inventory));
    return 0;
}

} // namespace Tidewatch
