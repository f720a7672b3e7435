// SPDX-License-Identifier: Apache-2.0
#include "library/Progress.hpp"

#include <utility>

namespace Tidewatch {

Progress::~Progress() = default;
void Progress::part(double, double) {}
void Progress::begin(const std::string&, double, const std::string&) {}
void Progress::piece(double, double) {}
void Progress::say(const std::string&) {}
void Progress::waits(const std::string&) {}
void Progress::tick(const std::string&, double) {}
void Progress::end() {}
void Progress::check() {}

std::function<void(const std::string&, double)> Progress::ticker(Anchor::StrongPtr<Progress> progress) {
    if (!progress)
        return {};
    return [progress = std::move(progress)](const std::string& file, double share) {
        progress->tick(file, share);
    };
}

} // namespace Tidewatch
