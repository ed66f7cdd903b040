// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels that treat each element alone; see kernels.h for what each computes.

#include "backend/cpu/simd/kernels/forms.h"

namespace Tessaline::SimdKernels {

template <typename Set>
class Elementwise {
  public:
    static void add(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_result(out, i, load<Set>(a.data + i, lanes) + load<Set>(b.data + i, lanes),
                         lanes);
        });
    }

    static void subtract(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_result(out, i, load<Set>(a.data + i, lanes) - load<Set>(b.data + i, lanes),
                         lanes);
        });
    }

    static void multiply(RealInput a, RealInput b, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_result(out, i, load<Set>(a.data + i, lanes) * load<Set>(b.data + i, lanes),
                         lanes);
        });
    }

    static void scale(RealInput a, float factor, RealOutput out) {
        const auto b = Set::broadcast(factor);
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store_result(out, i, load<Set>(a.data + i, lanes) * b, lanes);
        });
    }

    /// A move: a NaN keeps its bits but the sign.
    static void negate(RealInput a, RealOutput out) {
        for_vectors<Set>(out.size, [=](std::size_t i, auto lanes) {
            store<Set>(out.data + i, Set::negated(load<Set>(a.data + i, lanes)), lanes);
        });
    }

  private:
    template <typename Lanes>
    static void store_result(RealOutput out, std::size_t index, typename Set::Register value,
                             Lanes lanes) {
        store<Set>(out.data + index, as_result<Set>(value), lanes);
    }
};

template <typename Elements>
class ComplexElementwise {
    using Set = typename Elements::Set;
    using Input = typename Elements::Form::VectorInput;
    using Output = typename Elements::Form::VectorOutput;

  public:
    static void multiply(Input a, Input b, Output out) {
        const auto of_a = Elements::of(a);
        const auto of_b = Elements::of(b);
        const auto to = Elements::of(out);
        for_element_vectors<Elements>(out.size, [=](Index i, auto mask) {
            Elements::store(
                to, i, product<Set>(Elements::load(of_a, i, mask), Elements::load(of_b, i, mask)),
                mask);
        });
    }

    static void scale(Input a, ComplexScalarView<const float> factor, Output out) {
        const auto b = broadcast_complex<Set>(*factor.real, *factor.imag);
        const auto of_a = Elements::of(a);
        const auto to = Elements::of(out);
        for_element_vectors<Elements>(out.size, [=](Index i, auto mask) {
            Elements::store(to, i, product<Set>(Elements::load(of_a, i, mask), b), mask);
        });
    }
};

} // namespace Tessaline::SimdKernels
