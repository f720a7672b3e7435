// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/ExportPointCloudToLas.hpp"
#include "library/BuildingReader.hpp"
#include "library/las/LasRecorder.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace Tidewatch {

/// Runs the LAS exporter under a recorder over what a function builds; the files lie in a temporary folder and
/// are called "cloud".
class RecordedLas {
public:
    explicit RecordedLas(BuildingReader::Build build, ExportLib::LasSettings settings = {},
                         Filters filters = {})
        : settings_(completed(std::move(settings))),
          inputs_(readBuilt(folder_, std::move(build))),
          selection_(filters),
          recorder_(Anchor::makeStrong<LasRecorder>(RunScope{inputs_.bundle(), {}}, inputs_, selection_,
                                                    settings_, 2U, Anchor::makeStrong<Progress>())) {
        exporter_.Version = settings_.version;
        exporter_.tiles = settings_.tiles;
        exporter_.uncompressed = settings_.uncompressed;
        exporter_.PointSourceID = settings_.pointSourceID;
        exporter_.RenameMap = settings_.renames;
        exporter_.setCarry(settings_.carry);
        exporter_.setConforming(settings_.conforming);
        exporter_.setStep(settings_.step);
        exporter_.setOffset(settings_.offset);
        exporter_.bundleptr = inputs_.bundle();
        exporter_.OutputPath = folder_ / "cloud.las";
        filters.applyTo(exporter_);
        recorder_->follow(exporter_);
        EXPECT_TRUE(exporter_.Run());
        recorder_->finish(exporter_.writtenFiles());
    }

    [[nodiscard]] const LasRecorder::Grid& grid(std::size_t visit = 0) const {
        const LasRecorder::Grid* const known = recorder_->find(recorder_->grids().at(visit));
        if (known == nullptr)
            throw std::runtime_error("an unknown grid");
        return *known;
    }
    [[nodiscard]] const LasRecorder& recorder() const { return *recorder_; }
    [[nodiscard]] const ExportLib::LasSettings& settings() const { return settings_; }
    [[nodiscard]] ConvLib::BasicConverterDefs& exporter() { return exporter_; }

private:
    static ExportLib::LasSettings completed(ExportLib::LasSettings settings) {
        settings.renames.merge(ExportLib::ExportPointCloudToLas::DefaultRenameMap());
        return settings;
    }

    ExportLib::LasSettings settings_;
    Support::TemporaryFolder folder_;
    Inputs inputs_;
    Selection selection_;
    Anchor::StrongPtr<LasRecorder> recorder_;
    ExportLib::ExportPointCloudToLas exporter_;
};

} // namespace Tidewatch
