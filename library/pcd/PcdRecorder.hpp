// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/export/RunRecorder.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tidewatch {

/// Observes the PCD exporter, and reports the progress of what it does when it has read a grid.
class TIDEWATCH_API PcdRecorder final : public RunRecorder {
public:
    /// `elements`: those of all grids that are read.
    PcdRecorder(RunScope scope, double elements, Anchor::StrongPtr<Progress> progress);
    ~PcdRecorder() override;

    /// The work of the run starts.
    void begin();

    void gridBegins(double time, const std::string& grid) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override;
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override;

protected:
    void goesOn() override;

private:
    double elements_;
    /// The work done before the current grid.
    double before_ = 0;
    /// Elements of the current grid.
    double read_ = 0;
    /// How often the exporter has asked since it has read the grid.
    double asked_ = 0;
    bool isReading_ = true;
};

} // namespace Tidewatch
