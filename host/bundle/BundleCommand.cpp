// SPDX-License-Identifier: Apache-2.0
#include "host/bundle/BundleCommand.hpp"

#include "host/bundle/BundleOutput.hpp"
#include "host/report/Report.hpp"

namespace Tidewatch {

int BundleRequest::run() const {
    Report out(report, "bundle");
    const Inputs read(inputs, ProgressBar::ticker(out.bar()));
    BundleOutput bundle(output, overwrite, read.identities());
    out.summary().files.push_back(bundle.write(*read.bundle(), *out.bar()));
    Losses losses;
    for (const auto& input : read.reports())
        losses.addProperties(*input);
    if (!out.acceptLosses(losses.list("the bundle"), strict))
        return 1;
    bundle.commit();
    out.printSummary();
    return 0;
}

} // namespace Tidewatch
