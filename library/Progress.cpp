// SPDX-License-Identifier: Apache-2.0
#include "library/Progress.hpp"

#include <utility>

namespace Tidewatch {

namespace {

thread_local Progress* progressOfThread = nullptr;

} // namespace

Progress::OnThisThread::OnThisThread(Progress& progress) noexcept {
    progressOfThread = &progress;
}

Progress::OnThisThread::~OnThisThread() {
    progressOfThread = nullptr;
}

bool Progress::OnThisThread::exists() noexcept {
    return progressOfThread != nullptr;
}

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
        (progressOfThread != nullptr ? progressOfThread : progress.get())->tick(file, share);
    };
}

} // namespace Tidewatch
