// SPDX-License-Identifier: Apache-2.0
#include "library/view/ViewColumn.hpp"

#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <type_traits>
#include <vector>

namespace Tidewatch {

namespace {

template <class T>
class ColumnOf final : public ViewColumn {
public:
    using Component = typename Sheaf::ElementTraits<T>::Component;

    explicit ColumnOf(std::size_t component) : component_(component) {}

    void take(const Anchor::StrongPtr<Anchor::Cacheable>& array,
              std::span<const std::uint32_t> elements) override {
        const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<T>>(array);
        const std::span<const T> values =
            typed ? std::span<const T>(typed->base_vector()) : std::span<const T>();
        const std::size_t before = values_.size();
        values_.resize(before + elements.size());
        Component* out = values_.data() + before;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (elements[i] < values.size()) [[likely]]
                out[i] = componentOf(values[elements[i]]);
            else
                markGap(before + i);
        }
    }

    [[nodiscard]] double value(std::size_t point) const override {
        return isGap(point) ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(values_[point]);
    }

    [[nodiscard]] std::uint64_t bytes() const override {
        return values_.capacity() * sizeof(Component) + gaps_.capacity() / 8;
    }
    [[nodiscard]] PackedColumn pack(std::span<const std::uint32_t> points) const override {
        if constexpr (std::is_integral_v<Component>) {
            if (auto packed = packWhole(points))
                return std::move(*packed);
        }
        using Packed = std::conditional_t<std::is_same_v<Component, float>, float, double>;
        std::vector<Packed> numbers(points.size());
        for (std::size_t i = 0; i < points.size(); ++i)
            numbers[i] = isGap(points[i]) ? std::numeric_limits<Packed>::quiet_NaN()
                                          : static_cast<Packed>(values_[points[i]]);
        return packFloats<Packed>(numbers);
    }

private:
    /// Nothing if numbers or their range are too large.
    [[nodiscard]] std::optional<PackedColumn> packWhole(std::span<const std::uint32_t> points) const {
        std::vector<std::optional<std::int64_t>> numbers(points.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            if (isGap(points[i]))
                continue;
            const Component number = values_[points[i]];
            if constexpr (std::is_same_v<Component, unsigned long long>) {
                if (number > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()))
                    return std::nullopt;
            }
            numbers[i] = static_cast<std::int64_t>(number);
        }
        return packIntegers(numbers, 0);
    }

    [[nodiscard]] Component componentOf(const T& element) const {
        Component component;
        // Elements consist of their components and nothing else, which ElementTraits asserts.
        std::memcpy(&component, reinterpret_cast<const char*>(&element) + component_ * sizeof component,
                    sizeof component);
        return component;
    }

    void markGap(std::size_t point) {
        gaps_.resize(std::max(gaps_.size(), point + 1));
        gaps_[point] = true;
    }
    [[nodiscard]] bool isGap(std::size_t point) const { return point < gaps_.size() && gaps_[point]; }

    std::size_t component_;
    std::vector<Component> values_;
    std::vector<bool> gaps_; // up to the last gap
};

} // namespace

std::unique_ptr<ViewColumn> ViewColumn::make(const std::type_info& elementType, std::size_t component) {
    std::unique_ptr<ViewColumn> column;
    Sheaf::visitElementType(elementType, [&](auto tag) {
        using T = typename decltype(tag)::type;
        if (component < Sheaf::ElementTraits<T>::componentCount)
            column = std::make_unique<ColumnOf<T>>(component);
    });
    return column;
}

std::size_t ViewColumn::components(const std::type_info& elementType) {
    std::size_t count = 0;
    Sheaf::visitElementType(elementType, [&](auto tag) {
        count = Sheaf::ElementTraits<typename decltype(tag)::type>::componentCount;
    });
    return count;
}

} // namespace Tidewatch
