// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/RunObserver.hpp"
#include "convlib/WrittenFile.hpp"
#include "library/Progress.hpp"
#include "library/export/CoordinateSurvey.hpp"
#include "library/export/RunScope.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ConvLib {
class BasicConverterDefs;
}

namespace Tidewatch {

/// The files that one grid and its fragments became, and how its values changed.
struct ExportedGrid {
    double time;
    std::string name;
    /// Indices into the exporter's record of written files: [firstFile, endFile).
    std::size_t firstFile = 0;
    std::size_t endFile = 0;

    /// A fragment as the exporter announced it, and the files that it recorded before the next one. The field is empty
    /// for points with all their fields, the fragment for data without one.
    struct Fragment {
        std::string field;
        std::string fragment;
        std::size_t firstFile = 0;
        std::size_t endFile = 0;
        /// As announced.
        std::uint64_t elements = 0;
    };
    /// In the order of the run.
    std::vector<Fragment> fragments = {};

    /// The sum of an exporter's counts of values that changed in one way.
    struct Change {
        std::uint64_t count = 0;
        std::uint64_t total = 0;
        double most = 0;
    };
    /// By attribute.
    std::map<std::pair<std::string, ConvLib::ValueChange>, Change> changes = {};
    /// The survey of the positions that were written.
    CoordinateSurvey survey = {};

    [[nodiscard]] bool hasFiles() const noexcept { return firstFile != endFile; }

    /// How values of an attribute changed in one way; all zeros if none did.
    [[nodiscard]] Change changed(const std::string& attribute, ConvLib::ValueChange change) const;
};

/// Observes one run of an exporter: connects it to the progress object, and records which grid became which files and
/// how its values changed.
class TIDEWATCH_API RunRecorder : public ConvLib::RunObserver {
public:
    RunRecorder(RunScope scope, Anchor::StrongPtr<Progress> progress);
    ~RunRecorder() override;

    /// Observes an exporter from now on.
    void follow(ConvLib::BasicConverterDefs& exporter);

    /// The run is over; `record` is the exporter's record of written files.
    virtual void finish(std::span<const ConvLib::WrittenFile> record);

    [[nodiscard]] const RunScope& scope() const noexcept { return scope_; }

    /// The grids in the order of the run.
    [[nodiscard]] const std::vector<ExportedGrid>& grids() const noexcept { return grids_; }

    void gridBegins(double time, const std::string& grid) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override;
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override;
    void valuesChanged(const ConvLib::ChangedValues& values) override;

protected:
    /// The exporter asks whether to go on: every 65 536 points, lines or cells of each thing that it does with them.
    virtual void goesOn();

    /// Records a grid and a fragment without reporting progress.
    void recordGrid(double time, const std::string& grid);
    void recordFragment(std::string_view field, std::string_view fragment, std::uint64_t elements);

    [[nodiscard]] Progress& progress() const noexcept { return *progress_; }
    /// The length of the exporter's record.
    [[nodiscard]] std::size_t filesSoFar() const noexcept;

private:
    void endFragment();

    RunScope scope_;
    Anchor::StrongPtr<Progress> progress_;
    ConvLib::BasicConverterDefs* exporter_ = nullptr;
    double done_ = 0;
    std::vector<ExportedGrid> grids_;
};

} // namespace Tidewatch
