// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/MemBase.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <typeinfo>
#include <vector>

#include <pybind11/numpy.h>

namespace Tidewatch::Python {

namespace py = pybind11;

/// Values for a field as NumPy has them: an array of integers or floating-point numbers of any size, byte order and strides.
class Values {
public:
    /// From an array or what NumPy makes one of. `name` is that of the field, for messages. Throws TypeError for numbers that
    /// no field holds (bool, float16, complex numbers, objects, ...), ValueError for masked values. Call with the lock.
    Values(const py::object& values, std::string name);

    [[nodiscard]] std::vector<std::size_t> shape() const;
    /// "(1000, 3)".
    [[nodiscard]] std::string shapeText() const;

    /// The element type that the field is to have. `stated` is the one that the user names, if any, `existing` that of the
    /// field that is there already, if it has to stay; otherwise a known field has its own types, and another one that of
    /// the values. `isTriple` says that elements have three components. Throws TypeError, ValueError.
    [[nodiscard]] const std::type_info& elementType(bool isTriple, const std::string& stated,
                                                    const std::type_info* existing) const;

    /// Copies the elements from `first` on, counted in the array's own order, into an array of an element type with the
    /// extents. Throws ValueError for a value that does not fit. Call with the lock, which is given up meanwhile.
    [[nodiscard]] Anchor::StrongPtr<Sheaf::MemBase>
    copy(const std::type_info& elementType, const Sheaf::Extents& extents, std::size_t first = 0) const;

private:
    py::array array_;
    std::string name_;
    bool isSwapped_ = false;
};

/// Whether fields of this name hold triples, such as points; nullopt for names that are not known.
[[nodiscard]] std::optional<bool> isTripleByName(const std::string& field);

/// "(1000, 3)".
[[nodiscard]] std::string shapeText(std::span<const std::size_t> shape);

} // namespace Tidewatch::Python
