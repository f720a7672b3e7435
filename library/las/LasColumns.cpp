// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasColumns.hpp"

#include "sheaf/ElementTypes.hpp"

#include <cstring>
#include <limits>
#include <string_view>

namespace Tidewatch {

namespace {

template <class T>
void fill(LasColumns::Column<T>& column, const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    if (auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data))
        column = std::move(array);
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
        columns.extras.push_back(
            {creator ? Anchor::dynamicCast<Sheaf::MemBase>(creator->create(false)) : nullptr,
             plan.extras[i].component});
    }
    return columns;
}

std::optional<double> LasColumns::Extra::value(std::size_t place) const {
    std::optional<double> found;
    if (!array)
        return found;
    Sheaf::visitElementType(array->elementType(), [&](auto tag) {
        using Element = typename decltype(tag)::type;
        using Number = typename Sheaf::ElementTraits<Element>::Component;
        const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<Element>>(array);
        if (!typed || place >= typed->base_vector().size())
            return;
        Number number{};
        std::memcpy(&number,
                    reinterpret_cast<const std::byte*>(&typed->base_vector()[place]) +
                        component * sizeof number,
                    sizeof number);
        // What is larger than a double becomes infinite; C++ leaves the plain conversion undefined.
        constexpr auto largest = static_cast<long double>(std::numeric_limits<double>::max());
        const auto wide = static_cast<long double>(number);
        constexpr double infinity = std::numeric_limits<double>::infinity();
        found = wide > largest ? infinity : wide < -largest ? -infinity : static_cast<double>(number);
    });
    return found;
}

} // namespace Tidewatch
