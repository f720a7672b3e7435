// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/LoaderProgress.hpp"
#include "anchor/StrongPtr.hpp"
#include "convlib/ReadOptions.hpp"
#include "host/report/Messages.hpp"

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
    /// 0 to 1; nothing where the end is not known.
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
/// The work consists of pieces, each of some size; reading a piece tells its share. Exporters that report
/// items of their own do so through progress(). Drawing is throttled by the clock, so calls may come as often
/// as they like.
class ProgressBar final : public Anchor::LoaderProgress {
public:
    using Clock = std::chrono::steady_clock;

    /// `messages` must outlive the bar. `now` replaces the clock in tests.
    ProgressBar(ProgressWish wish, Messages& messages, std::function<Clock::time_point()> now = &Clock::now);
    ~ProgressBar() override;

    /// An exporter's own report: the number of the current item of so many. Always answers true.
    bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) override;

    /// Begins work of a size that is counted in units (given in the plural).
    void begin(std::string text, double total, std::string unit);

    /// A piece begins: so much lies behind it, and so much it adds.
    void piece(double done, double size);

    /// Changes the text and draws at once.
    void say(std::string text);

    /// The share (0 to 1) that is done of the piece, while a file is read. Without begun work the file itself
    /// is the work.
    void tick(const std::string& file, double share);

    /// The work is over; the bar goes away.
    void end();

    /// A bar's tick() as readers take it; keeps the bar alive.
    [[nodiscard]] static std::function<void(const std::string&, double)>
    ticker(Anchor::StrongPtr<ProgressBar> bar);

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
