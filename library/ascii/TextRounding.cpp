// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/TextRounding.hpp"

#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <limits>
#include <type_traits>
#include <vector>

namespace Tidewatch {

namespace {

template <std::floating_point T>
class Rounding {
public:
    explicit Rounding(unsigned int decimals)
        : scale_(std::pow(Wide(10), static_cast<Wide>(std::min(decimals, mostDecimals)))) {}

    void look(T value) {
        const Wide scaled = static_cast<Wide>(value) * scale_;
        // Beyond its digits a number has no decimals left to lose. NaN ends here, too.
        if (!(std::fabs(scaled) < 1 / std::numeric_limits<Wide>::epsilon()))
            return;
        const Wide loss = std::fabs(std::nearbyint(scaled) / scale_ - static_cast<Wide>(value));
        if (loss > 4 * static_cast<Wide>(std::numeric_limits<T>::epsilon() * std::fabs(value)))
            worst_ = std::max(worst_, loss);
    }

    [[nodiscard]] double worst() const { return static_cast<double>(worst_); }

private:
    // The arithmetic of floats would add losses of its own.
    using Wide = std::conditional_t<std::same_as<T, float>, double, T>;
    static constexpr unsigned int mostDecimals = 300;

    Wide scale_;
    Wide worst_ = 0;
};

template <class T>
double roundingOf(const std::vector<T>& elements, unsigned int decimals) {
    if constexpr (std::floating_point<T>) {
        Rounding<T> rounding(decimals);
        for (const T element : elements)
            rounding.look(element);
        return rounding.worst();
    } else if constexpr (requires(const T& element) { element.x + element.y + element.z; }) {
        Rounding<std::remove_cvref_t<decltype(T().x)>> rounding(decimals);
        for (const T& element : elements) {
            rounding.look(element.x);
            rounding.look(element.y);
            rounding.look(element.z);
        }
        return rounding.worst();
    } else {
        return 0;
    }
}

} // namespace

double textRounding(const Sheaf::MemBase& array, unsigned int decimals) {
    double worst = 0;
    Sheaf::visitElementType(array.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        if (const auto* const typed = dynamic_cast<const Sheaf::TypedArray<T>*>(&array))
            worst = roundingOf(typed->base_vector(), decimals);
    });
    return worst;
}

} // namespace Tidewatch
