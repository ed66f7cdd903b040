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
struct Reductions {
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

    static void lane_row_products(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin,
                                  Index end) {
        for (Index i = begin; i < end; ++i) {
            const SplitInput row{A.real + i * A.cols, A.imag + i * A.cols, A.cols};
            ComplexLaneSum<Set> sum;
            for_vectors<Set>(A.cols, [&](std::size_t k, auto lanes) {
                sum.add(
                    product<Set>(load_complex<Set>(row, k, lanes), load_complex<Set>(x, k, lanes)),
                    lanes);
            });
            sum.store_total({out.real + i, out.imag + i}, A.cols);
        }
    }
};

} // namespace Tessaline::SimdKernels
