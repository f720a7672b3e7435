// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "host/ascii/AsciiPlan.hpp"
#include "host/export/CoordinateSurvey.hpp"
#include "host/export/RunWatch.hpp"
#include "host/input/Inputs.hpp"
#include "host/report/ProgressBar.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Follows the ASCII exporter through the bundle: it knows beforehand where it will stop, shows how far it
/// has come, learns which stop became which file, and looks at the values while they are in memory.
class AsciiWalk final : public RunWatch {
public:
    /// A stop that became a file.
    struct Written {
        const AsciiStop* stop;
        /// The place in the exporter's record.
        std::size_t file;
        /// The most by which a value differs from its text, where that is more than the noise of its type.
        double rounding;
    };

    /// What is known of a grid once it has been walked through.
    struct Grid {
        AsciiPlan plan;
        std::vector<Written> written;
        /// Of the positions that were written as text.
        CoordinateSurvey survey;
        /// The step in which the input stores coordinates.
        std::optional<Geom::PhysicalSpace::vector> inputStep;
    };

    AsciiWalk(RunScope scope, const Inputs& inputs, Selection& selection, AsciiSettings settings,
              Anchor::StrongPtr<ProgressBar> bar);
    ~AsciiWalk() override;

    /// What the exporter is to report its progress to; it must not outlive the walk.
    [[nodiscard]] Anchor::StrongPtr<Anchor::LoaderProgress> reporter() const;

    /// The grid of a visit; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const Visit& visit) const;

protected:
    void onGrid() override;
    void onEnd() override;

private:
    class Reporter;

    void enterStop(std::size_t number);
    void leaveStop();

    AsciiSettings settings_;
    std::map<std::pair<double, std::string>, Grid> grids_;
    Anchor::StrongPtr<ProgressBar> bar_;
    Anchor::StrongPtr<Reporter> reporter_;
    Grid* current_ = nullptr;
    /// The stop in hand, and the length of the exporter's record when it was entered.
    std::optional<std::size_t> stop_;
    std::size_t filesBefore_ = 0;
    double done_ = 0;
};

} // namespace Tidewatch
