// SPDX-License-Identifier: Apache-2.0
#include "python/module/Operation.hpp"
#include "python/module/bind.hpp"
#include "python/module/errors.hpp"
#include "readers/registerReaders.hpp"

#include <pybind11/numpy.h>

PYBIND11_MODULE(_core, module) {
    // NumPy's functions are looked up once, which imports NumPy: now, not by one of several threads that then wait for each
    // other, one with the lock of that look-up and one with the interpreter's.
    static_cast<void>(pybind11::dtype::of<double>());
    pybind11::options options;
    options.disable_function_signatures(); // the stubs have them
    module.doc() = "What tidewatch is made of in C++; use the names of the package tidewatch.";
    Tidewatch::registerReaders();
    Tidewatch::Python::keepMessages();
    Tidewatch::Python::translateErrors();
    Tidewatch::Python::bindModel(module);
    Tidewatch::Python::bindCalls(module);
    Tidewatch::Python::bindExporters(module);
}
