// SPDX-License-Identifier: Apache-2.0
#include "host/input/Inputs.hpp"

#include "anchor/Cache.hpp"
#include "convlib/Reader.hpp"
#include "host/Interruption.hpp"

#include <utility>

namespace Tidewatch {

Inputs::Inputs(const InputOptions& options, std::function<void(const std::string&, double)> tick)
    : bundle_(Anchor::makeStrong<Sheaf::Bundle>()) {
    if (options.memoryLimit)
        Anchor::Cache::MemCache().setLimit(*options.memoryLimit);
    ConvLib::ReadOptions read;
    read.SliceTime = options.sliceTime;
    read.FragmentPoints = options.fragmentPoints;
    read.Tick = std::move(tick);
    for (const std::string& file : options.files) {
        Interruption::check();
        reports_.push_back(ConvLib::readFile(*bundle_, file, read));
        if (const auto identity = FileIdentity::of(file))
            identities_.push_back(*identity);
    }
}

Anchor::StrongPtr<ConvLib::InputReport> Inputs::reportOf(const std::string& grid,
                                                         const std::string& origin) const {
    for (const auto& report : reports_) {
        if (report->grid() == grid && report->file() == origin)
            return report;
    }
    return nullptr;
}

} // namespace Tidewatch
