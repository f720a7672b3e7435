// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Source.hpp"

#include <cstdint>
#include <string>

namespace Tidewatch {

/// The existing modules.
enum class ModuleKind : std::uint8_t { Bundles, Rasters };

/// Locations of the parts of an installation: searched beside the library that contains this code, then at
/// the installation paths of the build.
namespace Places {

/// The file name of a module, without folders.
[[nodiscard]] std::string moduleName(ModuleKind kind);

/// The folder of the modules; empty if not found.
[[nodiscard]] std::string moduleFolder();

/// The path of tidewatch-read; empty if not found.
[[nodiscard]] std::string readerProgram();

/// Sets a folder that is searched before all others: for programs that contain this code without the library.
void setFolder(std::string folder);

} // namespace Places

/// Loads the module from a folder, or returns the one already loaded. It is never unloaded. Throws
/// Anchor::FileError when it cannot be loaded or has another version.
[[nodiscard]] const SourceModule& loadModule(ModuleKind kind, const std::string& folder);

/// A function of a module by its name; never null. Throws as loadModule() does, and if there is no such
/// function.
[[nodiscard]] void* functionOfModule(ModuleKind kind, const std::string& folder, const char* name);

/// Uses a module that is linked into the program as the one of its kind.
void provideModule(ModuleKind kind, const SourceModule& module);

/// The type of a module's export "tidewatch_module".
using GetModule = const SourceModule*();

} // namespace Tidewatch
