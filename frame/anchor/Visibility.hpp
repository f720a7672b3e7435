// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what a dynamic library of this project shows to others; everything else is hidden at build time.
/// One mark serves for building and for using a library (ELF needs no difference).
#define TIDEWATCH_API __attribute__((visibility("default")))
