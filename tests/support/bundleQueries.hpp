// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"
#include "sheaf/Bundle.hpp"
#include "sheaf/MemArray.hpp"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Support {

[[nodiscard]] inline Anchor::StrongPtr<Sheaf::Grid> gridAt(const Sheaf::Bundle& bundle, double time,
                                                           const std::string& name) {
    return bundle.slices().at(time).lock()->grids().at(name).lock();
}

/// A field of the vertices of the highest level, in the default chart; null for none.
[[nodiscard]] inline Anchor::StrongPtr<Sheaf::Field> fieldOf(const Sheaf::Grid& grid,
                                                             const std::string& name) {
    return grid.getField(grid.findCartesianChart({}), name, grid.skeletons().findVertices(-1));
}

/// The data of a fragment of such a field at time 0; an empty name stands for data without a fragment. Null for none.
[[nodiscard]] inline Sheaf::Field::Creator dataOf(const Sheaf::Bundle& bundle, const std::string& grid,
                                                  const std::string& field, const std::string& fragment) {
    const auto owner = gridAt(bundle, 0, grid);
    return fieldOf(*owner, field)->getCreator(fragment.empty() ? nullptr : owner->makeFragment(fragment));
}

/// The elements of an array, which has to have this type.
template <class T>
[[nodiscard]] std::vector<T> elementsOf(const Sheaf::CreativeArrayBase& data) {
    const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(data.create(false));
    if (!array)
        throw std::runtime_error("the array has another type of elements");
    return array->base_vector();
}

template <class T>
[[nodiscard]] std::vector<T> arrayOf(const Sheaf::Bundle& bundle, const std::string& grid,
                                     const std::string& field, const std::string& fragment) {
    return elementsOf<T>(*dataOf(bundle, grid, field, fragment));
}

/// The message of the Anchor::ModelError that a call throws; "no error" for none.
[[nodiscard]] inline std::string modelErrorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Anchor::ModelError& error) {
        return error.what();
    }
    return "no error";
}

} // namespace Support
