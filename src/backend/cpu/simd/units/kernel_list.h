// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every kernel of an engine, instantiated for one instruction set.

#include "backend/cpu/simd/kernels/complex_elimination.h"
#include "backend/cpu/simd/kernels/complex_triangle.h"
#include "backend/cpu/simd/kernels/elementwise.h"
#include "backend/cpu/simd/kernels/engine_lu.h"
#include "backend/cpu/simd/kernels/engine_power_methods.h"
#include "backend/cpu/simd/kernels/matmul.h"
#include "backend/cpu/simd/kernels/reductions.h"
#include "backend/cpu/simd/kernels/row_products.h"
#include "backend/cpu/simd/kernels/structure.h"

namespace Tessaline::SimdKernels {

template <typename Elements>
constexpr ComplexKernels<typename Elements::Form> make_complex_kernels() {
    return {
        .multiply = ComplexElementwise<Elements>::multiply,
        .scale = ComplexElementwise<Elements>::scale,
        .sum = ComplexReductions<Elements>::sum,
        .inner = ComplexReductions<Elements>::inner,
        .matmul = matmul_complex<Elements>,
        .row_products = row_products<Elements>,
        .kron = kron_rows<Elements>,
        .partial_trace_left = partial_trace_left<Elements>,
        .partial_trace_right = partial_trace_right<Elements>,
    };
}

template <typename Set>
constexpr EngineEliminationKernels make_engine_elimination_kernels() {
    using Kernels = ComplexElimination<Set>;
    return {make_complex_triangle_kernels<Set>(), Kernels::largest_square,
            Kernels::template eliminate<WideQuotients<Set>>};
}

template <typename InstructionSet>
constexpr Table make_table() {
    using Set = EngineRules<InstructionSet>;
    using SolverSet = EngineSolverRules<InstructionSet>;
    using Split = FormElements<Set, SplitForm>;
    return {
        .split = make_complex_kernels<Split>(),
        .interleaved = make_complex_kernels<FormElements<Set, InterleavedForm>>(),
        .add = Elementwise<Set>::add,
        .subtract = Elementwise<Set>::subtract,
        .multiply = Elementwise<Set>::multiply,
        .scale = Elementwise<Set>::scale,
        .negate = Elementwise<Set>::negate,
        .sum = Reductions<Set>::sum,
        .matmul = matmul_real<Set>,
        .conjugate_row_products = conjugate_row_products<Split>,
        .elimination = make_engine_elimination_kernels<SolverSet>(),
        .solve = EngineLu::solve<SolverSet, long>,
        .logdet = EngineLu::logdet<SolverSet, long>,
        .principal_eigenvect = EnginePowerMethods::principal_eigenvect<Reductions<Set>>,
    };
}

} // namespace Tessaline::SimdKernels
