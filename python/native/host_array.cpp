// SPDX-License-Identifier: Apache-2.0
#include "host_array.h"

#include "array_policy.h"

#define NPY_NO_DEPRECATED_API NPY_2_0_API_VERSION
#define NPY_TARGET_VERSION NPY_2_0_API_VERSION
#include <numpy/arrayobject.h>

#include <array>
#include <optional>
#include <stdexcept>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

/// A dtype that NumPy takes from elsewhere, and that it exports to nobody.
struct LowPrecisionType {
    int number; ///< that NumPy gave it in this process
    nb::dlpack::dtype type;
};

/// The low-precision dtypes. Made at the first array of the process and kept for good: modules do
/// not change, and looking them up for each array costs more than a small kernel.
struct ArrayVocabulary {
    std::array<LowPrecisionType, 2> low_precision;

    static const ArrayVocabulary& get() {
        static const ArrayVocabulary* const vocabulary = new ArrayVocabulary();
        return *vocabulary;
    }

  private:
    ArrayVocabulary() {
        if (_import_array() < 0) {
            throw nb::python_error();
        }
        const nb::object dtype = nb::module_::import_("numpy").attr("dtype");
        const auto number = [&dtype](const char* module, const char* name) {
            return nb::cast<int>(dtype(nb::module_::import_(module).attr(name)).attr("num"));
        };
        low_precision = {
            {{number("ml_dtypes", "bfloat16"), dlpack_type(ScalarType::BFloat16)},
             {number("tessaline._dtypes", "complex32"), dlpack_type(ScalarType::Complex32)}}};
    }
};

PyArrayObject* numpy_array(nb::handle array) {
    return reinterpret_cast<PyArrayObject*>(array.ptr());
}

/// The DLPack triple of an array whose dtype the runtime computes in, empty for another.
std::optional<nb::dlpack::dtype> usual_type(PyArrayObject* array) {
    switch (PyArray_TYPE(array)) {
    case NPY_FLOAT32:
        return dlpack_type(ScalarType::Float32);
    case NPY_FLOAT64:
        return dlpack_type(ScalarType::Float64);
    case NPY_FLOAT16:
        return dlpack_type(ScalarType::Float16);
    case NPY_INT32:
        return dlpack_type(ScalarType::Int32);
    case NPY_COMPLEX64:
        return dlpack_type(ScalarType::Complex64);
    case NPY_COMPLEX128:
        return dlpack_type(ScalarType::Complex128);
    default:
        return std::nullopt;
    }
}

/// Whether the memory can be used as it lies: aligned, native-endian, in C order.
bool is_plain(PyArrayObject* array, bool writable) {
    return writable ? PyArray_ISCARRAY(array) : PyArray_ISCARRAY_RO(array);
}

} // namespace

HostArray::HostArray(nb::handle array, bool writable) {
    const ArrayVocabulary& vocabulary = ArrayVocabulary::get();
    if (!PyArray_Check(array.ptr())) {
        throw std::invalid_argument("host binding requires a NumPy ndarray");
    }
    PyArrayObject* const numpy = numpy_array(array);
    std::optional<nb::dlpack::dtype> type = usual_type(numpy);
    const bool plain = is_plain(numpy, writable);
    for (const LowPrecisionType& low : vocabulary.low_precision) {
        if (PyArray_TYPE(numpy) == low.number) {
            if (!plain) {
                throw std::invalid_argument("low-precision binding requires aligned, native-endian "
                                            "contiguous storage and writable output");
            }
            type = low.type;
        }
    }
    if (!type || !plain) {
        import(array, writable);
        return;
    }
    static_assert(sizeof(npy_intp) == sizeof(std::int64_t));
    owner_ = nb::borrow(array);
    data_ = PyArray_DATA(numpy);
    rank_ = static_cast<std::size_t>(PyArray_NDIM(numpy));
    shape_ = reinterpret_cast<const std::int64_t*>(PyArray_DIMS(numpy));
    dtype_ = *type;
}

void HostArray::import(nb::handle array, bool writable) {
    if (writable) {
        const auto imported = nb::cast<nb::ndarray<nb::c_contig, nb::device::cpu>>(array);
        data_ = imported.data();
        imported_ = decltype(imported_)(imported);
    } else {
        imported_ = nb::cast<decltype(imported_)>(array);
        data_ = const_cast<void*>(static_cast<const void*>(imported_.data()));
    }
    rank_ = imported_.ndim();
    shape_ = imported_.shape_ptr();
    dtype_ = imported_.dtype();
}

} // namespace Tessaline::Python
