// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/BuildingReader.hpp"
#include "host/export/Guarded.hpp"
#include "host/las/LasWalk.hpp"
#include "las/ExportPointCloudToLas.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace Tidewatch {

/// Runs the LAS exporter under a walk over what a function builds; the files lie in a folder of its own and
/// are called "cloud".
class WalkedLas {
public:
    explicit WalkedLas(BuildingReader::Build build, LasSettings settings = {}, Filters filters = {})
        : settings_(completed(std::move(settings))),
          inputs_(readBuilt(folder_, std::move(build))),
          selection_(filters),
          bar_(Anchor::makeStrong<ProgressBar>(ProgressWish::Never, messages_)),
          walk_({}, inputs_, selection_, settings_, 2, bar_),
          exporter_(walk_) {
        exporter_.Version = settings_.version;
        exporter_.tiles = settings_.tiles;
        exporter_.uncompressed = settings_.uncompressed;
        exporter_.PointSourceID = settings_.pointSourceID;
        exporter_.RenameMap = settings_.renames;
        exporter_.Progress = walk_.reporter();
        exporter_.bundleptr = inputs_.bundle();
        exporter_.OutputPath = folder_ / "cloud.las";
        filters.applyTo(exporter_);
        EXPECT_TRUE(exporter_.Run());
        walk_.finish(exporter_.writtenFiles().size());
    }

    [[nodiscard]] const LasWalk::Grid& grid(std::size_t visit = 0) const {
        const LasWalk::Grid* const known = walk_.find(walk_.visits().at(visit));
        if (known == nullptr)
            throw std::runtime_error("an unknown grid");
        return *known;
    }
    [[nodiscard]] const LasWalk& walk() const { return walk_; }
    [[nodiscard]] const LasSettings& settings() const { return settings_; }
    [[nodiscard]] ConvLib::BasicConverterDefs& exporter() { return exporter_; }

private:
    static LasSettings completed(LasSettings settings) {
        settings.renames.merge(ExportLib::ExportPointCloudToLas::DefaultRenameMap());
        return settings;
    }

    LasSettings settings_;
    Support::TemporaryFolder folder_;
    Messages messages_{Messages::Loudness::Quiet};
    Inputs inputs_;
    Selection selection_;
    Anchor::StrongPtr<ProgressBar> bar_;
    LasWalk walk_;
    Guarded<ExportLib::ExportPointCloudToLas> exporter_;
};

} // namespace Tidewatch
