// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string>
#include <string_view>

namespace Tidewatch {

/// The parts of the text of an Anchor::Error, "file: object: cause".
///
/// An error without an object has an empty one, and one with a single part only has a cause. A file whose own name contains
/// ": " is only recognised where the caller knows it.
struct TIDEWATCH_API ErrorParts {
    std::string file;
    std::string object;
    std::string cause;

    /// `file` is the name of the file if it is known.
    [[nodiscard]] static ErrorParts of(std::string_view text, std::string_view file = {});
};

} // namespace Tidewatch
