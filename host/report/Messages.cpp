// SPDX-License-Identifier: Apache-2.0
#include "host/report/Messages.hpp"

#include "anchor/printable.hpp"
#include "library/report/Wording.hpp"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <sys/ioctl.h>

namespace Tidewatch {

namespace {

constexpr std::size_t usualWidth = 80;

std::size_t widthOf(std::FILE* stream) {
    struct winsize size {};
    if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return usualWidth;
    return size.ws_col;
}

/// Cuts a text to a number of characters, never inside a UTF-8 sequence.
std::string_view cut(std::string_view text, std::size_t width) {
    std::size_t characters = 0;
    for (std::size_t place = 0; place < text.size(); ++place) {
        const bool begins = (static_cast<unsigned char>(text[place]) & 0xc0U) != 0x80U;
        if (begins && characters++ == width)
            return text.substr(0, place);
    }
    return text;
}

/// Whether a message of an exporter says that it leaves something out.
bool tellsOfSomethingMissing(std::string_view message) {
    constexpr std::string_view phrases[] = {"Have no ", "can only ", "Can only ", "cannot ", "Cannot "};
    return std::any_of(std::begin(phrases), std::end(phrases), [&](std::string_view phrase) {
        return message.find(phrase) != std::string_view::npos;
    });
}

} // namespace

Messages::Messages(Verbosity verbosity, std::FILE* stream)
    : stream_(stream),
      verbosity_(verbosity),
      earlierSink_(Anchor::Console::setSink([this](std::string_view message) {
          if (verbosity_ == Verbosity::Verbose)
              note(message);
          else if (tellsOfSomethingMissing(message))
              takeConsoleMessage(message);
      })) {}

Messages::~Messages() {
    Anchor::Console::setSink(std::move(earlierSink_));
    try {
        tellRepeats();
        status({});
    } catch (...) {
        // The only consequence is that the status line remains on the screen.
    }
}

void Messages::takeConsoleMessage(std::string_view message) {
    const auto known = std::find_if(repeats_.begin(), repeats_.end(),
                                    [&](const Repeats& repeats) { return repeats.message == message; });
    if (known != repeats_.end()) {
        ++known->more;
        return;
    }
    note(message);
    repeats_.push_back({std::string(message)});
}

void Messages::tellRepeats() {
    for (Repeats& repeats : repeats_) {
        if (const std::uint64_t more = std::exchange(repeats.more, 0); more != 0)
            note(fmt::format("... and {} more: {}", grouped(more), repeats.message));
    }
}

void Messages::line(std::string_view text) {
    const std::string below = std::exchange(status_, {});
    // Carriage return and "erase to the end of the line" (ECMA-48 EL) remove the status line.
    std::string all = below.empty() ? "" : "\r\x1b[K";
    all.append(Anchor::printableLines(text)).append("\n").append(below);
    std::fwrite(all.data(), 1, all.size(), stream_);
    std::fflush(stream_);
    status_ = below;
}

void Messages::note(std::string_view text) {
    if (verbosity_ != Verbosity::Quiet)
        line(text);
}

void Messages::warning(std::string_view text) {
    if (verbosity_ == Verbosity::Quiet)
        return;
    tellRepeats();
    line(std::string("tidewatch: warning: ").append(text));
}

void Messages::error(std::string_view text) {
    tellRepeats();
    line(std::string("tidewatch: ").append(text));
}

void Messages::status(std::string_view text) {
    if (text.empty() && status_.empty())
        return;
    status_ = cut(Anchor::printable(text), widthOf(stream_) - 1);
    const std::string all = "\r" + status_ + "\x1b[K";
    std::fwrite(all.data(), 1, all.size(), stream_);
    std::fflush(stream_);
}

bool Messages::canRedraw() const {
    const char* const terminal = std::getenv("TERM");
    return ::isatty(::fileno(stream_)) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

} // namespace Tidewatch
