// SPDX-License-Identifier: Apache-2.0
#include "numpy_types.h"

#define TESSALINE_DEFINES_NUMPY_API
#include "numpy_api.h"

#include <nanobind/nanobind.h>

#include <memory>
#include <stdexcept>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

int foreign_number(const char* module, const char* name) {
    const nb::object dtype = nb::module_::import_("numpy").attr("dtype");
    return nb::cast<int>(dtype(nb::module_::import_(module).attr(name)).attr("num"));
}

const PyTypeObject* scalar_class(int number) {
    PyArray_Descr* const dtype = PyArray_DescrFromType(number);
    const PyTypeObject* const scalar = dtype->typeobj;
    Py_DECREF(dtype);
    return scalar;
}

} // namespace

NumpyTypes::NumpyTypes()
    : rows_{{{foreign_number("ml_dtypes", "bfloat16"), ScalarType::BFloat16},
             {foreign_number("tessaline._dtypes", "complex32"), ScalarType::Complex32},
             {NPY_FLOAT32, ScalarType::Float32},
             {NPY_FLOAT64, ScalarType::Float64},
             {NPY_COMPLEX64, ScalarType::Complex64},
             {NPY_COMPLEX128, ScalarType::Complex128},
             {NPY_FLOAT16, ScalarType::Float16},
             {NPY_INT32, ScalarType::Int32}}},
      foreign_scalars_{scalar_class(rows_[0].number), scalar_class(rows_[1].number)} {}

const NumpyTypes& NumpyTypes::get() {
    // Guarded by the interpreter lock alone: the imports may let other threads in, which would wait
    // with the interpreter lock in hand for any other guard. Such threads look up for themselves,
    // and the first to end has its answer kept.
    static const NumpyTypes* kept = nullptr;
    if (kept == nullptr) {
        if (_import_array() < 0) {
            throw nb::python_error();
        }
        auto made = std::unique_ptr<const NumpyTypes>(new NumpyTypes());
        if (kept == nullptr) {
            kept = made.release();
        }
    }
    return *kept;
}

int NumpyTypes::number(ScalarType element) const {
    for (const Row& row : rows_) {
        if (row.element == element) {
            return row.number;
        }
    }
    throw std::out_of_range("arrays cannot have this element type");
}

} // namespace Tessaline::Python
