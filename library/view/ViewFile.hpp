// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/FileState.hpp"
#include "anchor/Visibility.hpp"
#include "library/export/ExportReport.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Tidewatch {

/// A page or a picture that is written beside its place and put there once it is complete.
class TIDEWATCH_API ViewFile {
public:
    /// Throws Anchor::FileError when nothing may be put at `path` (see Placement), before any work.
    ViewFile(std::string path, bool overwrite, std::vector<Anchor::FileIdentity> inputs);
    ~ViewFile();

    /// Writes pieces that follow each other and puts the file in place. Gives the file's line of a report; `points` are what
    /// it shows. Throws Anchor::FileError; then nothing has been put in place.
    [[nodiscard]] ExportReport::File place(std::span<const std::string> pieces, std::uint64_t points);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Tidewatch
