// SPDX-License-Identifier: Apache-2.0
#include "number.h"

#include "numpy_api.h"
#include "numpy_types.h"

#include "execution/default_floating_environment.h"
#include "tessaline/storage/numeric_policy.h"

#include <numpy/npy_math.h>

#include <bit>
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
    if (PyFloat_CheckExact(number) || PyArray_IsScalar(number, Double)) {
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
    if (PyComplex_CheckExact(number) || PyArray_IsScalar(number, CDouble)) {
        const Py_complex value = reinterpret_cast<PyComplexObject*>(number)->cval;
        return Value{value.real, value.imag, true};
    }
    if (PyArray_IsScalar(number, Float32)) {
        return Value{PyArrayScalar_VAL(number, Float32)};
    }
    if (PyArray_IsScalar(number, Half)) {
        return Value{static_cast<float>(Float16::from_bits(PyArrayScalar_VAL(number, Half)))};
    }
    if (PyArray_IsScalar(number, Complex64)) {
        const npy_cfloat value = PyArrayScalar_VAL(number, Complex64);
        return Value{npy_crealf(value), npy_cimagf(value), true};
    }
    const auto foreign = NumpyTypes::get().foreign_scalar(number);
    if (foreign == ScalarType::BFloat16) {
        return Value{PyFloat_AsDouble(number)};
    }
    if (foreign) {
        const Py_complex value = PyComplex_AsCComplex(number);
        return Value{value.real, value.imag, true};
    }
    return std::nullopt;
}

/// A double as the nearest float or, where it is none, as the neighbour with an odd last bit: to
/// round that once more, to a type of 16 bits, is to round the double itself.
float to_odd(double value) {
    const auto nearest = static_cast<float>(value);
    auto bits = std::bit_cast<std::uint32_t>(nearest);
    if (static_cast<double>(nearest) != value && std::isfinite(nearest) && (bits & 1U) == 0) {
        // The bits without the sign grow with the magnitude.
        bits += std::fabs(static_cast<double>(nearest)) < std::fabs(value) ? 1U : -1U;
    }
    return std::bit_cast<float>(bits);
}

/// Rounds to a component. False for a finite value beyond its range.
template <typename T>
bool narrow(double value, T& component) {
    if constexpr (std::is_floating_point_v<T>) {
        component = static_cast<T>(value);
    } else {
        component = T(to_odd(value));
    }
    return std::isfinite(static_cast<float>(component)) || !std::isfinite(value) ||
           std::is_same_v<T, double>;
}

} // namespace

bool store_number(nb::handle number, const DataTypeDescriptor& type, void* element) {
    const DefaultFloatingEnvironment environment; // also to widen the number
    const std::optional<Value> value = value_of(number.ptr());
    if (!value || (value->is_complex && !type.is_complex())) {
        return false;
    }
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
