// SPDX-License-Identifier: Apache-2.0
#pragma once

// The element types of operand buffers and the one table of facts about them. Values of every
// enumeration are fixed: they enter registry keys and hashes and cross the plugin interface.

#include "tessaline/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tessaline {

/// The element of a buffer.
enum class ScalarType : std::int32_t {
    Float32 = 0,
    Float64 = 1,
    Float16 = 2,
    Int32 = 3,
    Int64 = 4,
    UInt32 = 5,
    UInt64 = 6,
    Complex64 = 7,
    Complex128 = 8,
    ComplexInt32 = 9,
    ComplexInt64 = 10,
    BFloat16 = 11,
    Complex32 = 12,
};

/// What arithmetic an element stands for.
enum class ScalarCategory : std::int32_t {
    real_floating = 0,
    real_integer = 1,
    complex_floating = 2,
    complex_integer = 3,
};

/// One row of the table of scalar types.
struct ScalarMetadata {
    ScalarType type;         ///< the type that the row describes
    ScalarCategory category; ///< its arithmetic
    ScalarType component;    ///< the type of one part of a complex element, else the type itself
    std::size_t size;        ///< bytes of one element
    const char* name;        ///< printed name, such as "float32"
};

/// All scalar types; the order is the order of every search and listing.
inline constexpr std::array<ScalarMetadata, 13> scalar_types{{
    {ScalarType::BFloat16, ScalarCategory::real_floating, ScalarType::BFloat16, 2, "bfloat16"},
    {ScalarType::Float16, ScalarCategory::real_floating, ScalarType::Float16, 2, "float16"},
    {ScalarType::Float32, ScalarCategory::real_floating, ScalarType::Float32, 4, "float32"},
    {ScalarType::Float64, ScalarCategory::real_floating, ScalarType::Float64, 8, "float64"},
    {ScalarType::Int32, ScalarCategory::real_integer, ScalarType::Int32, 4, "int32"},
    {ScalarType::Int64, ScalarCategory::real_integer, ScalarType::Int64, 8, "int64"},
    {ScalarType::UInt32, ScalarCategory::real_integer, ScalarType::UInt32, 4, "uint32"},
    {ScalarType::UInt64, ScalarCategory::real_integer, ScalarType::UInt64, 8, "uint64"},
    {ScalarType::Complex32, ScalarCategory::complex_floating, ScalarType::Float16, 4, "complex32"},
    {ScalarType::Complex64, ScalarCategory::complex_floating, ScalarType::Float32, 8, "complex64"},
    {ScalarType::Complex128, ScalarCategory::complex_floating, ScalarType::Float64, 16,
     "complex128"},
    {ScalarType::ComplexInt32, ScalarCategory::complex_integer, ScalarType::Int32, 8,
     "complex_int32"},
    {ScalarType::ComplexInt64, ScalarCategory::complex_integer, ScalarType::Int64, 16,
     "complex_int64"},
}};

/// The row of a scalar type. Raises std::invalid_argument for a value outside the table.
TESSALINE_API const ScalarMetadata& scalar_metadata(ScalarType type);

} // namespace Tessaline
