// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// Names in the bundle that come out of files or are made of their paths.
namespace Tidewatch {

/// Why a name of a grid, chart, field or fragment must not become part of an output's path: "is empty", for
/// example; empty text if it may.
[[nodiscard]] std::string_view nameFault(std::string_view name) noexcept;

/// Whether a character may be part of such a name.
[[nodiscard]] bool isFitForName(char character) noexcept;

/// The name of the grid that a file becomes: the file's, without folders and extension. Throws
/// Anchor::FormatError where that has a fault.
[[nodiscard]] std::string gridNameOf(const std::string& path);

} // namespace Tidewatch
