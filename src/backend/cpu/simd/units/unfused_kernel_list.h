// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every unfused kernel, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/kernels/chain_norm.h"
#include "backend/cpu/simd/kernels/kron.h"
#include "backend/cpu/simd/kernels/matmul.h"
#include "backend/cpu/simd/kernels/quotients.h"
#include "backend/cpu/simd/kernels/transposed_blocks.h"
#include "backend/cpu/simd/units/stored_kernel_list.h"

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
    return {
        .float32 = make_real_kernels<FloatingRules<FloatSet>>(),
        .float64 = make_real_kernels<FloatingRules<DoubleSet>>(),
        .complex64 = make_interleaved_kernels<FloatingRules<FloatSet>>(),
        .complex128 = make_interleaved_kernels<FloatingRules<DoubleSet>>(),
        .float32_norms = make_norm_kernels<DoubleSet, float>(),
        .float64_norms = make_norm_kernels<DoubleSet, double>(),
        .float32_quotients = make_quotient_kernels<FloatingRules<FloatSet>>(),
        .float64_quotients = make_quotient_kernels<FloatingRules<DoubleSet>>(),
        .binary16 = make_binary16_kernels<FloatSet>(),
        .bfloat16 = make_stored_kernels<FloatSet, UpperHalf<FloatSet>>(),
        .transpose_16_bits = TransposedCopy<FloatSet, std::uint16_t>::copy,
        .transpose_32_bits = TransposedCopy<FloatSet, std::uint32_t>::copy,
        .transpose_64_bits = TransposedCopy<DoubleSet, std::uint64_t>::copy,
        .transpose_128_bits = TransposedCopy<DoubleSet, Bits128>::copy,
    };
}

} // namespace Tessaline::SimdKernels
