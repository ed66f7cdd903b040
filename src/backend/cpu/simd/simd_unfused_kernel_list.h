// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every unfused kernel, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/simd_matmul.h"
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
    };
}

template <typename FloatSet, typename DoubleSet>
constexpr UnfusedTable make_unfused_table() {
    return {
        make_unfused_kernels<RealElements<Unfused<FloatSet>>>(),
        make_unfused_kernels<RealElements<Unfused<DoubleSet>>>(),
        make_unfused_kernels<InterleavedElements<Unfused<FloatSet>>>(),
        make_unfused_kernels<InterleavedElements<Unfused<DoubleSet>>>(),
    };
}

} // namespace Tessaline::SimdKernels
