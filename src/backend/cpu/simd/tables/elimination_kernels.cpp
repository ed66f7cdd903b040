// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/elimination_kernels.h"

#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline::SimdKernels {

namespace {

const EliminationTable* select() {
    if (!supports(detect_x86_features(), X86Simd::avx256)) {
        return nullptr;
    }
    return selected_x86_simd() == X86Simd::avx512 ? &avx512_elimination_table
                                                  : &avx256_elimination_table;
}

} // namespace

template <typename T>
const EliminationKernels<T>* elimination_kernels() {
    static const EliminationTable* const selected = select();
    return selected;
}

template const EliminationKernels<float>* elimination_kernels();
template const EliminationKernels<double>* elimination_kernels();
template const EliminationKernels<std::complex<float>>* elimination_kernels();
template const EliminationKernels<std::complex<double>>* elimination_kernels();

} // namespace Tessaline::SimdKernels
