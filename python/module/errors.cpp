// SPDX-License-Identifier: Apache-2.0
#include "python/module/errors.hpp"

#include "anchor/Error.hpp"
#include "library/report/ErrorParts.hpp"
#include "library/report/UsageError.hpp"

#include <exception>
#include <filesystem>
#include <string_view>

namespace Tidewatch::Python {

namespace {

py::object errorOf(const char* kind, const std::string& message) {
    // Wrong usage is not that of a file.
    const ErrorParts parts =
        std::string_view(kind) == "UsageError" ? ErrorParts{{}, {}, message} : ErrorParts::of(message);
    return py::module_::import("tidewatch._errors")
        .attr(kind)(textOf(message), textOf(parts.file), textOf(parts.object), textOf(parts.cause));
}

void set(const char* kind, const std::string& message) {
    try {
        const py::object error = errorOf(kind, message);
        PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    } catch (py::error_already_set& failure) {
        failure.restore();
    }
}

} // namespace

py::str textOf(const std::string& text) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

void translateErrors() {
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown)
                std::rethrow_exception(thrown);
        } catch (const UsageError& error) {
            set("UsageError", error.what());
        } catch (const Anchor::FileError& error) {
            set("FileError", error.what());
        } catch (const Anchor::FormatError& error) {
            set("FormatError", error.what());
        } catch (const Anchor::LimitError& error) {
            set("LimitError", error.what());
        } catch (const Anchor::ModelError& error) {
            set("ModelError", error.what());
        } catch (const Anchor::Error& error) {
            set("Error", error.what());
        } catch (const std::filesystem::filesystem_error& error) {
            set("FileError", error.path1().string() + ": " + error.code().message());
        }
    });
}

void raise(const char* kind, const std::string& message) {
    set(kind, message);
    throw py::error_already_set();
}

void raise(PyObject* kind, const std::string& message) {
    PyErr_SetObject(kind, textOf(message).ptr());
    throw py::error_already_set();
}

} // namespace Tidewatch::Python
