// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sheaf/CreativeArrayBase.hpp"

#include <string>
#include <typeinfo>
#include <vector>

#include <pybind11/numpy.h>

namespace Tidewatch::Python {

namespace py = pybind11;

using Creator = Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>;

/// The array of one creator as NumPy's: a view of the array in memory, which it keeps alive, without a copy. It is read-only
/// unless hosts may edit the array. The positions of a lattice are computed.
///
/// Axes are in the order of NumPy, the last one running fastest, (rows, columns) for a lattice, whose axis z is left out if
/// it has one place; the three components of an element are an axis behind them. `name` is for messages. Throws what creators
/// throw. Call with the lock, which is given up while the array is created.
[[nodiscard]] py::array viewOf(const Creator& creator, const std::string& name);

/// The elements of several creators one behind the other, as one list: a copy. `elementType` is that of all of them.
[[nodiscard]] py::array joinedOf(const std::vector<Creator>& creators, const std::type_info& elementType,
                                 const std::string& name);

/// The shape of an array with extents as NumPy has it.
[[nodiscard]] std::vector<py::ssize_t> shapeOf(const Sheaf::Extents& extents);

/// The dtype of the components of an element type.
[[nodiscard]] py::dtype dtypeOf(const std::type_info& elementType);

} // namespace Tidewatch::Python
