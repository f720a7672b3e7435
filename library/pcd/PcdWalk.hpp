// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "library/export/CoordinateSurvey.hpp"
#include "library/export/RunRecorder.hpp"
#include "library/input/Inputs.hpp"
#include "sheaf/Grid.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tidewatch {

/// Follows the PCD exporter through the bundle: it knows beforehand which data will be asked for, shows how
/// far the reading has come, and looks at the positions while they are in memory.
class PcdWalk final : public RunRecorder {
public:
    /// What is known of a grid once it has been walked through.
    struct Grid {
        /// Why there is nothing to export; empty where there is.
        std::string obstacle;
        CoordinateSurvey survey;
        /// The step in which the input stores coordinates.
        std::optional<Geom::PhysicalSpace::vector> inputStep;
        /// Intensities that the exporter takes, and the element types of those that it cannot take.
        std::uint64_t intensities = 0;
        std::set<std::string> unfitIntensities;
        /// The other fields, of which it takes none.
        std::set<std::string> otherFields;
    };

    /// `refinementLevel` is the exporter's RefLevel.
    PcdWalk(RunScope scope, const Inputs& inputs, Selection& selection, int refinementLevel,
            Anchor::StrongPtr<Progress> progress);
    ~PcdWalk() override;

    /// The grid exported; null for one that is not among the inputs.
    [[nodiscard]] const Grid* find(const ExportedGrid& exported) const;

    void gridBegins(double time, const std::string& name) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override;
    void finish(std::span<const ConvLib::WrittenFile> record) override;

private:
    /// A fragment of a field at which the exporter will stop.
    struct Stop {
        std::string field;
        Sheaf::Field::Creator data;
        /// Elements that it will read here.
        std::uint64_t elements;
    };
    struct Plan {
        Grid grid;
        std::vector<Stop> stops;
    };

    static Plan planOf(const Sheaf::Grid& grid, Selection& selection, int refinementLevel);
    void leaveStop();

    std::map<std::pair<double, std::string>, Plan> plans_;
    Anchor::StrongPtr<Progress> progress_;
    Plan* current_ = nullptr;
    std::size_t nextStop_ = 0;
    const Stop* stop_ = nullptr;
    std::uint64_t totalElements_ = 0;
    std::uint64_t elementsBehind_ = 0;
};

} // namespace Tidewatch
