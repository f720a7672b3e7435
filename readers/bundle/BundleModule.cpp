// SPDX-License-Identifier: Apache-2.0
//
// The exports of tidewatch-bundles: the reader and the writer of bundle files, all that needs the HDF5
// library.
#include "readers/bundle/BundleModule.hpp"

#include "anchor/Visibility.hpp"
#include "readers/source/modules.hpp"

extern "C" TIDEWATCH_API Tidewatch::GetModule tidewatch_module;
extern "C" TIDEWATCH_API Tidewatch::WriteBundleFile tidewatch_write_bundle_file;

const Tidewatch::SourceModule* tidewatch_module() {
    return &Tidewatch::bundleModule();
}

void tidewatch_write_bundle_file(const Sheaf::Bundle& bundle, const std::string& path,
                                 const Tidewatch::BundleFileWriteOptions& options) {
    Tidewatch::writeBundleFileHere(bundle, path, options);
}
