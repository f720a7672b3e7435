// SPDX-License-Identifier: Apache-2.0
#include "host/bundle/BundleCommand.hpp"

#include "library/bundle/BundleExport.hpp"

namespace Tidewatch {

int BundleRequest::run() const {
    Report out(report, "bundle");
    const Inputs read(inputs, out.bar());
    BundleExport bundle(output, overwrite, read.identities());
    const ExportReport done = bundle.write(read, *out.bar());
    out.printNotes(done.notes);
    if (!out.acceptLosses(done.losses, losses))
        return 1;
    bundle.commit();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
