// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/Visibility.hpp"
#include "library/Progress.hpp"
#include "library/export/ExportReport.hpp"
#include "library/input/Inputs.hpp"
#include "sheaf/Bundle.hpp"

#include <memory>
#include <string>
#include <vector>

namespace Tidewatch {

/// Writes a bundle file to a temporary folder, and puts it in place on request.
class TIDEWATCH_API BundleExport {
public:
    /// Throws Anchor::FileError if nothing may be put at `path` (see Placement), before any work.
    BundleExport(std::string path, bool overwrite, std::vector<Anchor::FileIdentity> inputs);
    ~BundleExport();

    /// Writes the bundle into a folder for unfinished files. Returns the file's entry of a report. Throws
    /// Anchor::Error and what the progress object throws.
    [[nodiscard]] ExportReport::File write(const Sheaf::Bundle& bundle, Progress& progress);

    /// The same for inputs. The report has the notes on them, too, and as losses what the files have and the bundle has not.
    [[nodiscard]] ExportReport write(const Inputs& inputs, Progress& progress);

    /// Puts the written file in place. Throws Anchor::FileError; then nothing has been put in place.
    void commit();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Tidewatch
