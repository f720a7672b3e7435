// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

/// The parts of the module tidewatch._core.
namespace Tidewatch::Python {

/// Bundles, slices, grids, skeletons and fragments.
void bindModel(pybind11::module_& module);

/// Reading, exporting, and what else the program does, as functions that the package calls with texts of options.
void bindCalls(pybind11::module_& module);

/// The exporters themselves.
void bindExporters(pybind11::module_& module);

} // namespace Tidewatch::Python
