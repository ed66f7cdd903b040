// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every unfused kernel, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/simd_conversions.h"
#include "backend/cpu/simd/simd_kron.h"
#include "backend/cpu/simd/simd_matmul.h"
#include "backend/cpu/simd/simd_row_products.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// The same vectors, in kernels that round every operation and keep one NaN.
template <typename Set>
struct Unfused : Set {
    static constexpr bool fuses = false;
    static constexpr bool keeps_one_nan = true;
};

template <typename Elements>
constexpr UnfusedKernels<typename Elements::Element> make_unfused_kernels() {
    return {
        .multiply = strided_product<Elements, Update::replace>,
        .subtract_product = strided_product<Elements, Update::subtract>,
        .row_products = strided_row_products<Elements>,
        .kron = Kron<Elements>::kron,
        .sum_of_runs = sum_of_runs<Elements>,
    };
}

template <typename FloatSet, typename DoubleSet>
constexpr UnfusedTable make_unfused_table() {
    return {
        make_unfused_kernels<RealElements<Unfused<FloatSet>>>(),
        make_unfused_kernels<RealElements<Unfused<DoubleSet>>>(),
        make_unfused_kernels<InterleavedElements<Unfused<FloatSet>>>(),
        make_unfused_kernels<InterleavedElements<Unfused<DoubleSet>>>(),
        {
            .widen_binary16 = Conversions<FloatSet>::widen_binary16,
            .round_binary16 = Conversions<FloatSet>::round_binary16,
            .widen_bfloat16 = Conversions<FloatSet>::widen_bfloat16,
            .round_bfloat16 = Conversions<FloatSet>::round_bfloat16,
        },
    };
}

} // namespace Tessaline::SimdKernels
