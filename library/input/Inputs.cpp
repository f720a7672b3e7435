// SPDX-License-Identifier: Apache-2.0
#include "library/input/Inputs.hpp"

#include "anchor/Cache.hpp"
#include "convlib/Reader.hpp"
#include "library/crs/gridSystem.hpp"

#include <optional>
#include <utility>

namespace Tidewatch {

Inputs::Inputs(const InputOptions& options, const Anchor::StrongPtr<Progress>& progress)
    : bundle_(Anchor::makeStrong<Sheaf::Bundle>()) {
    if (options.memoryLimit)
        Anchor::Cache::MemCache().setLimit(*options.memoryLimit);
    const auto wanted =
        options.referenceSystem ? std::optional(wantedSystem(*options.referenceSystem)) : std::nullopt;
    ConvLib::ReadOptions read;
    read.SliceTime = options.sliceTime;
    read.FragmentPoints = options.fragmentPoints;
    read.Tick = Progress::ticker(progress);
    for (const std::string& file : options.files) {
        if (progress)
            progress->check();
        reports_.push_back(ConvLib::readFile(*bundle_, file, read));
        if (const auto identity = Anchor::FileIdentity::of(file))
            identities_.push_back(*identity);
    }
    completeSystems(*bundle_);
    if (wanted)
        notes_ = setSystem(*bundle_, *wanted);
}

Inputs::Inputs(Anchor::StrongPtr<Sheaf::Bundle> bundle) : bundle_(std::move(bundle)) {}

Anchor::StrongPtr<ConvLib::InputReport> Inputs::reportOf(const std::string& grid,
                                                         const std::string& origin) const {
    for (const auto& report : reports_) {
        if (report->grid() == grid && report->file() == origin)
            return report;
    }
    return nullptr;
}

} // namespace Tidewatch
