// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every unfused kernel, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/kernels/chain_norm.h"
#include "backend/cpu/simd/kernels/conversions.h"
#include "backend/cpu/simd/kernels/kron.h"
#include "backend/cpu/simd/kernels/matmul.h"
#include "backend/cpu/simd/kernels/quotients.h"
#include "backend/cpu/simd/kernels/row_products.h"
#include "backend/cpu/simd/kernels/transposed_blocks.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

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

template <typename DoubleSet, typename Real>
constexpr NormKernels<Real> make_norm_kernels() {
    using Kernels = ChainNorm<DoubleSet, Real>;
    return {Kernels::prolong_norm, Kernels::magnitudes};
}

template <typename Set>
constexpr auto make_quotient_kernels() {
    using Kernels = Quotients<Set>;
    return QuotientKernels<typename Set::Component>{Kernels::roots, Kernels::divide,
                                                    Kernels::divide_complex};
}

template <typename FloatSet, typename DoubleSet>
constexpr UnfusedTable make_unfused_table() {
    using Widened = WidenedRules<FloatSet>;
    return {
        make_real_kernels<FloatingRules<FloatSet>>(),
        make_real_kernels<FloatingRules<DoubleSet>>(),
        make_interleaved_kernels<FloatingRules<FloatSet>>(),
        make_interleaved_kernels<FloatingRules<DoubleSet>>(),
        make_norm_kernels<DoubleSet, float>(),
        make_norm_kernels<DoubleSet, double>(),
        make_quotient_kernels<FloatingRules<FloatSet>>(),
        make_quotient_kernels<FloatingRules<DoubleSet>>(),
        {
            .widen_binary16 = Conversions<FloatSet>::widen_binary16,
            .round_binary16 = Conversions<FloatSet>::round_binary16,
            .widen_bfloat16 = Conversions<FloatSet>::widen_bfloat16,
            .round_bfloat16 = Conversions<FloatSet>::round_bfloat16,
            .add_binary16 = Conversions<FloatSet>::add_binary16,
        },
        {
            .row_products_binary16 =
                widened_row_products<RealElements<Widened>, Binary16<FloatSet>>,
            .row_products_bfloat16 =
                widened_row_products<RealElements<Widened>, UpperHalf<FloatSet>>,
            .row_products_complex_binary16 =
                widened_row_products<InterleavedElements<Widened>, Binary16<FloatSet>>,
            .sum_of_runs_binary16 = sum_of_stored_runs<FloatSet, Binary16<FloatSet>>,
            .sum_of_runs_bfloat16 = sum_of_stored_runs<FloatSet, UpperHalf<FloatSet>>,
        },
        {TransposedCopy<FloatSet, std::uint16_t>::copy},
        {TransposedCopy<FloatSet, std::uint32_t>::copy},
        {TransposedCopy<DoubleSet, std::uint64_t>::copy},
        {TransposedCopy<DoubleSet, Bits128>::copy},
    };
}

} // namespace Tessaline::SimdKernels
