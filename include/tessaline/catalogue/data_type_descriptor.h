// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numeric type of an operand: what its buffer holds and in what a kernel computes.

#include "tessaline/catalogue/scalar_type.h"

namespace Tessaline {

enum class DataDomain : std::int32_t { Real = 0, Complex = 1 };

enum class ScalarQuantisation : std::int32_t { None = 0 };

/// Storage and compute type of an operand. A plain value: the four-argument constructor stores what
/// it is given, and only from_scalar_types checks.
class TESSALINE_API DataTypeDescriptor {
  public:
    constexpr DataTypeDescriptor(DataDomain domain, ScalarType storage_type,
                                 ScalarType compute_type, ScalarQuantisation quantisation)
        : domain_(domain),
          storage_type_(storage_type),
          compute_type_(compute_type),
          quantisation_(quantisation) {}

    /// The descriptor of two scalar types of one category. Raises std::invalid_argument for an
    /// unknown type and for categories that differ.
    static DataTypeDescriptor from_scalar_types(ScalarType storage, ScalarType compute);

    static constexpr DataTypeDescriptor real_float() {
        return real(ScalarType::Float32, ScalarType::Float32);
    }
    static constexpr DataTypeDescriptor real_double() {
        return real(ScalarType::Float64, ScalarType::Float64);
    }
    static constexpr DataTypeDescriptor real_float16() {
        return real(ScalarType::Float16, ScalarType::Float32);
    }
    static constexpr DataTypeDescriptor real_bfloat16() {
        return real(ScalarType::BFloat16, ScalarType::Float32);
    }
    static constexpr DataTypeDescriptor real_int() {
        return real(ScalarType::Int32, ScalarType::Int32);
    }
    static constexpr DataTypeDescriptor real_long() {
        return real(ScalarType::Int64, ScalarType::Int64);
    }
    static constexpr DataTypeDescriptor complex_float() {
        return complex(ScalarType::Complex64, ScalarType::Complex64);
    }
    static constexpr DataTypeDescriptor complex_double() {
        return complex(ScalarType::Complex128, ScalarType::Complex128);
    }

    constexpr DataDomain domain() const { return domain_; }
    constexpr ScalarType storage_type() const { return storage_type_; }
    constexpr ScalarType compute_type() const { return compute_type_; }
    constexpr ScalarQuantisation quantisation() const { return quantisation_; }
    constexpr bool is_complex() const { return domain_ == DataDomain::Complex; }
    constexpr bool is_quantised() const { return quantisation_ != ScalarQuantisation::None; }

    friend bool operator==(const DataTypeDescriptor&, const DataTypeDescriptor&) = default;

  private:
    static constexpr DataTypeDescriptor real(ScalarType storage, ScalarType compute) {
        return {DataDomain::Real, storage, compute, ScalarQuantisation::None};
    }
    static constexpr DataTypeDescriptor complex(ScalarType storage, ScalarType compute) {
        return {DataDomain::Complex, storage, compute, ScalarQuantisation::None};
    }

    DataDomain domain_;
    ScalarType storage_type_;
    ScalarType compute_type_;
    ScalarQuantisation quantisation_;
};

} // namespace Tessaline
