// SPDX-License-Identifier: Apache-2.0
#include "text.h"

namespace nb = nanobind;

namespace Tessaline::Python {

nb::str decoded(std::string_view text) {
    PyObject* const result =
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (result == nullptr) {
        throw nb::python_error();
    }
    return nb::steal<nb::str>(result);
}

std::optional<std::string_view> text_of(nb::handle object) {
    if (!PyUnicode_Check(object.ptr())) {
        return std::nullopt;
    }
    Py_ssize_t size = 0;
    const char* const bytes = PyUnicode_AsUTF8AndSize(object.ptr(), &size);
    if (bytes == nullptr) {
        PyErr_Clear();
        return std::nullopt;
    }
    return std::string_view(bytes, static_cast<std::size_t>(size));
}

} // namespace Tessaline::Python
