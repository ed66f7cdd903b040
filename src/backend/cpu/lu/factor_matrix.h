// SPDX-License-Identifier: Apache-2.0
#pragma once

// A square matrix of either element order, known at compile time so that kernels can run along it.

#include "tessaline/catalogue/data_layout.h"

#include <cstdint>

namespace Tessaline::CpuFallback {

template <typename T, DataMatrixLayout Layout>
struct FactorMatrix {
    static constexpr bool rows_are_contiguous = Layout == DataMatrixLayout::row_major;

    T* data;
    std::uint64_t order;

    T& operator()(std::uint64_t row, std::uint64_t column) const {
        return rows_are_contiguous ? data[row * order + column] : data[column * order + row];
    }
};

template <typename T>
using RowMajorFactors = FactorMatrix<T, DataMatrixLayout::row_major>;
template <typename T>
using ColumnMajorFactors = FactorMatrix<T, DataMatrixLayout::column_major>;

/// Calls `visitor` with the FactorMatrix of `layout`.
template <typename T, typename Visitor>
decltype(auto) visit_factor_matrix(T* data, std::uint64_t order, DataMatrixLayout layout,
                                   Visitor&& visitor) {
    if (layout == DataMatrixLayout::row_major) {
        return visitor(RowMajorFactors<T>{data, order});
    }
    return visitor(ColumnMajorFactors<T>{data, order});
}

} // namespace Tessaline::CpuFallback
