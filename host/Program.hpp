// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace Tidewatch {

/// Runs the program with these arguments (without the program's name) and reports errors on standard error.
/// Returns the exit status: 0 done, 1 failed, 2 wrong usage, 130 interrupted.
[[nodiscard]] int runProgram(std::span<const char* const> arguments);

} // namespace Tidewatch
