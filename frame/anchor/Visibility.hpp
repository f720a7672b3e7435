// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every header includes this one before it needs C++20.
#if __cplusplus < 202002L
#error "ExportLib and its headers need C++20: compile with -std=c++20"
#endif

/// Marks what a dynamic library of this project exports; everything else is hidden at build time. The same
/// mark serves for building and for using a library (ELF needs no distinction).
#define TIDEWATCH_API __attribute__((visibility("default")))
