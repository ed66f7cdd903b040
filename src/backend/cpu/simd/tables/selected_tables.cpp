// SPDX-License-Identifier: Apache-2.0

// Which tables of kernels are in use.

#include "backend/cpu/simd/tables/elimination_kernels.h"
#include "backend/cpu/simd/tables/gram_schmidt_kernels.h"
#include "backend/cpu/simd/tables/rotation_kernels.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"
#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline::SimdKernels {

const UnfusedTable& unfused_table() {
    static const UnfusedTable selected = [] {
        UnfusedTable table = of_selected_simd(avx256_unfused_table, avx512_unfused_table);
        // Every processor with AVX2 so far converts binary16, but the two are not bound together.
        if (selected_x86_simd() == X86Simd::avx256 && !__builtin_cpu_supports("f16c")) {
            table.binary16 = avx256_integer_binary16_kernels;
        }
        return table;
    }();
    return selected;
}

const EliminationTable& elimination_table() {
    return of_selected_simd(avx256_elimination_table, avx512_elimination_table);
}

const GramSchmidtKernels& gram_schmidt_kernels() {
    return of_selected_simd(avx256_gram_schmidt_kernels, avx512_gram_schmidt_kernels);
}

const RotationTable& rotation_kernels() {
    return of_selected_simd(avx256_rotation_table, avx512_rotation_table);
}

} // namespace Tessaline::SimdKernels
