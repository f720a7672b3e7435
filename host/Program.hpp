// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace Tidewatch {

/// The program: reads the arguments (the program's name left out), does what they ask for, and says on
/// standard error what went wrong. Gives the exit status: 0 done, 1 failed, 2 wrong usage, 130 interrupted.
[[nodiscard]] int runProgram(std::span<const char* const> arguments);

} // namespace Tidewatch
