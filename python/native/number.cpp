// SPDX-License-Identifier: Apache-2.0
#include "number.h"

#include "numpy_api.h"

#include "execution/default_floating_environment.h"
#include "tessaline/storage/numeric_policy.h"

#include <numpy/npy_math.h>

#include <cmath>
#include <cstdint>
#include <optional>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

/// A number that doubles hold exactly.
struct Value {
    double real;
    double imaginary = 0;
    bool is_complex = false;
};

std::optional<Value> value_of(PyObject* number) {
    if (PyFloat_Check(number)) { // also NumPy's float64
        return Value{PyFloat_AS_DOUBLE(number)};
    }
    if (PyLong_CheckExact(number)) {
        int overflow = 0;
        const long long value = PyLong_AsLongLongAndOverflow(number, &overflow);
        constexpr long long exact_limit = 1LL << 53;
        if (overflow == 0 && value >= -exact_limit && value <= exact_limit) {
            return Value{static_cast<double>(value)};
        }
        return std::nullopt;
    }
    if (PyComplex_Check(number)) { // also NumPy's complex128
        const Py_complex value = reinterpret_cast<PyComplexObject*>(number)->cval;
        return Value{value.real, value.imag, true};
    }
    if (PyArray_IsScalar(number, Float32)) {
        return Value{PyArrayScalar_VAL(number, Float32)};
    }
    if (PyArray_IsScalar(number, Complex64)) {
        const npy_cfloat value = PyArrayScalar_VAL(number, Complex64);
        return Value{npy_crealf(value), npy_cimagf(value), true};
    }
    return std::nullopt;
}

/// Rounds to a component. False for a finite value beyond its range, and where the type is reached
/// through float and that is not exact.
template <typename T>
bool narrow(double value, T& component) {
    if constexpr (std::is_same_v<T, double>) {
        component = value;
        return true;
    } else {
        const auto rounded = static_cast<float>(value);
        if constexpr (std::is_same_v<T, float>) {
            component = rounded;
            return std::isfinite(rounded) || !std::isfinite(value);
        } else {
            component = T(rounded);
            return static_cast<double>(rounded) == value &&
                   std::isfinite(static_cast<float>(component)) == std::isfinite(rounded);
        }
    }
}

} // namespace

bool store_number(nb::handle number, const DataTypeDescriptor& type, void* element) {
    const std::optional<Value> value = value_of(number.ptr());
    if (!value || (value->is_complex && !type.is_complex())) {
        return false;
    }
    const DefaultFloatingEnvironment environment;
    return visit_numeric_policy(type, [&](auto policy) {
        using Policy = decltype(policy);
        if constexpr (Policy::is_integer) {
            return false;
        } else {
            auto* const parts = static_cast<Component<typename Policy::Stored>*>(element);
            return narrow(value->real, parts[0]) &&
                   (!Policy::is_complex || narrow(value->imaginary, parts[Policy::is_complex]));
        }
    });
}

} // namespace Tessaline::Python
