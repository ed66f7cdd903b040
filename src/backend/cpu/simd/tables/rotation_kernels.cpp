// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/rotation_kernels.h"

#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline::SimdKernels {

const RotationTable& rotation_kernels() {
    static const RotationTable& selected = []() -> const RotationTable& {
        if (!supports(detect_x86_features(), X86Simd::avx256)) {
            return baseline_rotation_table;
        }
        return selected_x86_simd() == X86Simd::avx512 ? avx512_rotation_table
                                                      : avx256_rotation_table;
    }();
    return selected;
}

} // namespace Tessaline::SimdKernels
