// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/input/FileIdentity.hpp"
#include "host/output/Placement.hpp"
#include "host/output/StagingFolder.hpp"
#include "host/report/ProgressBar.hpp"
#include "host/report/Summary.hpp"
#include "sheaf/Bundle.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Tidewatch {

/// A bundle file that is written beside its place and put there once it is complete and wanted.
class BundleOutput {
public:
    /// Throws Anchor::FileError when nothing may be put at `path` (see Placement), before any work.
    BundleOutput(std::string path, bool overwrite, std::vector<FileIdentity> inputs);

    /// Writes the bundle into a folder for unfinished files. Gives the file's line of the summary. Throws
    /// Anchor::Error and Interrupted.
    [[nodiscard]] Summary::File write(const Sheaf::Bundle& bundle, ProgressBar& bar);

    /// Puts the written file in place. Throws Anchor::FileError and Interrupted; then nothing has been put in
    /// place.
    void commit();

private:
    std::filesystem::path path_;
    Placement placement_;
    std::optional<StagingFolder> folder_;
};

} // namespace Tidewatch
