// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasColumns.hpp"

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

} // namespace Tidewatch
