// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sums in the order of the lanes; see kernels.h for what each kernel computes.

#include "backend/cpu/simd/kernels/forms.h"

namespace Tessaline::SimdKernels {

/// A sum of `count` terms that arrive in vectors, from zero.
template <typename Set>
class LaneSum {
    using Register = typename Set::Register;

  public:
    void add(Register terms, AllLanes) { lanes_ = lanes_ + terms; }
    /// What is left after the whole vectors, zeros behind it.
    template <typename LaneMask>
    void add(Register terms, const LaneMask&) {
        rest_ = terms;
    }

    float total(std::size_t count) const {
        float rest[Set::lanes];
        Set::store(rest, rest_);
        float sum = Set::sum(lanes_);
        for (std::size_t i = 0; i < count % Set::lanes; ++i) {
            sum += rest[i];
        }
        return as_result<Set>(sum);
    }

  private:
    Register lanes_ = Set::zero();
    Register rest_ = Set::zero();
};

template <typename Set>
class ComplexLaneSum {
  public:
    template <typename Lanes>
    void add(Complex<Set> terms, Lanes lanes) {
        real_.add(terms.real, lanes);
        imag_.add(terms.imag, lanes);
    }

    void store_total(ComplexScalarView<float> out, std::size_t count) const {
        *out.real = real_.total(count);
        *out.imag = imag_.total(count);
    }

  private:
    LaneSum<Set> real_;
    LaneSum<Set> imag_;
};

template <typename Set>
class Reductions {
  public:
    static float sum(RealInput a) {
        LaneSum<Set> sum;
        for_vectors<Set>(a.size, [&](std::size_t i, auto lanes) {
            sum.add(load<Set>(a.data + i, lanes), lanes);
        });
        return sum.total(a.size);
    }

    /// The sum of products of two interleaved vectors of `count` elements, as the power iteration
    /// takes it.
    static void multiply_row(const float* row, const float* vector, Index count, float* result) {
        using Elements = InterleavedElements<Set>;
        ComplexLaneSum<Set> sum;
        for_element_vectors<Elements>(count, [&](Index i, auto mask) {
            sum.add(product<Set>(Elements::load(row, i, mask), Elements::load(vector, i, mask)),
                    mask);
        });
        sum.store_total({result, result + 1}, count);
    }
};

template <typename Elements>
class ComplexReductions {
    using Set = typename Elements::Set;
    using Input = typename Elements::Form::VectorInput;

  public:
    static void sum(Input a, ComplexScalarView<float> out) {
        const auto from = Elements::of(a);
        ComplexLaneSum<Set> sum;
        for_element_vectors<Elements>(
            a.size, [&](Index i, auto mask) { sum.add(Elements::load(from, i, mask), mask); });
        sum.store_total(out, a.size);
    }

    static void inner(Input a, Input b, ComplexScalarView<float> out) {
        const auto of_a = Elements::of(a);
        const auto of_b = Elements::of(b);
        ComplexLaneSum<Set> sum;
        for_element_vectors<Elements>(a.size, [&](Index i, auto mask) {
            sum.add(conjugate_product<Set>(Elements::load(of_a, i, mask),
                                           Elements::load(of_b, i, mask)),
                    mask);
        });
        sum.store_total(out, a.size);
    }
};

} // namespace Tessaline::SimdKernels
