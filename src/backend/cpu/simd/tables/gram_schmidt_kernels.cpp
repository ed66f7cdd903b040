// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/gram_schmidt_kernels.h"

#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline::SimdKernels {

const GramSchmidtKernels* gram_schmidt_kernels() {
    static const GramSchmidtKernels* const selected = []() -> const GramSchmidtKernels* {
        if (!supports(detect_x86_features(), X86Simd::avx256)) {
            return nullptr;
        }
        return selected_x86_simd() == X86Simd::avx512 ? &avx512_gram_schmidt_kernels
                                                      : &avx256_gram_schmidt_kernels;
    }();
    return selected;
}

} // namespace Tessaline::SimdKernels
