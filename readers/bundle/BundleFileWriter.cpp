// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleFileWriter.hpp"

#include "anchor/Error.hpp"
#include "readers/bundle/BundleModule.hpp"
#include "readers/source/Input.hpp"
#include "readers/source/modules.hpp"

namespace Tidewatch {

void writeBundleFile(const Sheaf::Bundle& bundle, const std::string& path,
                     const BundleFileWriteOptions& options) {
    if (Input::isInput(path))
        throw Anchor::FileError(path + ": cannot be written while it is being read");
    // Loads the HDF5 library only when it is needed.
    auto* const write = reinterpret_cast<WriteBundleFile*>(
        functionOfModule(ModuleKind::Bundles, Places::moduleFolder(), "tidewatch_write_bundle_file"));
    write(bundle, path, options);
}

} // namespace Tidewatch
