// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/unfused_kernels.h"

#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline::SimdKernels {

namespace {

const UnfusedTable* widest_table() {
    // Every processor with AVX2 so far converts binary16, but the two are not bound together.
    if (!supports(detect_x86_features(), X86Simd::avx256) || !__builtin_cpu_supports("f16c")) {
        return nullptr;
    }
    return selected_x86_simd() == X86Simd::avx512 ? &avx512_unfused_table : &avx256_unfused_table;
}

const UnfusedTable*& current_table() {
    static const UnfusedTable* table = widest_table();
    return table;
}

} // namespace

const UnfusedTable* unfused_table() {
    return current_table();
}

UnfusedSelection::UnfusedSelection(const UnfusedTable* table) : former_(current_table()) {
    current_table() = table;
}

UnfusedSelection::~UnfusedSelection() {
    current_table() = former_;
}

} // namespace Tessaline::SimdKernels
