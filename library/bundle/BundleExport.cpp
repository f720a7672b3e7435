// SPDX-License-Identifier: Apache-2.0
#include "library/bundle/BundleExport.hpp"

#include "anchor/Error.hpp"
#include "library/info/Inventory.hpp"
#include "readers/BundleFileWriter.hpp"

#include <utility>

namespace Tidewatch {

namespace fs = std::filesystem;

BundleExport::BundleExport(std::string path, bool overwrite, std::vector<FileIdentity> inputs)
    : path_(std::move(path)),
      placement_(overwrite, std::move(inputs)) {
    placement_.check(path_);
}

ExportReport::File BundleExport::write(const Sheaf::Bundle& bundle, Progress& progress) {
    const fs::path place = path_.parent_path();
    folder_.emplace(place.empty() ? fs::path(".") : place);
    const fs::path staged = folder_->path() / path_.filename();
    BundleFileWriteOptions options;
    options.Progress = [&](std::uint64_t done, std::uint64_t total) {
        if (done == 0)
            progress.begin("writing", static_cast<double>(total), "items");
        progress.piece(static_cast<double>(done), 1);
    };
    try {
        writeBundleFile(bundle, staged.string(), options);
    } catch (const Anchor::FileError& error) {
        // Users know the file by its final name.
        std::string message = error.what();
        if (message.starts_with(staged.string()))
            message.replace(0, staged.string().size(), path_.string());
        throw Anchor::FileError(message);
    }
    progress.end();
    placement_.add(staged, path_);
    return {path_.string(),        Inventory::of(bundle, {}, false).points(),
            fs::file_size(staged), "points",
            std::nullopt,          std::nullopt};
}

void BundleExport::commit() {
    placement_.commit();
}

} // namespace Tidewatch
