// SPDX-License-Identifier: Apache-2.0
#include "library/bundle/BundleExport.hpp"

#include "anchor/Error.hpp"
#include "library/info/Inventory.hpp"
#include "library/output/Placement.hpp"
#include "library/output/StagingFolder.hpp"
#include "readers/bundle/BundleFileWriter.hpp"

#include <filesystem>
#include <optional>
#include <utility>

namespace Tidewatch {

namespace fs = std::filesystem;

struct BundleExport::State {
    fs::path path;
    Placement placement;
    std::optional<StagingFolder> folder = {};
};

BundleExport::BundleExport(std::string path, bool overwrite, std::vector<Anchor::FileIdentity> inputs)
    : state_(new State{std::move(path), Placement(overwrite, std::move(inputs))}) {
    state_->placement.check(state_->path);
}

BundleExport::~BundleExport() = default;

ExportReport::File BundleExport::write(const Sheaf::Bundle& bundle, Progress& progress) {
    const fs::path place = state_->path.parent_path();
    std::optional<StagingFolder>& folder = state_->folder;
    folder.emplace(place.empty() ? fs::path(".") : place);
    const StagingFolder::Run run = folder->beginRun();
    const fs::path staged = run.path() / state_->path.filename();
    BundleFileWriteOptions options;
    bool hasBegun = false;
    options.Progress = [&](std::uint64_t done, std::uint64_t total) {
        if (!hasBegun)
            progress.begin("writing", static_cast<double>(total), "items");
        hasBegun = true;
        progress.piece(static_cast<double>(done), 1);
    };
    try {
        writeBundleFile(bundle, staged.string(), options);
    } catch (const Anchor::FileError& error) {
        // The user only knows the final name of the file.
        std::string message = error.what();
        if (message.starts_with(staged.string()))
            message.replace(0, staged.string().size(), state_->path.string());
        throw Anchor::FileError(message);
    }
    state_->placement.add(run.name() / state_->path.filename(), state_->path);
    return {state_->path.string(), Inventory::of(bundle, {}, false).points(),
            fs::file_size(staged), "points",
            std::nullopt,          std::nullopt};
}

ExportReport BundleExport::write(const Inputs& inputs, Progress& progress) {
    ExportReport done;
    done.files.push_back(write(*inputs.bundle(), progress));
    done.notes = inputs.notes();
    Losses found;
    for (const auto& input : inputs.reports())
        found.addProperties(*input, inputs.choosesByCellTypes());
    done.losses = found.list("the bundle");
    return done;
}

void BundleExport::commit() {
    state_->placement.commit();
}

} // namespace Tidewatch
