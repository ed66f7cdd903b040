// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels that treat each element alone; see simd_kernels.h for what each computes.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

template <typename Set>
struct Elementwise {
    static void add(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, load<Set>(a.data + i, lanes) + load<Set>(b.data + i, lanes),
                       lanes);
        });
    }

    static void subtract(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, load<Set>(a.data + i, lanes) - load<Set>(b.data + i, lanes),
                       lanes);
        });
    }

    static void multiply(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, load<Set>(a.data + i, lanes) * load<Set>(b.data + i, lanes),
                       lanes);
        });
    }

    static void scale(RealInput a, float factor, RealOutput out) {
        const auto b = Set::broadcast(factor);
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, load<Set>(a.data + i, lanes) * b, lanes);
        });
    }

    static void negate(RealInput a, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, Set::negated(load<Set>(a.data + i, lanes)), lanes);
        });
    }

    static void multiply_split(SplitInput a, SplitInput b, SplitOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_complex<Set>(
                out, i,
                product<Set>(load_complex<Set>(a, i, lanes), load_complex<Set>(b, i, lanes)),
                lanes);
        });
    }

    static void scale_split(SplitInput a, ComplexScalarView<const float> factor, SplitOutput out) {
        const auto b = broadcast_complex<Set>(*factor.real, *factor.imag);
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_complex<Set>(out, i, product<Set>(load_complex<Set>(a, i, lanes), b), lanes);
        });
    }
};

} // namespace Tessaline::SimdKernels
