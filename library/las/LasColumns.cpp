// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasColumns.hpp"

#include "sheaf/ElementTypes.hpp"

#include <cstring>
#include <limits>
#include <string_view>
#include <typeinfo>
#include <utility>

namespace Tidewatch {

namespace {

template <class T>
void fill(LasColumns::Column<T>& column, const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    if (auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data))
        column = std::move(array);
}

template <class Number>
double readNumber(const std::byte* bytes) {
    Number number{};
    std::memcpy(&number, bytes, sizeof number);
    // What is larger than a double becomes infinite; C++ leaves the plain conversion undefined.
    constexpr auto largest = static_cast<long double>(std::numeric_limits<double>::max());
    const auto wide = static_cast<long double>(number);
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return wide > largest ? infinity : wide < -largest ? -infinity : static_cast<double>(number);
}

} // namespace

LasColumns LasColumns::load(const std::vector<ExportLib::LasPlan::Capture>& captures) {
    LasColumns columns;
    for (const ExportLib::LasPlan::Capture& capture : captures) {
        const auto data = capture.data->create(false);
        columns.forEach([&](std::string_view name, auto& column) {
            if (name == capture.attribute)
                fill(column, data);
        });
    }
    return columns;
}

LasColumns LasColumns::load(const ExportLib::LasPlan& plan, const ExportLib::LasPlan::Fragment& fragment) {
    LasColumns columns = load(fragment.captures);
    for (std::size_t i = 0; i < plan.extras.size(); ++i) {
        const auto& creator = fragment.extras.at(i);
        columns.extras.emplace_back(creator ? Anchor::dynamicCast<Sheaf::MemBase>(creator->create(false))
                                            : nullptr,
                                    plan.extras[i].component);
    }
    return columns;
}

LasColumns::Extra::Extra(Anchor::StrongPtr<Sheaf::MemBase> array, std::size_t component)
    : array_(std::move(array)) {
    if (!array_)
        return;
    Sheaf::visitElementType(array_->elementType(), [&](auto tag) {
        using Element = typename decltype(tag)::type;
        using Number = typename Sheaf::ElementTraits<Element>::Component;
        const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<Element>>(array_);
        if (!typed)
            return;
        const std::vector<Element>& values = std::as_const(*typed).base_vector();
        first_ = reinterpret_cast<const std::byte*>(values.data()) + component * sizeof(Number);
        size_ = values.size();
        elementSize_ = sizeof(Element);
        read_ = readNumber<Number>;
    });
}

bool LasColumns::Extra::holdsFloats() const noexcept {
    return array_ && array_->elementType() == typeid(float);
}

} // namespace Tidewatch
