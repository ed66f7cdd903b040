// SPDX-License-Identifier: Apache-2.0
#include "host_array.h"

#include "array_policy.h"
#include "native_errors.h"
#include "numpy_api.h"
#include "numpy_types.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

PyArrayObject* numpy_array(nb::handle array) {
    return reinterpret_cast<PyArrayObject*>(array.ptr());
}

/// The DLPack code of a type of NumPy's own, empty for one that is no number.
std::optional<nb::dlpack::dtype_code> own_code(int number) {
    if (PyTypeNum_ISBOOL(number)) {
        return nb::dlpack::dtype_code::Bool;
    }
    if (PyTypeNum_ISUNSIGNED(number)) {
        return nb::dlpack::dtype_code::UInt;
    }
    if (PyTypeNum_ISSIGNED(number)) {
        return nb::dlpack::dtype_code::Int;
    }
    if (PyTypeNum_ISFLOAT(number)) {
        return nb::dlpack::dtype_code::Float;
    }
    if (PyTypeNum_ISCOMPLEX(number)) {
        return nb::dlpack::dtype_code::Complex;
    }
    return std::nullopt;
}

/// The DLPack triple of an array, whether or not the runtime computes in it.
nb::dlpack::dtype type_of(PyArrayObject* array, bool plain, const NumpyTypes& types) {
    if (types.is_foreign(PyArray_TYPE(array))) {
        if (!plain) {
            throw std::invalid_argument("low-precision binding requires aligned, native-endian "
                                        "contiguous storage and writable output");
        }
        return dlpack_type(*types.element(PyArray_TYPE(array)));
    }
    const auto code = own_code(PyArray_TYPE(array));
    if (!code) {
        throw CastError("has a dtype that is no number");
    }
    return {static_cast<std::uint8_t>(*code),
            static_cast<std::uint8_t>(PyArray_ITEMSIZE(array) * 8), 1};
}

/// Whether the memory can be used as it lies: aligned, native-endian, in C order.
bool is_plain(PyArrayObject* array, bool writable) {
    return writable ? PyArray_ISCARRAY(array) : PyArray_ISCARRAY_RO(array);
}

/// A plain copy, of no subclass.
nb::object copy_of(PyArrayObject* array) {
    constexpr int wanted = NPY_ARRAY_CARRAY_RO | NPY_ARRAY_ENSURECOPY | NPY_ARRAY_ENSUREARRAY;
    PyObject* const copy = PyArray_FromArray(array, nullptr, wanted);
    if (copy == nullptr) {
        throw nb::python_error();
    }
    return nb::steal(copy);
}

} // namespace

HostArray::HostArray(nb::handle array, bool writable) {
    const NumpyTypes& types = NumpyTypes::get();
    if (!PyArray_Check(array.ptr())) {
        throw std::invalid_argument("host binding requires a NumPy ndarray");
    }
    PyArrayObject* numpy = numpy_array(array);
    const bool plain = is_plain(numpy, writable);
    dtype_ = type_of(numpy, plain, types);
    owner_ = nb::borrow(array);
    if (!plain) {
        if (PyArray_ISBYTESWAPPED(numpy)) {
            throw CastError("is not in native byte order");
        }
        if (writable && !PyArray_ISWRITEABLE(numpy)) {
            throw CastError("is read-only");
        }
        // Memory that is merely not aligned is left to the checks of its element type.
        is_copy_ = !PyArray_IS_C_CONTIGUOUS(numpy);
    }
    if (is_copy_) {
        owner_ = copy_of(numpy);
        numpy = numpy_array(owner_);
    }
    data_ = PyArray_DATA(numpy);
    rank_ = static_cast<std::size_t>(PyArray_NDIM(numpy));
    for (std::size_t axis = 0; axis < std::min(rank_, extents_.size()); ++axis) {
        extents_[axis] = static_cast<std::size_t>(PyArray_DIM(numpy, static_cast<int>(axis)));
    }
}

} // namespace Tessaline::Python
