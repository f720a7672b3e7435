// SPDX-License-Identifier: Apache-2.0
#include "library/points/PointChoice.hpp"

namespace Tidewatch {

std::set<std::string> PointChoice::fieldsRead() const {
    std::set<std::string> fields;
    if (box)
        fields.insert("Positions");
    if (!classes.empty())
        fields.emplace(classField);
    if (returns) {
        if (returns->first || returns->last || !returns->numbers.empty())
            fields.emplace(returnField);
        if (returns->last || returns->only)
            fields.emplace(returnsField);
    }
    return fields;
}

} // namespace Tidewatch
