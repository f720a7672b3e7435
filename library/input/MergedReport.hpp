// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/InputReport.hpp"

#include <string>
#include <vector>

namespace Tidewatch {

/// Information about several input files that became one grid.
class MergedReport final : public ConvLib::InputReport {
public:
    /// `origin` is the origin of that grid.
    MergedReport(std::string grid, std::string origin,
                 std::vector<Anchor::StrongPtr<ConvLib::InputReport>> files);
    ~MergedReport() override;

    [[nodiscard]] std::string file() const override { return origin_; }
    [[nodiscard]] std::string kind() const override;
    [[nodiscard]] std::string grid() const override { return grid_; }

    /// What any of the files has and the bundle has not.
    [[nodiscard]] std::vector<std::string> notCarried() const override;

    [[nodiscard]] std::vector<std::string> lostByCellTypes() const override;

    /// The finest along each axis; nullopt if a file stores coordinates as floating-point numbers.
    [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override;

private:
    [[nodiscard]] std::vector<std::string> ofAll(std::vector<std::string> (ConvLib::InputReport::*texts)()
                                                     const) const;

    std::string grid_;
    std::string origin_;
    std::vector<Anchor::StrongPtr<ConvLib::InputReport>> files_;
};

} // namespace Tidewatch
