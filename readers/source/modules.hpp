// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Source.hpp"

#include <cstdint>
#include <string>

namespace Tidewatch {

/// The modules there are.
enum class ModuleKind : std::uint8_t { Bundles, Rasters };

/// Where the parts of an installation lie. They are looked for beside the library that this code is in, then
/// where the build meant them to be installed.
namespace Places {

/// The file of a module, without folders.
[[nodiscard]] std::string moduleName(ModuleKind kind);

/// The folder of the modules; empty where they are in none.
[[nodiscard]] std::string moduleFolder();

/// The path of the program that reads files apart; empty where there is none.
[[nodiscard]] std::string readerProgram();

/// Names a folder that is looked into before all others: for programs that hold this code without the library.
void setFolder(std::string folder);

} // namespace Places

/// Loads the module from a folder, or gives the one that is loaded already. It stays for as long as the process
/// does. Throws Anchor::FileError where it cannot be loaded or is of another version.
[[nodiscard]] const SourceModule& loadModule(ModuleKind kind, const std::string& folder);

/// A function of a module by its name, which is never null. Throws as loadModule() does.
[[nodiscard]] void* functionOfModule(ModuleKind kind, const std::string& folder, const char* name);

/// Takes a module that is part of the program for the one of its kind.
void provideModule(ModuleKind kind, const SourceModule& module);

/// What a module exports as "tidewatch_module".
using GetModule = const SourceModule&();

} // namespace Tidewatch
