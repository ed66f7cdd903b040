// SPDX-License-Identifier: Apache-2.0
#pragma once

// Formats and layouts of operand data.

#include "tessaline/export.h"

#include <cstdint>

namespace Tessaline {

enum class DataMatrixFormat : std::int32_t { dense = 0, diagonal = 1, csr = 2, csc = 3, coo = 4 };

enum class DataVectorFormat : std::int32_t { dense = 0, sparse = 1 };

enum class DataMatrixLayout : std::int32_t { row_major = 0, column_major = 1 };

/// How complex elements lie: `none` for real data, `split` with real and imaginary parts in two
/// buffers, `interleaved` in one.
enum class DataComplexLayout : std::int32_t { none = 0, split = 1, interleaved = 2 };

/// Printed names: the enumerator's, and "unknown" for any other value.
TESSALINE_API const char* data_matrix_format_name(DataMatrixFormat format);
TESSALINE_API const char* data_vector_format_name(DataVectorFormat format);
TESSALINE_API const char* data_matrix_layout_name(DataMatrixLayout layout);
TESSALINE_API const char* data_complex_layout_name(DataComplexLayout layout);

constexpr bool is_dense(DataMatrixFormat format) {
    return format == DataMatrixFormat::dense;
}
constexpr bool is_diagonal(DataMatrixFormat format) {
    return format == DataMatrixFormat::diagonal;
}
/// True for every format but dense and diagonal.
constexpr bool is_sparse(DataMatrixFormat format) {
    return !is_dense(format) && !is_diagonal(format);
}

} // namespace Tessaline
