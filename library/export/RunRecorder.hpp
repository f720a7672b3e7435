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

/// Which files one grid and its fragments became, and what its values went through on the way.
struct ExportedGrid {
    double time;
    std::string name;
    /// Places in the exporter's record of written files: from the first to before the last.
    std::size_t firstFile = 0;
    std::size_t endFile = 0;

    /// A fragment as the exporter announced it, and the files that it recorded before the next one. The field is empty
    /// for points with all their fields, the fragment for data without one.
    struct Fragment {
        std::string field;
        std::string fragment;
        std::size_t firstFile = 0;
        std::size_t endFile = 0;
    };
    /// In the order of the run.
    std::vector<Fragment> fragments = {};

    /// What an exporter counted of values that changed in one way, added up.
    struct Change {
        std::uint64_t count = 0;
        std::uint64_t total = 0;
        double most = 0;
    };
    /// By attribute.
    std::map<std::pair<std::string, ConvLib::ValueChange>, Change> changes = {};
    /// Of the positions that were written.
    CoordinateSurvey survey = {};

    [[nodiscard]] bool hasFiles() const noexcept { return firstFile != endFile; }

    /// How values of an attribute changed in a way; all zeros where none did.
    [[nodiscard]] Change changed(const std::string& attribute, ConvLib::ValueChange change) const;
};

/// Follows one run of an exporter: narrows it to its scope, passes the questions of the progress object to it, and
/// notes which grid became which files and how its values changed.
class TIDEWATCH_API RunRecorder : public ConvLib::RunObserver {
public:
    RunRecorder(RunScope scope, Anchor::StrongPtr<Progress> progress);
    ~RunRecorder() override;

    /// Sets the filters of an exporter, whose own filters let the grids of the scope pass, and follows it from now on.
    void follow(ConvLib::BasicConverterDefs& exporter);

    /// The run is over; `record` is what the exporter wrote.
    virtual void finish(std::span<const ConvLib::WrittenFile> record);

    [[nodiscard]] const RunScope& scope() const noexcept { return scope_; }

    /// The grids in the order of the run.
    [[nodiscard]] const std::vector<ExportedGrid>& grids() const noexcept { return grids_; }

    void gridBegins(double time, const std::string& grid) override;
    void fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) override;
    void positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) override;
    void valuesChanged(const ConvLib::ChangedValues& values) override;

protected:
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
