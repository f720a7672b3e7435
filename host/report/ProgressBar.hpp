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
enum class ProgressWish {
    /// On a terminal.
    Automatic,
    /// Also where standard error is redirected, there as lines.
    Always,
    Never
};

/// What a line of progress says.
struct ProgressState {
    std::string text;
    /// 0 to 1; nullopt where the end is not known.
    std::optional<double> share;
    /// Units per second; nothing while too little is known.
    std::optional<double> rate;
    /// What is counted, in the plural: "points".
    std::string unit;
    std::optional<double> secondsLeft;
};

/// "reading [######------------------]  25 %  3.2 M points/s  0:12 left".
[[nodiscard]] std::string progressLine(const ProgressState& state);

/// Shows how far the work has come, and is where the work is interrupted: every call throws Interrupted once
/// the user has asked to stop.
///
/// Drawing is throttled by the clock, so calls may come as often as they like.
class ProgressBar final : public Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// `messages` must outlive the bar. `now` replaces the clock in tests.
    ProgressBar(ProgressWish wish, Messages& messages, std::function<Clock::time_point()> now = &Clock::now);
    ~ProgressBar() override;

    void begin(const std::string& text, double total, const std::string& unit) override;
    void piece(double done, double size) override;
    /// Draws at once.
    void say(const std::string& text) override;
    /// Without begun work the file itself is the work.
    void tick(const std::string& file, double share) override;
    /// The bar goes away.
    void end() override;
    void check() override;

private:
    enum class Mode { Off, Redraw, Lines };

    void draw(bool atOnce);
    [[nodiscard]] ProgressState state(Clock::time_point now) const;

    Messages& messages_;
    std::function<Clock::time_point()> now_;
    Mode mode_ = Mode::Off;

    bool begun_ = false;
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
