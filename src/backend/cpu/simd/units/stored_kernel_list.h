// SPDX-License-Identifier: Apache-2.0
#pragma once

// The kernels of elements of two bytes, instantiated for the vectors of one instruction set.

#include "backend/cpu/simd/kernels/conversions.h"
#include "backend/cpu/simd/kernels/row_products.h"

namespace Tessaline::SimdKernels {

template <typename Set, typename Format>
constexpr StoredKernels make_stored_kernels() {
    return {
        .widen = Conversions<Set, Format>::widen,
        .round = Conversions<Set, Format>::round,
        .row_products = widened_row_products<RealElements<WidenedRules<Set>>, Format>,
        .sum_of_runs = sum_of_stored_runs<Set, Format>,
    };
}

template <typename Set>
constexpr Binary16Kernels make_binary16_kernels() {
    using Format = Binary16<Set>;
    return {
        make_stored_kernels<Set, Format>(),
        widened_row_products<InterleavedElements<WidenedRules<Set>>, Format>,
        Conversions<Set, Format>::add,
    };
}

} // namespace Tessaline::SimdKernels
