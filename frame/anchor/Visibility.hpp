// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every header reaches this one before it needs anything of the language level.
#if __cplusplus < 202002L
#error "ExportLib and its headers need C++20: compile with -std=c++20"
#endif

/// Marks what a dynamic library of this project shows to others; everything else is hidden at build time.
/// One mark serves for building and for using a library (ELF needs no difference).
#define TIDEWATCH_API __attribute__((visibility("default")))
