// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace Tidewatch::Python {

namespace py = pybind11;

/// Makes exceptions of the libraries those of tidewatch._errors from now on.
void translateErrors();

/// Throws the exception of tidewatch._errors of this name. Call with the lock.
[[noreturn]] void raise(const char* kind, const std::string& message);

/// An exception of Python itself, such as PyExc_TypeError. Call with the lock.
[[noreturn]] void raise(PyObject* kind, const std::string& message);

/// A text from a file, in which bytes that are not UTF-8 are replaced.
[[nodiscard]] py::str textOf(const std::string& text);

} // namespace Tidewatch::Python
