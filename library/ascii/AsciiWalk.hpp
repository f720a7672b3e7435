// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "library/Progress.hpp"
#include "library/ascii/AsciiPlan.hpp"
#include "library/export/CoordinateSurvey.hpp"
#include "library/export/RunRecorder.hpp"
#include "library/input/Inputs.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Follows the ASCII exporter through the bundle: it knows beforehand where it will stop, shows how far it
/// has come, learns which stop became which file, and looks at the values while they are in memory.
class AsciiWalk final : public RunRecorder {
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
              Anchor::StrongPtr<Progress> progress);
    ~AsciiWalk() override;

    /// What the exporter is to report its progress to; it must not outlive the walk.
    [[nodiscard]] Anchor::StrongPtr<Anchor::LoaderProgress> reporter() const;

    /// The grid exported; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const;

    void fragmentBegins(std::string_view, std::string_view, std::uint64_t) override {}
    void gridBegins(double time, const std::string& name) override;
    void finish(std::span<const ConvLib::WrittenFile> record) override;

private:
    class Reporter;

    void enterStop(std::size_t number);
    void leaveStop();

    AsciiSettings settings_;
    std::map<std::pair<double, std::string>, Grid> grids_;
    Anchor::StrongPtr<Progress> progress_;
    Anchor::StrongPtr<Reporter> reporter_;
    Grid* current_ = nullptr;
    /// The stop in hand, and the length of the exporter's record when it was entered.
    std::optional<std::size_t> stop_;
    std::size_t filesBefore_ = 0;
    double done_ = 0;
};

} // namespace Tidewatch
