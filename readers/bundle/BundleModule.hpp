// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/BundleFileWriter.hpp"
#include "readers/source/Source.hpp"

#include <string>

namespace Tidewatch {

/// The module of bundle files.
[[nodiscard]] const SourceModule& bundleModule();

/// The implementation of writeBundleFile(), linked with the HDF5 library.
void writeBundleFileHere(const Sheaf::Bundle& bundle, const std::string& path,
                         const BundleFileWriteOptions& options);

/// The type of the module's export "tidewatch_write_bundle_file".
using WriteBundleFile = void(const Sheaf::Bundle& bundle, const std::string& path,
                             const BundleFileWriteOptions& options);

} // namespace Tidewatch
