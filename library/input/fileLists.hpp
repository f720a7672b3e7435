// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// The inputs that arguments name: "@LIST" stands for the names in a file, "-" for those on standard input; anything else
/// is a name itself. A list has a name in each line, or, if it contains NUL bytes, names that each end in one (as of
/// `find -print0`); empty ones do not count. Names are taken as they are, relative to the current folder.
///
/// Throws Anchor::FileError for a list that cannot be read and UsageError for one without names, or standard input twice.
[[nodiscard]] TIDEWATCH_API std::vector<std::string> namedInputs(const std::vector<std::string>& arguments);

} // namespace Tidewatch
