// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace Tidewatch::Python {

/// A name of a field, grid or file: any bytes in C++, in Python a str in which bytes that are not UTF-8 are surrogates, as in
/// the system's file names.
struct Name {
    std::string bytes = {};
};

} // namespace Tidewatch::Python

namespace pybind11::detail {

template <>
struct type_caster<Tidewatch::Python::Name> {
    PYBIND11_TYPE_CASTER(Tidewatch::Python::Name, const_name("str"));

    bool load(handle source, bool) {
        if (PyBytes_Check(source.ptr())) {
            value.bytes.assign(PyBytes_AS_STRING(source.ptr()),
                               static_cast<std::size_t>(PyBytes_GET_SIZE(source.ptr())));
            return true;
        }
        if (!PyUnicode_Check(source.ptr()))
            return false;
        const auto encoded =
            reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        if (!encoded) {
            PyErr_Clear();
            return false;
        }
        value.bytes.assign(PyBytes_AS_STRING(encoded.ptr()),
                           static_cast<std::size_t>(PyBytes_GET_SIZE(encoded.ptr())));
        return true;
    }

    static handle cast(const Tidewatch::Python::Name& given, return_value_policy, handle) {
        return PyUnicode_DecodeUTF8(given.bytes.data(), static_cast<Py_ssize_t>(given.bytes.size()),
                                    "surrogateescape");
    }
};

} // namespace pybind11::detail
