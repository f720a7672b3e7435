// SPDX-License-Identifier: Apache-2.0
#include "host/export/RunWatch.hpp"

#include "host/Interruption.hpp"

#include <utility>

namespace Tidewatch {

RunWatch::RunWatch(RunScope scope) : scope_(std::move(scope)) {}
RunWatch::~RunWatch() = default;

bool RunWatch::useTime(double time, bool passesFilter) {
    Interruption::check();
    time_ = time;
    return passesFilter && scope_.admits(time);
}

bool RunWatch::useGrid(const std::string& grid, bool passesFilter, std::size_t filesSoFar) {
    Interruption::check();
    closeVisit(filesSoFar);
    if (!passesFilter || !scope_.admits(grid))
        return false;
    visits_.push_back({time_, grid, filesSoFar, filesSoFar});
    onGrid();
    return true;
}

bool RunWatch::useField(const std::string& field, bool passesFilter, std::size_t filesSoFar) {
    Interruption::check();
    filesSoFar_ = filesSoFar;
    if (passesFilter)
        onField(field);
    return passesFilter;
}

void RunWatch::finish(std::size_t filesSoFar) {
    closeVisit(filesSoFar);
    onEnd();
}

void RunWatch::onGrid() {}
void RunWatch::onField(const std::string&) {}
void RunWatch::onEnd() {}

void RunWatch::closeVisit(std::size_t filesSoFar) {
    filesSoFar_ = filesSoFar;
    if (!visits_.empty())
        visits_.back().endFile = filesSoFar;
}

} // namespace Tidewatch
