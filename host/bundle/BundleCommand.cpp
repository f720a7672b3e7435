// SPDX-License-Identifier: Apache-2.0
#include "host/bundle/BundleCommand.hpp"

#include "library/ProgressParts.hpp"
#include "library/bundle/BundleExport.hpp"

#include <filesystem>

namespace Tidewatch {

int BundleRequest::run() const {
    Report out(report, "bundle");
    InputOptions chosen = inputs;
    if (chosen.tiles)
        chosen.tiles->scratch = std::filesystem::path(output).parent_path();
    const Inputs read(chosen, out.bar());
    BundleExport bundle(output, overwrite, read.identities());
    out.bar()->part(read.shareDone(), ProgressParts::worked);
    const ExportReport done = bundle.write(read, *out.bar());
    out.printNotes(done.notes);
    if (!out.acceptLosses(done.losses, losses))
        return 1;
    out.bar()->part(ProgressParts::worked, 1);
    bundle.commit();
    out.bar()->end();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
