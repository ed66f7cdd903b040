// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <cstring>

namespace Tessaline {

namespace {

/// One element, whose memory holds an object of some other type of its size.
template <typename Bits>
void copy_element(const Bits* from, Bits* to, Bits flipped) {
    Bits element;
    std::memcpy(&element, from, sizeof element);
    element = static_cast<Bits>(element ^ flipped);
    std::memcpy(to, &element, sizeof element);
}

} // namespace

template <typename Bits>
void copy_transposed(const Bits* source, std::uint64_t source_stride, Bits* target,
                     std::uint64_t target_stride, std::uint64_t rows, std::uint64_t cols,
                     Bits flipped, bool past_caches, const SimdKernels::UnfusedTable& kernels) {
    if (rows == 0) {
        return;
    }
    // Elements that lie across cache lines are written through the caches.
    const bool lined_up = reinterpret_cast<std::uintptr_t>(target) % sizeof(Bits) == 0;
    SimdKernels::transposing_kernel<Bits>(kernels)(source, source_stride, target, target_stride,
                                                   rows, cols, flipped, past_caches && lined_up);
}

template <typename Bits>
void copy_flipped(const Bits* source, Bits* target, std::uint64_t count, Bits flipped) {
    for (std::uint64_t i = 0; i < count; ++i) {
        copy_element(source + i, target + i, flipped);
    }
}

#define TESSALINE_INSTANTIATE(Bits)                                                                \
    template void copy_transposed(const Bits*, std::uint64_t, Bits*, std::uint64_t, std::uint64_t, \
                                  std::uint64_t, Bits, bool, const SimdKernels::UnfusedTable&);    \
    template void copy_flipped(const Bits*, Bits*, std::uint64_t, Bits);
TESSALINE_INSTANTIATE(std::uint16_t)
TESSALINE_INSTANTIATE(std::uint32_t)
TESSALINE_INSTANTIATE(std::uint64_t)
TESSALINE_INSTANTIATE(Bits128)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
