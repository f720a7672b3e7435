// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdRecorder.hpp"

#include <algorithm>
#include <utility>

namespace Tidewatch {

namespace {

/// Thinning and writing take about as long as reading.
constexpr double stages = 2;
/// The questions for each 65 536 points from the first pass over the positions in memory to the last line: more than
/// usual, so that the progress does not reach its end before the exporter does.
constexpr double questions = 24;
constexpr double pointsPerQuestion = 65536;

} // namespace

PcdRecorder::PcdRecorder(RunScope scope, double elements, Anchor::StrongPtr<Progress> progress)
    : RunRecorder(std::move(scope), std::move(progress)),
      elements_(elements) {}

PcdRecorder::~PcdRecorder() = default;

void PcdRecorder::begin() {
    progress().begin("reading", stages * elements_, "values");
}

void PcdRecorder::gridBegins(double time, const std::string& grid) {
    before_ += stages * std::exchange(read_, 0);
    isReading_ = true;
    asked_ = 0;
    recordGrid(time, grid);
    progress().say("reading " + grid);
}

void PcdRecorder::fragmentBegins(std::string_view field, std::string_view fragment, std::uint64_t elements) {
    recordFragment(field, fragment, elements);
    progress().piece(before_ + read_, static_cast<double>(elements));
    read_ += static_cast<double>(elements);
}

void PcdRecorder::positionsWritten(std::span<const Geom::PhysicalSpace::point> positions) {
    if (std::exchange(isReading_, false)) {
        progress().piece(before_ + read_, (stages - 1) * read_);
        progress().say("thinning and writing " + grids().back().name);
    }
    RunRecorder::positionsWritten(positions);
}

void PcdRecorder::goesOn() {
    RunRecorder::goesOn();
    if (isReading_)
        return;
    asked_ += 1;
    const double expected = questions * (1 + read_ / pointsPerQuestion);
    progress().tick({}, std::min(asked_ / expected, 1.0));
}

} // namespace Tidewatch
