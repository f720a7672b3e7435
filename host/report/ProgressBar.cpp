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

void ProgressBar::begin(const std::string& text, double total, const std::string& unit) {
    begun_ = true;
    text_ = text;
    unit_ = unit;
    total_ = total;
    done_ = pieceSize_ = share_ = 0;
    start_ = now_();
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

void ProgressBar::tick(const std::string& file, double share) {
    share_ = share;
    if (!begun_)
        text_ = "reading " + file;
    draw(false);
    Interruption::check();
}

void ProgressBar::end() {
    if (mode_ == Mode::Lines && begun_) {
        done_ = total_;
        pieceSize_ = share_ = 0;
        draw(true);
    }
    begun_ = false;
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

ProgressState ProgressBar::state(Clock::time_point now) const {
    ProgressState state{text_, std::nullopt, std::nullopt, unit_, std::nullopt};
    if (!begun_) {
        state.share = share_;
        return state;
    }
    const double done = std::min(total_, done_ + share_ * pieceSize_);
    if (total_ > 0)
        state.share = done / total_;
    const double elapsed = Seconds(now - start_).count();
    if (elapsed >= settlingTime.count() && done > 0) {
        state.rate = done / elapsed;
        state.secondsLeft = (total_ - done) / *state.rate;
    }
    return state;
}

} // namespace Tidewatch
