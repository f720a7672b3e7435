// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Dataset.hpp"
#include "readers/source/Structure.hpp"

#include <string>

namespace Tidewatch {

/// The array made from a dataset, of a named element type; an empty name stands for the dataset's own number
/// type. Throws Anchor::FormatError when the dataset's numbers or extents do not fit the element type.
[[nodiscard]] Structure::Array arrayOf(const Hdf5::Dataset& dataset, const std::string& element);

} // namespace Tidewatch
