// SPDX-License-Identifier: Apache-2.0
#include "library/view/ViewFile.hpp"

#include "anchor/Error.hpp"
#include "library/output/Placement.hpp"
#include "library/output/StagingFolder.hpp"
#include "library/report/Wording.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace fs = std::filesystem;

struct ViewFile::State {
    fs::path path;
    Placement placement;
};

ViewFile::ViewFile(std::string path, bool overwrite, std::vector<Anchor::FileIdentity> inputs)
    : state_(new State{std::move(path), Placement(overwrite, std::move(inputs))}) {
    state_->placement.check(state_->path);
}

ViewFile::~ViewFile() = default;

ExportReport::File ViewFile::place(std::span<const std::string> pieces, std::uint64_t points) {
    const fs::path folder = state_->path.parent_path();
    StagingFolder staging(folder.empty() ? fs::path(".") : folder);
    const StagingFolder::Run run = staging.beginRun();
    const fs::path staged = run.path() / state_->path.filename();
    const auto fail = [&] {
        throw Anchor::FileError(
            fmt::format("{}: cannot be written: {}", state_->path.string(), systemMessage(errno)));
    };
    std::FILE* const file = std::fopen(staged.c_str(), "wb");
    if (file == nullptr)
        fail();
    std::uint64_t bytes = 0;
    bool isWhole = true;
    for (const std::string& piece : pieces) {
        isWhole = isWhole && std::fwrite(piece.data(), 1, piece.size(), file) == piece.size();
        bytes += piece.size();
    }
    const int reason = errno;
    if (std::fclose(file) != 0)
        fail();
    if (!isWhole) {
        errno = reason;
        fail();
    }
    state_->placement.add(run.name() / state_->path.filename(), state_->path);
    state_->placement.commit();
    return {state_->path.string(), points, bytes, "points", std::nullopt, std::nullopt};
}

} // namespace Tidewatch
