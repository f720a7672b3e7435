// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Dataset.hpp"
#include "readers/source/Structure.hpp"

#include <string>

namespace Tidewatch {

/// The array that a dataset becomes, of an element type by its name; an empty one stands for the dataset's own
/// number type. Throws Anchor::FormatError when the dataset's numbers or extents do not go with the element type.
[[nodiscard]] Structure::Array arrayOf(const Hdf5::Dataset& dataset, const std::string& element);

} // namespace Tidewatch
