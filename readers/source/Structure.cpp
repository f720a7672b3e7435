// SPDX-License-Identifier: Apache-2.0
#include "readers/source/Structure.hpp"

#include "formats/las/extraBytesEntry.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Tidewatch {

std::string faultOf(const Sheaf::FileStatement& statement) {
    if (statement.step && !std::all_of(statement.step->begin(), statement.step->end(),
                                       [](double step) { return std::isfinite(step) && step > 0; }))
        return "has a step of coordinates that is not a finite number above 0";
    if (statement.offset && !std::all_of(statement.offset->begin(), statement.offset->end(),
                                         [](double offset) { return std::isfinite(offset); }))
        return "has an offset of coordinates that is not a finite number";
    if (statement.records.size() > Structure::mostRecords)
        return "has " + std::to_string(statement.records.size()) + " records, and no more than " +
               std::to_string(Structure::mostRecords) + " are allowed";
    return {};
}

std::string faultOf(const Sheaf::FieldEncoding& encoding) {
    if (Formats::Las::extraBytesTypeOf(*encoding.type) == 0)
        return "is stored in a number type that extra bytes do not have";
    const double scale = encoding.scale.value_or(1);
    if (!std::isfinite(scale) || scale == 0 || !std::isfinite(encoding.offset.value_or(0)))
        return "is stored with a scale or an offset that makes no value";
    return {};
}

std::uint64_t propertyBytes(const Sheaf::FileStatement& statement) {
    constexpr std::uint64_t ownBytes = 64;
    return std::accumulate(statement.records.begin(), statement.records.end(),
                           ownBytes + (statement.systemIdentifier ? statement.systemIdentifier->size() : 0),
                           [](std::uint64_t sum, const Sheaf::FileRecord& record) {
                               return sum + ownBytes + record.userId.size() + record.description.size() +
                                      record.bytes.size();
                           });
}

} // namespace Tidewatch
