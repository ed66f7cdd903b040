// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_unfused_kernels.h"

#include "backend/cpu/simd/x86_simd.h"

namespace Tessaline::SimdKernels {

namespace {

const UnfusedTable* select() {
    if (!supports(detect_x86_features(), X86Simd::avx256)) {
        return nullptr;
    }
    return selected_x86_simd() == X86Simd::avx512 ? &avx512_unfused_table : &avx256_unfused_table;
}

} // namespace

template <typename T>
const UnfusedKernels<T>* unfused_kernels() {
    static const UnfusedTable* const selected = select();
    return selected;
}

template const UnfusedKernels<float>* unfused_kernels();
template const UnfusedKernels<double>* unfused_kernels();
template const UnfusedKernels<std::complex<float>>* unfused_kernels();
template const UnfusedKernels<std::complex<double>>* unfused_kernels();

} // namespace Tessaline::SimdKernels
