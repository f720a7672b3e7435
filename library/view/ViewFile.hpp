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

/// A page or a picture that is written to a temporary file and put in place when complete.
class TIDEWATCH_API ViewFile {
public:
    /// Throws Anchor::FileError, before any work, if `path` may not be written (see Placement).
    ViewFile(std::string path, bool overwrite, std::vector<Anchor::FileIdentity> inputs);
    ~ViewFile();

    /// Writes consecutive pieces and puts the file in place. Returns the file's entry of a report; `points`
    /// is the number of points shown. Throws Anchor::FileError; then nothing has been put in place.
    [[nodiscard]] ExportReport::File place(std::span<const std::string> pieces, std::uint64_t points);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Tidewatch
