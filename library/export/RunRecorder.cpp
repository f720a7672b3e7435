// SPDX-License-Identifier: Apache-2.0
#include "library/export/RunRecorder.hpp"

#include "convlib/BasicConverterDefs.hpp"

#include <algorithm>

namespace Tidewatch {

ExportedGrid::Change ExportedGrid::changed(const std::string& attribute, ConvLib::ValueChange change) const {
    const auto found = changes.find({attribute, change});
    return found != changes.end() ? found->second : Change{};
}

RunRecorder::RunRecorder(RunScope scope, Anchor::StrongPtr<Progress> progress)
    : scope_(std::move(scope)),
      progress_(progress ? std::move(progress) : Anchor::makeStrong<Progress>()) {}

RunRecorder::~RunRecorder() = default;

void RunRecorder::follow(ConvLib::BasicConverterDefs& exporter) {
    exporter_ = &exporter;
    exporter.setObserver(Anchor::StrongPtr<RunObserver>(this));
    exporter.setStopQuestion([this] { goesOn(); });
}

std::size_t RunRecorder::filesSoFar() const noexcept {
    return exporter_ != nullptr ? exporter_->writtenFiles().size() : 0;
}

void RunRecorder::endFragment() {
    if (!grids_.empty() && !grids_.back().fragments.empty())
        grids_.back().fragments.back().endFile = filesSoFar();
}

void RunRecorder::finish(std::span<const ConvLib::WrittenFile> record) {
    endFragment();
    std::size_t file = 0;
    for (ExportedGrid& grid : grids_) {
        grid.firstFile = file;
        while (file < record.size() && record[file].time == grid.time && record[file].grid == grid.name)
            ++file;
        grid.endFile = file;
    }
}

void RunRecorder::goesOn() {
    progress_->check();
}

void RunRecorder::recordGrid(double time, const std::string& grid) {
    progress_->check();
    endFragment();
    grids_.push_back({time, grid});
}

void RunRecorder::gridBegins(double time, const std::string& grid) {
    recordGrid(time, grid);
    progress_->say("writing " + grid);
}

void RunRecorder::recordFragment(std::string_view field, std::string_view fragment, std::uint64_t elements) {
    endFragment();
    grids_.back().fragments.push_back(
        {std::string(field), std::string(fragment), filesSoFar(), filesSoFar(), elements});
}

void RunRecorder::fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) {
    recordFragment(field, fragment, elements);
    const auto size = static_cast<double>(elements);
    progress_->piece(done_, size);
    done_ += size;
}

void RunRecorder::positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) {
    grids_.back().survey.look(positions);
}

void RunRecorder::valuesChanged(const ConvLib::ChangedValues& values) {
    ExportedGrid::Change& sum = grids_.back().changes[{std::string(values.attribute), values.change}];
    sum.count += values.count;
    sum.total += values.total;
    sum.most = std::max(sum.most, values.most);
}

} // namespace Tidewatch
