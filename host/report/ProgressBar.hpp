// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/ReadOptions.hpp"
#include "host/report/Messages.hpp"
#include "library/Progress.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Tidewatch {

/// When progress is shown.
enum class ProgressMode {
    /// On a terminal.
    Automatic,
    /// Also if standard error is redirected, then as lines.
    Always,
    Never
};

/// The content of a progress line.
struct ProgressState {
    std::string text;
    /// 0 to 1; nullopt if the end is not known.
    std::optional<double> share;
    /// Units per second; nullopt until it can be estimated.
    std::optional<double> rate;
    /// What is counted, in the plural: "points".
    std::string unit;
    std::optional<double> secondsLeft;
};

/// "reading [######------------------]  25 %  3.2 M points/s  0:12 left".
[[nodiscard]] std::string progressLine(const ProgressState& state);

/// Shows the progress of the work, and interrupts it: every call throws Interrupted once the user has asked
/// to stop.
///
/// The share that it shows never falls, and reaches 100 % only at the end. Drawing is throttled by the clock, so calls
/// may be as frequent as the caller likes.
class ProgressBar final : public Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// `messages` must outlive the bar. `now` replaces the clock in tests.
    ProgressBar(ProgressMode mode, Messages& messages, std::function<Clock::time_point()> now = &Clock::now);
    ~ProgressBar() override;

    void part(double from, double to) override;
    void begin(const std::string& text, double total, const std::string& unit) override;
    void piece(double done, double size) override;
    /// Draws at once.
    void say(const std::string& text) override;
    /// As a line, where there is no bar or line that says so anyway.
    void waits(const std::string& text) override;
    /// Unless begin() was called, the file itself is the work.
    void tick(const std::string& file, double share) override;
    /// Removes the bar.
    void end() override;
    void check() override;

private:
    enum class Mode { Off, Redraw, Lines };

    void draw(bool atOnce);
    [[nodiscard]] ProgressState state(Clock::time_point now);
    /// The share of the whole run that is done.
    [[nodiscard]] double shareOfRun() const;

    Messages& messages_;
    std::function<Clock::time_point()> now_;
    Mode mode_ = Mode::Off;

    /// The current part of the run.
    double from_ = 0;
    double to_ = 1;
    /// The largest share shown so far.
    double shown_ = 0;
    /// When the first work began, and the share that was done by then.
    std::optional<Clock::time_point> firstStart_;
    double firstShare_ = 0;

    bool begun_ = false;
    bool isOver_ = false;
    std::string text_;
    std::string unit_;
    double total_ = 0;
    double done_ = 0;
    double pieceSize_ = 0;
    double share_ = 0;
    Clock::time_point start_{};
    std::optional<Clock::time_point> lastDrawn_;
};

} // namespace Tidewatch
