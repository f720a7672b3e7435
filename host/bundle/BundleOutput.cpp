// SPDX-License-Identifier: Apache-2.0
#include "host/bundle/BundleOutput.hpp"

#include "anchor/Error.hpp"
#include "host/Interruption.hpp"
#include "host/info/Inventory.hpp"
#include "readers/BundleFileWriter.hpp"

#include <utility>

namespace Tidewatch {

namespace fs = std::filesystem;

BundleOutput::BundleOutput(std::string path, bool overwrite, std::vector<FileIdentity> inputs)
    : path_(std::move(path)),
      placement_(overwrite, std::move(inputs)) {
    placement_.check(path_);
}

Summary::File BundleOutput::write(const Sheaf::Bundle& bundle, ProgressBar& bar) {
    const fs::path place = path_.parent_path();
    folder_.emplace(place.empty() ? fs::path(".") : place);
    const fs::path staged = folder_->path() / path_.filename();
    BundleFileWriteOptions options;
    options.Progress = [&bar](std::uint64_t done, std::uint64_t total) {
        bar.progress("writing", done, total);
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
    bar.end();
    placement_.add(staged, path_);
    return {path_.string(),        Inventory::of(bundle, {}, false).points(),
            fs::file_size(staged), "points",
            std::nullopt,          std::nullopt};
}

void BundleOutput::commit() {
    Interruption::check();
    placement_.commit();
}

} // namespace Tidewatch
