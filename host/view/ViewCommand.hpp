// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/report/Report.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/view/viewPage.hpp"
#include "library/view/viewPicture.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace Tidewatch {

/// `tidewatch view`: a page or a picture of the inputs.
struct ViewRequest {
    InputOptions inputs;
    Filters filters;
    /// Ends in .html or .png; nothing stands for a page in the user's cache, which is opened.
    std::optional<std::string> output;
    bool overwrite = false;
    /// For pages.
    std::optional<std::uint64_t> points;
    /// For pictures.
    std::optional<ViewPictureOptions::Size> size;
    std::optional<ViewPictureOptions::Colors> color;
    ReportOptions report;

    /// Returns the exit status. Throws UsageError for options of the other kind of output, Anchor::Error when
    /// an input cannot be read or the file cannot be written, and Interrupted; then nothing has been put in
    /// place.
    [[nodiscard]] int run() const;
};

/// Whether a path is that of a picture.
[[nodiscard]] bool isPicturePath(const std::string& path);

} // namespace Tidewatch
