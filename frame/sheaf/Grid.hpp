// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/BaseSpace.hpp"
#include "sheaf/FileStatement.hpp"
#include "sheaf/SkeletonMap.hpp"

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Sheaf {

/// One object of a time slice, such as a point cloud or an elevation model: its skeletons with their fields,
/// the charts that the fields are expressed in, and the identifiers of its fragments.
class TIDEWATCH_API Grid : public Anchor::ReferenceBase<Grid> {
public:
    /// The chart that is used by default.
    static constexpr std::string_view standardChart = "StandardCartesianChart3D";

    /// `origin` names the source of the grid for messages, for example a file's path; it may be empty.
    explicit Grid(std::string name, std::string origin = {})
        : name_(std::move(name)),
          origin_(std::move(origin)) {}
    ~Grid() override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const std::string& origin() const noexcept { return origin_; }

    /// What the file that it comes from states. To be set before others see the grid.
    [[nodiscard]] const FileStatement& statement() const noexcept { return statement_; }
    void setStatement(FileStatement statement) { statement_ = std::move(statement); }

    [[nodiscard]] SkeletonMap& skeletons() noexcept { return skeletons_; }
    [[nodiscard]] const SkeletonMap& skeletons() const noexcept { return skeletons_; }

    /// The vertex skeleton of the highest refinement that is the same in every direction and at most `bound`,
    /// or null.
    [[nodiscard]] Anchor::StrongPtr<Skeleton> findHighestHomogenousVertexRefinement(int bound) const;

    /// The chart of that name, or null.
    ///
    /// The empty name means the default chart: the standard chart if the grid has it, else the first by name.
    /// A chart created by makeCartesianChart is a candidate only once some representation uses it, so that an
    /// exporter that creates the standard chart does not change what the next exporter finds.
    [[nodiscard]] Anchor::StrongPtr<BaseSpace> findCartesianChart(const std::string& name) const;

    /// The chart of that name, created if missing. The number is part of the framework's contract;
    /// three-dimensional charts do not depend on it. Safe while other threads read the grid or create charts.
    Anchor::StrongPtr<BaseSpace> makeCartesianChart(const std::string& name, unsigned short number);

    /// The chart of that name, created if missing, and from now on a candidate for the default even without a
    /// representation: for charts that a file states.
    Anchor::StrongPtr<CartesianChart> declareCartesianChart(const std::string& name);

    /// The chart that findCartesianChart() finds, as what it is; or null.
    [[nodiscard]] Anchor::StrongPtr<CartesianChart> findChart(const std::string& name) const;

    /// The names of the charts among which findCartesianChart("") chooses, in ascending byte order.
    [[nodiscard]] std::vector<std::string> chartNames() const;

    /// The field of that name of a skeleton in a chart, or the null field.
    [[nodiscard]] Anchor::StrongPtr<Field> getField(const Anchor::StrongPtr<BaseSpace>& chart,
                                                    const std::string& fieldName,
                                                    const Anchor::StrongPtr<Skeleton>& skeleton) const;

    /// The identifier of the fragment of that name, created if missing; the fields of a grid share it.
    Anchor::StrongPtr<FragmentID> makeFragment(const std::string& name);

    /// All fragment identifiers by name.
    [[nodiscard]] const std::map<std::string, Anchor::StrongPtr<FragmentID>>& fragments() const noexcept {
        return fragments_;
    }

private:
    struct Chart {
        Anchor::StrongPtr<CartesianChart> space;
        bool declared = false;
    };

    [[nodiscard]] bool isCandidate(const Chart& chart) const;
    Chart& madeChart(const std::string& name);

    std::string name_;
    std::string origin_;
    FileStatement statement_;
    mutable std::mutex chartsMutex_; // exporters create charts in grids that other threads read
    std::map<std::string, Chart> charts_;
    std::map<std::string, Anchor::StrongPtr<FragmentID>> fragments_;
    SkeletonMap skeletons_;
};

} // namespace Sheaf
