// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sums in the order of the lanes; see simd_kernels.h for what each kernel computes.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

/// A sum of `count` terms that arrive in vectors, from zero.
template <typename Set>
class LaneSum {
    using Register = typename Set::Register;

  public:
    void add(Register terms, AllLanes) { lanes_ = lanes_ + terms; }
    void add(Register terms, typename Set::Mask) { rest_ = terms; }

    float total(std::size_t count) const {
        float rest[Set::lanes];
        Set::store(rest, rest_);
        float sum = Set::sum(lanes_);
        for (std::size_t i = 0; i < count % Set::lanes; ++i) {
            sum += rest[i];
        }
        return sum;
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

    static void inner(SplitInput a, SplitInput b, ComplexScalarView<float> out) {
        ComplexLaneSum<Set> sum;
        for_vectors<Set>(a.size, [&](std::size_t i, auto lanes) {
            sum.add(conjugate_product<Set>(load_complex<Set>(a, i, lanes),
                                           load_complex<Set>(b, i, lanes)),
                    lanes);
        });
        sum.store_total(out, a.size);
    }

    /// The sum of products of two interleaved vectors of `count` elements, as the power iteration
    /// takes it.
    static void multiply_row(const float* row, const float* vector, Index count, float* result) {
        ComplexLaneSum<Set> sum;
        for_vectors<Set>(count, [&](std::size_t i, auto lanes) {
            sum.add(product<Set>(load_interleaved(row + 2 * i, lanes, count - i),
                                 load_interleaved(vector + 2 * i, lanes, count - i)),
                    lanes);
        });
        sum.store_total({result, result + 1}, count);
    }

  private:
    static Complex<Set> deinterleaved(typename Set::Register low, typename Set::Register high) {
        return {Set::even_elements(low, high), Set::odd_elements(low, high)};
    }
    static Complex<Set> load_interleaved(const float* from, AllLanes, Index) {
        return deinterleaved(Set::load(from), Set::load(from + Set::lanes));
    }
    /// The `rest` elements that are left, fewer than a vector has lanes.
    static Complex<Set> load_interleaved(const float* from, typename Set::Mask, Index rest) {
        const Index floats = 2 * rest;
        const Index low = floats < Set::lanes ? floats : Set::lanes;
        return deinterleaved(Set::load(from, Set::first_lanes(low)),
                             Set::load(from + low, Set::first_lanes(floats - low)));
    }
};

} // namespace Tessaline::SimdKernels
