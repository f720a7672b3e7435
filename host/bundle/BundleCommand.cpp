// SPDX-License-Identifier: Apache-2.0
#include "host/bundle/BundleCommand.hpp"

#include "library/bundle/BundleExport.hpp"

namespace Tidewatch {

int BundleRequest::run() const {
    Report out(report, "bundle");
    const Inputs read(inputs, out.bar());
    BundleExport bundle(output, overwrite, read.identities());
    ExportReport done;
    done.files.push_back(bundle.write(*read.bundle(), *out.bar()));
    done.notes = read.notes();
    out.printNotes(done.notes);
    Losses found;
    for (const auto& input : read.reports())
        found.addProperties(*input);
    done.losses = found.list("the bundle");
    if (!out.acceptLosses(done.losses, losses))
        return 1;
    bundle.commit();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
