// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Skeleton.hpp"

#include <algorithm>

namespace Sheaf {

Skeleton::~Skeleton() = default;

namespace {

/// The index of the first refinement entry that differs from entry 0; the number of entries if none does.
std::size_t firstDifference(const std::vector<std::int32_t>& refinement) noexcept {
    const auto differs = [&](std::int32_t entry) { return entry != refinement.front(); };
    return static_cast<std::size_t>(std::find_if(refinement.begin(), refinement.end(), differs) -
                                    refinement.begin());
}

} // namespace

bool Skeleton::isHomogeneous() const noexcept {
    return firstDifference(key_.refinement) == key_.refinement.size();
}

std::int32_t Skeleton::refinementLevel() const noexcept {
    if (key_.refinement.empty())
        return 0;
    return isHomogeneous() ? key_.refinement.front()
                           : -static_cast<std::int32_t>(firstDifference(key_.refinement));
}

void Skeleton::iterate_fields(const std::function<bool(const FieldID&, const Field&)>& visit) const {
    representations_.forEach([&](const BaseSpace&, const Representation& representation) {
        return representation.forEachField(visit);
    });
}

} // namespace Sheaf
