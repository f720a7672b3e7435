// SPDX-License-Identifier: Apache-2.0
#include "host/report/ProgressBar.hpp"

#include "host/Interruption.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds redrawInterval{100};
constexpr std::chrono::seconds lineInterval{1};
// Rates over a shorter time fluctuate too much.
constexpr Seconds settlingTime{0.5};
constexpr int barWidth = 24;

std::string rateText(double rate) {
    if (rate >= 1e6)
        return fmt::format("{:.1f} M ", rate / 1e6);
    if (rate >= 1e3)
        return fmt::format("{:.1f} k ", rate / 1e3);
    return fmt::format("{:.1f} ", rate);
}

std::string durationText(double seconds) {
    const auto whole = static_cast<std::uint64_t>(std::ceil(std::min(seconds, 1e9)));
    if (whole >= 3600)
        return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

} // namespace

std::string progressLine(const ProgressState& state) {
    std::string line = state.text;
    if (state.share) {
        const double share = std::clamp(*state.share, 0.0, 1.0);
        const int filled = static_cast<int>(share * barWidth);
        line += fmt::format(" [{:#<{}}{:-<{}}] {:3} %", "", filled, "", barWidth - filled,
                            static_cast<int>(share * 100));
    }
    if (state.rate)
        line += fmt::format("  {}{}/s", rateText(*state.rate), state.unit);
    if (state.secondsLeft)
        line += fmt::format("  {} left", durationText(*state.secondsLeft));
    return line;
}

ProgressBar::ProgressBar(ProgressMode mode, Messages& messages, std::function<Clock::time_point()> now)
    : messages_(messages),
      now_(std::move(now)) {
    if (mode != ProgressMode::Never && messages_.canRedraw())
        mode_ = Mode::Redraw;
    else if (mode == ProgressMode::Always)
        mode_ = Mode::Lines;
}

ProgressBar::~ProgressBar() = default;

void ProgressBar::part(double from, double to) {
    begun_ = false;
    from_ = std::clamp(from, 0.0, 1.0);
    to_ = std::clamp(to, from_, 1.0);
    share_ = 0;
    Interruption::check();
}

void ProgressBar::begin(const std::string& text, double total, const std::string& unit) {
    begun_ = true;
    text_ = text;
    unit_ = unit;
    total_ = total;
    done_ = pieceSize_ = share_ = 0;
    start_ = now_();
    if (!firstStart_) {
        firstStart_ = start_;
        firstShare_ = from_;
    }
    draw(true);
    Interruption::check();
}

void ProgressBar::piece(double done, double size) {
    done_ = done;
    pieceSize_ = size;
    share_ = 0;
    draw(false);
    Interruption::check();
}

void ProgressBar::say(const std::string& text) {
    text_ = text;
    draw(true);
    Interruption::check();
}

void ProgressBar::waits(const std::string& text) {
    if (mode_ == Mode::Off)
        messages_.note("tidewatch: " + text);
    else
        say(text);
    Interruption::check();
}

void ProgressBar::tick(const std::string& file, double share) {
    share_ = share;
    if (!begun_)
        text_ = "reading " + file;
    draw(false);
    Interruption::check();
}

void ProgressBar::end() {
    if (mode_ == Mode::Lines && firstStart_) {
        done_ = total_;
        pieceSize_ = share_ = 0;
        isOver_ = true;
        draw(true);
    }
    begun_ = isOver_ = false;
    from_ = shown_ = share_ = 0;
    to_ = 1;
    firstStart_.reset();
    if (mode_ == Mode::Redraw)
        messages_.status({});
}

void ProgressBar::check() {
    Interruption::check();
}

void ProgressBar::draw(bool atOnce) {
    if (mode_ == Mode::Off)
        return;
    const Clock::time_point now = now_();
    const Clock::duration interval =
        mode_ == Mode::Redraw ? Clock::duration(redrawInterval) : Clock::duration(lineInterval);
    if (!atOnce && lastDrawn_ && now - *lastDrawn_ < interval)
        return;
    lastDrawn_ = now;
    const std::string line = progressLine(state(now));
    if (mode_ == Mode::Redraw)
        messages_.status(line);
    else
        messages_.line(line);
}

double ProgressBar::shareOfRun() const {
    if (isOver_)
        return 1;
    const double ofPart = !begun_ ? share_ : total_ > 0 ? (done_ + share_ * pieceSize_) / total_ : 0;
    return from_ + std::clamp(ofPart, 0.0, 1.0) * (to_ - from_);
}

ProgressState ProgressBar::state(Clock::time_point now) {
    ProgressState state{text_, std::nullopt, std::nullopt, unit_, std::nullopt};
    // Full is what a bar is when nothing is left to be done.
    constexpr double most = 0.99;
    const double share = shareOfRun();
    shown_ = std::max(shown_, isOver_ ? 1 : std::min(share, most));
    state.share = shown_;
    if (!begun_)
        return state;
    const double done = std::min(total_, done_ + share_ * pieceSize_);
    const double elapsed = Seconds(now - start_).count();
    if (elapsed >= settlingTime.count() && done > 0)
        state.rate = done / elapsed;
    const double elapsedSinceFirst = Seconds(now - *firstStart_).count();
    if (elapsedSinceFirst >= settlingTime.count() && share > firstShare_)
        state.secondsLeft = (1 - share) * elapsedSinceFirst / (share - firstShare_);
    return state;
}

} // namespace Tidewatch
