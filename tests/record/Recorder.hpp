// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Record {

/// A number as text that depends on neither locale nor library.
inline std::string number(double value) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

/// FNV-1a, 64 bits.
inline std::uint64_t hashOf(std::string_view bytes) noexcept {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : bytes) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001b3;
    }
    return hash;
}

inline std::string hexadecimal(std::uint64_t value) {
    char digits[16];
    const std::string text(digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr);
    return std::string(sizeof digits - text.size(), '0') + text;
}

/// What the stage lets happen when somebody asks for something that it has prepared to fail.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The list of all that an exporter asks, prints, reports and makes, in order. One that is alive receives
/// what the replaced functions of the frame are called with (replacedFunctions.cpp).
class Recorder {
public:
    /// `folder` is shown as "<out>".
    explicit Recorder(std::string folder)
        : folder_(std::move(folder)),
          before_(std::exchange(current_, this)) {}
    ~Recorder() { current_ = before_; }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    [[nodiscard]] static Recorder* current() noexcept { return current_; }

    /// Adds a line, after those for what has changed on the outside since the line before.
    void event(const std::string& line) {
        observe();
        add(line);
        act();
    }

    /// The same for a question, with the answer that `answer` gives; an exception is an answer, too, and goes
    /// on to who asked.
    template <class Answer>
    bool question(const std::string& line, Answer&& answer) {
        observe();
        bool yes = false;
        try {
            yes = answer();
        } catch (...) {
            add(line + " -> throws");
            throw;
        }
        add(line + (yes ? " -> yes" : " -> no"));
        act();
        return yes;
    }

    /// Adds a line as it is but for paths, amounts of memory and control characters.
    void add(std::string line) {
        replaceAll(line, folder_, "<out>");
        maskMemory(line);
        lines_.push_back(escaped(line));
    }

    void observe() {
        if (observer)
            observer();
    }

    [[nodiscard]] const std::vector<std::string>& lines() const noexcept { return lines_; }

    /// All lines in one text.
    [[nodiscard]] std::string text() const {
        std::string all;
        for (const std::string& line : lines_)
            all.append(line).append("\n");
        return all;
    }

    /// Adds lines for what has changed: files, records, errors.
    std::function<void()> observer;
    /// Called when the host has been asked that many times, counted from 1.
    std::map<std::size_t, std::function<void()>> actions;
    /// Stands in for what a host's bundle library does when a slice is accessed.
    std::function<void(double time)> onAccess;

private:
    void act() {
        const auto found = actions.find(++count_);
        if (found != actions.end())
            found->second();
    }

    static void replaceAll(std::string& text, const std::string& what, std::string_view by) {
        for (std::size_t place = 0; (place = text.find(what, place)) != std::string::npos; place += by.size())
            text.replace(place, what.size(), by);
    }

    /// How much the memory cache holds is nothing that an exporter decides.
    static void maskMemory(std::string& text) {
        constexpr std::string_view label = "(Mem: ";
        const std::size_t begin = text.find(label);
        const std::size_t end = begin != std::string::npos ? text.find("[MB])", begin) : begin;
        if (end != std::string::npos)
            text.replace(begin + label.size(), end - begin - label.size(), "N");
    }

    static std::string escaped(const std::string& text) {
        std::string result;
        for (const char c : text) {
            if (c == '\n')
                result += "\\n";
            else
                result += c;
        }
        return result;
    }

    static inline Recorder* current_ = nullptr;

    std::string folder_;
    Recorder* before_;
    std::vector<std::string> lines_;
    std::size_t count_ = 0;
};

} // namespace Record
