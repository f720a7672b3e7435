// SPDX-License-Identifier: Apache-2.0
#include "python/module/Operation.hpp"
#include "python/module/bind.hpp"
#include "python/module/errors.hpp"
#include "readers/registerReaders.hpp"

PYBIND11_MODULE(_core, module) {
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
