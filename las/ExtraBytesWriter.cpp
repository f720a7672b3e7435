// SPDX-License-Identifier: Apache-2.0
#include "las/ExtraBytesWriter.hpp"

#include "formats/las/extraBytesEntry.hpp"
#include "formats/littleEndian.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemBase.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace ExportLib {

namespace {

/// In the order of Formats::Las::extraBytesTypes.
using RawTypes = std::tuple<unsigned char, signed char, unsigned short, short, unsigned int, int,
                            unsigned long long, long long, float, double>;
static_assert(std::tuple_size_v<RawTypes> == Formats::Las::extraBytesTypes.size());

template <class Component>
double load(const std::byte* from) noexcept {
    Component value;
    std::memcpy(&value, from, sizeof value);
    if constexpr (std::is_same_v<Component, long double>) {
        // C++ leaves the plain conversion of larger numbers undefined.
        if (std::abs(value) > static_cast<long double>(std::numeric_limits<double>::max()))
            return std::copysign(std::numeric_limits<double>::infinity(), value < 0 ? -1.0 : 1.0);
    }
    return static_cast<double>(value);
}

/// The nearest number of a type, halves away from zero; `value` is a number.
template <class Raw>
Raw nearest(double value) noexcept {
    using Limits = std::numeric_limits<Raw>;
    if constexpr (std::is_same_v<Raw, double>) {
        return value;
    } else if constexpr (std::is_same_v<Raw, float>) {
        // C++ leaves the plain conversion of larger numbers undefined.
        if (std::abs(value) > static_cast<double>(Limits::max()))
            return std::copysign(Limits::infinity(), static_cast<float>(std::copysign(1.0, value)));
        return static_cast<float>(value);
    } else {
        const double whole = std::round(value);
        if (whole <= static_cast<double>(Limits::min()))
            return Limits::min();
        // Converted to double, the max 64-bit integer is rounded up by one.
        if (whole >= static_cast<double>(Limits::max()))
            return Limits::max();
        return static_cast<Raw>(whole);
    }
}

} // namespace

template <class Raw>
void ExtraBytesWriter::store(const ExtraBytesWriter& writer, double value, std::uint8_t* to,
                             Changes& changes) noexcept {
    const double steps = (value - writer.offset_) / writer.scale_;
    Raw raw{};
    if (std::isnan(steps)) {
        const std::optional<long double>& noData = writer.description_.encoding.noData;
        if (noData && !std::isnan(*noData))
            raw = nearest<Raw>(static_cast<double>(*noData));
        else if constexpr (std::is_floating_point_v<Raw>)
            raw = std::numeric_limits<Raw>::quiet_NaN();
        else
            ++changes.lost;
    } else {
        raw = nearest<Raw>(steps);
        // Smaller changes are rounding errors of floating-point arithmetic.
        constexpr double noise = 1e-6;
        const double change = std::abs(static_cast<double>(raw) - steps);
        if (change >= 1 && !std::is_floating_point_v<Raw> && change > std::abs(steps) * 1e-15)
            ++changes.clamped;
        else if (change > noise && change > std::abs(steps) * (std::is_same_v<Raw, float> ? 1e-7 : 1e-15)) {
            ++changes.rounded;
            changes.most = std::max(changes.most, change * std::abs(writer.scale_));
        }
    }
    Formats::storeLittleEndian(to, raw);
}

template <std::size_t... type>
ExtraBytesWriter::Store ExtraBytesWriter::storeOf(const std::type_info& raw, std::index_sequence<type...>) {
    constexpr Store stores[]{&store<std::tuple_element_t<type, RawTypes>>...};
    return stores[Formats::Las::extraBytesTypeOf(raw) - 1U];
}

ExtraBytesWriter::ExtraBytesWriter(LasPlan::ExtraBytes description)
    : description_(std::move(description)),
      scale_(description_.encoding.scale.value_or(1.0)),
      offset_(description_.encoding.offset.value_or(0.0)),
      store_(storeOf(*description_.encoding.type, std::make_index_sequence<std::tuple_size_v<RawTypes>>())) {}

void ExtraBytesWriter::take(const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    data_ = nullptr;
    size_ = 0;
    const auto array = Anchor::dynamicCast<Sheaf::MemBase>(data);
    if (!array)
        return;
    Sheaf::visitElementType(array->elementType(), [&](auto tag) {
        using Element = typename decltype(tag)::type;
        using Component = typename Sheaf::ElementTraits<Element>::Component;
        const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<Element>>(array);
        if (!typed || description_.component >= Sheaf::ElementTraits<Element>::componentCount)
            return;
        const std::vector<Element>& elements = typed->base_vector();
        data_ = data;
        stride_ = sizeof(Element);
        size_ = elements.size();
        if (elements.empty())
            return;
        first_ =
            reinterpret_cast<const std::byte*>(elements.data()) + description_.component * sizeof(Component);
        load_ = &load<Component>;
        isCopied_ = typeid(Component) == *description_.encoding.type && scale_ == 1 && offset_ == 0;
    });
}

void ExtraBytesWriter::copy(const std::byte* from, std::uint8_t* to) const noexcept {
    // Files and memory have the same byte order: see formats/littleEndian.hpp.
    std::memcpy(to, from, description_.size);
}

} // namespace ExportLib
