// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elements between storage and compute type, many at a time.

#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/simd/plain/scratch_memory.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

#include <algorithm>

namespace Tessaline {

namespace FloatingConversionDetail {

template <typename T>
const std::uint16_t* bits_of(const T* elements) {
    static_assert(sizeof(Component<T>) == sizeof(std::uint16_t));
    return reinterpret_cast<const std::uint16_t*>(elements);
}
template <typename T>
std::uint16_t* bits_of(T* elements) {
    return const_cast<std::uint16_t*>(bits_of(static_cast<const T*>(elements)));
}

template <typename T>
constexpr std::uint64_t part_count = sizeof(T) / sizeof(Component<T>);

} // namespace FloatingConversionDetail

/// The kernels of a T whose parts take two bytes.
template <typename T>
const SimdKernels::StoredKernels& stored_kernels(const SimdKernels::UnfusedTable& kernels) {
    if constexpr (std::is_same_v<T, BFloat16>) {
        return kernels.bfloat16;
    } else {
        return kernels.binary16;
    }
}

/// to[i] = widened(from[i]), but that the payload of a NaN may differ.
template <typename T>
void widen_elements(const T* from, ComputeOf<T>* to, std::uint64_t count,
                    [[maybe_unused]] const SimdKernels::UnfusedTable& kernels) {
    using namespace FloatingConversionDetail;
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        std::copy_n(from, count, to);
    } else {
        stored_kernels<T>(kernels).widen(bits_of(from), reinterpret_cast<float*>(to),
                                         count * part_count<T>);
    }
}

/// to[i] = result_as<T>(from[i]).
template <typename T>
void store_results(const ComputeOf<T>* from, T* to, std::uint64_t count,
                   [[maybe_unused]] const SimdKernels::UnfusedTable& kernels) {
    using namespace FloatingConversionDetail;
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        std::transform(from, from + count, to, result_as<T>);
    } else {
        stored_kernels<T>(kernels).round(reinterpret_cast<const float*>(from), bits_of(to),
                                         count * part_count<T>);
    }
}

/// Calls `body(first, count)` for pieces of [begin, end).
template <typename Body>
void for_conversion_pieces(std::uint64_t begin, std::uint64_t end, const Body& body) {
    for (std::uint64_t first = begin; first < end; first += conversion_piece) {
        body(first, std::min(conversion_piece, end - first));
    }
}

} // namespace Tessaline
