// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/source/Source.hpp"

#include <string>

namespace Tidewatch {

/// The module of bundle files.
[[nodiscard]] const SourceModule& bundleModule();

/// writeBundleFile(), where the HDF5 library is at hand.
void writeBundleFileHere(const Sheaf::Bundle& bundle, const std::string& path,
                         const BundleFileWriteOptions& options);

/// What the module exports as "tidewatch_write_bundle_file".
using WriteBundleFile = void(const Sheaf::Bundle& bundle, const std::string& path,
                             const BundleFileWriteOptions& options);

} // namespace Tidewatch
