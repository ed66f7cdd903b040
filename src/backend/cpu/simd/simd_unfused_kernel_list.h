// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every unfused kernel, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/simd_conversions.h"
#include "backend/cpu/simd/simd_kron.h"
#include "backend/cpu/simd/simd_matmul.h"
#include "backend/cpu/simd/simd_row_products.h"
#include "backend/cpu/simd/simd_transposed_copy.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

namespace Tessaline::SimdKernels {

template <typename Elements>
constexpr UnfusedKernels<typename Elements::Element>
make_unfused_kernels(decltype(UnfusedKernels<typename Elements::Element>::multiply) multiply) {
    return {
        .multiply = multiply,
        .row_products = strided_row_products<Elements>,
        .kron = Kron<Elements>::kron,
        .sum_of_runs = sum_of_runs<Elements>,
    };
}

template <typename Set>
constexpr auto make_real_kernels() {
    using Elements = RealElements<Set>;
    return make_unfused_kernels<Elements>(strided_product<Elements, Update::replace>);
}

template <typename Set>
constexpr auto make_interleaved_kernels() {
    return make_unfused_kernels<InterleavedElements<Set>>(
        strided_interleaved_product<Set, Update::replace>);
}

template <typename FloatSet, typename DoubleSet>
constexpr UnfusedTable make_unfused_table() {
    return {
        make_real_kernels<Unfused<FloatSet>>(),
        make_real_kernels<Unfused<DoubleSet>>(),
        make_interleaved_kernels<Unfused<FloatSet>>(),
        make_interleaved_kernels<Unfused<DoubleSet>>(),
        {
            .widen_binary16 = Conversions<FloatSet>::widen_binary16,
            .round_binary16 = Conversions<FloatSet>::round_binary16,
            .widen_bfloat16 = Conversions<FloatSet>::widen_bfloat16,
            .round_bfloat16 = Conversions<FloatSet>::round_bfloat16,
        },
        {TransposedCopy<FloatSet, std::uint16_t>::copy},
        {TransposedCopy<FloatSet, std::uint32_t>::copy},
        {TransposedCopy<DoubleSet, std::uint64_t>::copy},
        {TransposedCopy<DoubleSet, Bits128>::copy},
    };
}

} // namespace Tessaline::SimdKernels
