// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <typeinfo>

namespace Sheaf {

/// How a file stores the values of a field: each as a number of one type, which a scale and an offset make the value.
struct FieldEncoding {
    /// As in the file; any bytes.
    std::string name;
    std::string description = {};
    /// One of the number types among the element types of arrays; never null.
    const std::type_info* type = &typeid(double);
    /// value = stored * scale + offset; finite, and the scale not 0. Without either, values are stored as they are.
    std::optional<double> scale = {};
    std::optional<double> offset = {};
    /// The stored number that stands for no value. A long double holds the numbers of all types exactly.
    std::optional<long double> noData = {};
};

} // namespace Sheaf
