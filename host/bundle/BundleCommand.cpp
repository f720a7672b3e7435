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
    ExportReport done;
    out.bar()->part(read.shareDone(), ProgressParts::worked);
    done.files.push_back(bundle.write(*read.bundle(), *out.bar()));
    done.notes = read.notes();
    out.printNotes(done.notes);
    Losses found;
    for (const auto& input : read.reports())
        found.addProperties(*input, read.choosesByCellTypes());
    done.losses = found.list("the bundle");
    if (!out.acceptLosses(done.losses, losses))
        return 1;
    out.bar()->part(ProgressParts::worked, 1);
    bundle.commit();
    out.bar()->end();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
