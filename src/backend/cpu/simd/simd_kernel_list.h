// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every kernel of an engine, instantiated for one instruction set.

#include "backend/cpu/engine_lu.h"
#include "backend/cpu/engine_power_methods.h"
#include "backend/cpu/simd/simd_complex_elimination.h"
#include "backend/cpu/simd/simd_complex_triangle.h"
#include "backend/cpu/simd/simd_elementwise.h"
#include "backend/cpu/simd/simd_matmul.h"
#include "backend/cpu/simd/simd_reductions.h"
#include "backend/cpu/simd/simd_row_products.h"
#include "backend/cpu/simd/simd_structure.h"

namespace Tessaline::SimdKernels {

template <typename Set>
constexpr EngineEliminationKernels make_engine_elimination_kernels() {
    using Kernels = ComplexElimination<Set>;
    return {make_complex_triangle_kernels<Set>(), Kernels::largest_square,
            Kernels::template eliminate<WideQuotients<Set>>};
}

template <typename Set>
constexpr Table make_table() {
    return {
        .add = Elementwise<Set>::add,
        .subtract = Elementwise<Set>::subtract,
        .multiply = Elementwise<Set>::multiply,
        .scale = Elementwise<Set>::scale,
        .negate = Elementwise<Set>::negate,
        .multiply_split = Elementwise<Set>::multiply_split,
        .scale_split = Elementwise<Set>::scale_split,
        .sum = Reductions<Set>::sum,
        .inner = Reductions<Set>::inner,
        .matmul_real = matmul_real<Set>,
        .matmul_split = matmul_split<Set>,
        .row_products = split_row_products<Set>,
        .conjugate_row_products = split_conjugate_row_products<Set>,
        .kron = Structure<Set>::kron,
        .outer = Structure<Set>::outer,
        .partial_trace_left = Structure<Set>::partial_trace_left,
        .partial_trace_right = Structure<Set>::partial_trace_right,
        .elimination = make_engine_elimination_kernels<KeepingOneNan<Set>>(),
        .solve = EngineLu::solve<KeepingOneNan<Set>, long>,
        .logdet = EngineLu::logdet<long>,
        .principal_eigenvect = EnginePowerMethods::principal_eigenvect<Reductions<Set>>,
    };
}

} // namespace Tessaline::SimdKernels
