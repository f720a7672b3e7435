// SPDX-License-Identifier: Apache-2.0
#include "library/input/MergedReport.hpp"

#include "library/report/Wording.hpp"

#include <algorithm>
#include <set>
#include <utility>

namespace Tidewatch {

MergedReport::MergedReport(std::string grid, std::string origin,
                           std::vector<Anchor::StrongPtr<ConvLib::InputReport>> files)
    : grid_(std::move(grid)),
      origin_(std::move(origin)),
      files_(std::move(files)) {}

MergedReport::~MergedReport() = default;

std::string MergedReport::kind() const {
    std::set<std::string> kinds;
    for (const auto& file : files_)
        kinds.insert(file->kind());
    return listed({kinds.begin(), kinds.end()});
}

/// What the files say, each text once.
std::vector<std::string> MergedReport::ofAll(std::vector<std::string> (ConvLib::InputReport::*texts)()
                                                 const) const {
    std::vector<std::string> all;
    std::set<std::string> known;
    for (const auto& file : files_) {
        for (std::string& text : ((*file).*texts)()) {
            if (known.insert(text).second)
                all.push_back(std::move(text));
        }
    }
    return all;
}

std::vector<std::string> MergedReport::notCarried() const {
    return ofAll(&InputReport::notCarried);
}

std::vector<std::string> MergedReport::lostByCellTypes() const {
    return ofAll(&InputReport::lostByCellTypes);
}

std::optional<Geom::PhysicalSpace::vector> MergedReport::coordinateStep() const {
    std::optional<Geom::PhysicalSpace::vector> finest;
    for (const auto& file : files_) {
        const auto step = file->coordinateStep();
        if (!step)
            return std::nullopt;
        finest = finest
                     ? Geom::PhysicalSpace::vector{std::min(finest->x, step->x), std::min(finest->y, step->y),
                                                   std::min(finest->z, step->z)}
                     : *step;
    }
    return finest;
}

} // namespace Tidewatch
