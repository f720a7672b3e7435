// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace ExportLib {

/// Counts floating-point numbers that change by more than the noise of their type when written with a number of
/// decimals. Numbers that are not finite never change.
template <std::floating_point T>
class NumberRounding {
public:
    explicit NumberRounding(unsigned int decimals)
        : scale_(std::pow(Wide(10), static_cast<Wide>(std::min(decimals, maxDecimals)))) {}

    void add(T value) {
        const Wide scaled = static_cast<Wide>(value) * scale_;
        // A number this large has no decimals to lose. NaN ends here, too.
        if (!(std::fabs(scaled) < 1 / std::numeric_limits<Wide>::epsilon()))
            return;
        const Wide loss = std::fabs(nearest(scaled) / scale_ - static_cast<Wide>(value));
        if (loss > 4 * static_cast<Wide>(std::numeric_limits<T>::epsilon() * std::fabs(value))) {
            ++count_;
            worst_ = std::max(worst_, loss);
        }
    }

    void add(const NumberRounding& other) noexcept {
        count_ += other.count_;
        worst_ = std::max(worst_, other.worst_);
    }

    [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
    /// The largest change.
    [[nodiscard]] double worst() const noexcept { return static_cast<double>(worst_); }

private:
    // Floats are computed in double: float arithmetic would add its own rounding errors.
    using Wide = std::conditional_t<std::same_as<T, float>, double, T>;
    static constexpr unsigned int maxDecimals = 300;

    [[nodiscard]] static Wide nearest(Wide value) {
        if constexpr (std::same_as<Wide, double>) {
            // Doubles of this size are whole numbers, so the addition rounds to one.
            constexpr double shifter = 0x1.8p52;
            if (std::fabs(value) < 0x1p51)
                return (value + shifter) - shifter;
        }
        return std::nearbyint(value);
    }

    Wide scale_;
    Wide worst_ = 0;
    std::uint64_t count_ = 0;
};

/// For integers and colours, which have no decimals to lose.
struct NoRounding {
    explicit NoRounding(unsigned int) {}
    template <class T>
    void add(const T&) noexcept {}
    [[nodiscard]] static std::uint64_t count() noexcept { return 0; }
    [[nodiscard]] static double worst() noexcept { return 0; }
};

/// Points and vectors: each component counts.
template <class T>
class ComponentRounding {
public:
    explicit ComponentRounding(unsigned int decimals) : numbers_(decimals) {}
    void add(const T& element) {
        numbers_.add(element.x);
        numbers_.add(element.y);
        numbers_.add(element.z);
    }
    void add(const ComponentRounding& other) noexcept { numbers_.add(other.numbers_); }
    [[nodiscard]] std::uint64_t count() const noexcept { return numbers_.count(); }
    [[nodiscard]] double worst() const noexcept { return numbers_.worst(); }

private:
    NumberRounding<std::remove_cvref_t<decltype(T().x)>> numbers_;
};

template <class T>
struct TextRoundingOf {
    using type = NoRounding;
};
template <std::floating_point T>
struct TextRoundingOf<T> {
    using type = NumberRounding<T>;
};
template <class T>
requires requires(const T& element) {
    element.x + element.y + element.z;
}
struct TextRoundingOf<T> {
    using type = ComponentRounding<T>;
};

/// Counts the changes for elements of any type that has a writer.
template <class T>
using TextRounding = typename TextRoundingOf<T>::type;

} // namespace ExportLib
