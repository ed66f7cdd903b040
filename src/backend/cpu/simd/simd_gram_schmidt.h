// SPDX-License-Identifier: Apache-2.0
#pragma once

// Projections of complex columns: many at once with a lane for each, or a single one, whose
// products are made in vectors and summed one by one.

#include "backend/cpu/simd/simd_arithmetic.h"
#include "backend/cpu/simd/simd_gram_schmidt_kernels.h"
#include "backend/cpu/simd/simd_hypotenuse.h"

namespace Tessaline::SimdKernels {

namespace {

/// The same vectors, with products that round every operation.
template <typename InstructionSet>
struct WithoutFusing : InstructionSet {
    static constexpr bool fuses = false;
};

template <typename InstructionSet>
class GramSchmidt {
    using Set = WithoutFusing<InstructionSet>;
    using Register = typename Set::Register;
    using Vector = Complex<Set>;
    static constexpr Index lanes = Set::lanes;

  public:
    static void project_set(const double* q, Index q_imaginary, double* set,
                            const PlanarShape& shape, Index rows, Index begin, Index end) {
        constexpr Index wide = 4 * lanes;
        Index column = begin;
        for (; column + wide <= end; column += wide) {
            project_vectors<4>(q, q_imaginary, set + column, shape, rows);
        }
        for (; column < end; column += lanes) {
            project_vectors<1>(q, q_imaginary, set + column, shape, rows);
        }
    }

    static void project_column(const double* q, double* column, Index imaginary, Index rows) {
        double real = 0;
        double imag = 0;
        for (Index first = 0; first < rows; first += chunk) {
            // The products in vectors, their sum one by one.
            alignas(64) double terms[2][chunk];
            const Index count = least(chunk, rows - first);
            for (Index i = 0; i < count; i += lanes) {
                const Vector term = conjugate_product<Set>(load(q + first + i, imaginary),
                                                           load(column + first + i, imaginary));
                Set::store(terms[0] + i, term.real);
                Set::store(terms[1] + i, term.imag);
            }
            for (Index i = 0; i < count; ++i) {
                real += terms[0][i];
                imag += terms[1][i];
            }
        }
        const Vector part = broadcast_complex<Set>(real, imag);
        for (Index i = 0; i < rows; i += lanes) {
            const Vector taken = product<Set>(load(q + i, imaginary), part);
            const Vector before = load(column + i, imaginary);
            Set::store(column + i, before.real - taken.real);
            Set::store(column + imaginary + i, before.imag - taken.imag);
        }
    }

    static void set_norms(const double* set, const PlanarShape& shape, Index rows, Index columns,
                          double* norms) {
        for (Index column = 0; column < columns; column += lanes) {
            Register norm = magnitude(load(set + column, shape.imaginary));
            for (Index i = 1; i < rows; ++i) {
                norm = hypotenuse<Set>(
                    norm, magnitude(load(set + i * shape.stride + column, shape.imaginary)));
            }
            Set::store(norms + column, norm);
        }
    }

    static void magnitudes(const double* column, Index imaginary, Index rows, double* magnitudes) {
        for (Index i = 0; i < rows; i += lanes) {
            Set::store(magnitudes + i, magnitude(load(column + i, imaginary)));
        }
    }

  private:
    static constexpr Index chunk = 64;

    static Index least(Index a, Index b) { return a < b ? a : b; }

    static Vector load(const double* from, Index imaginary) {
        return {Set::load(from), Set::load(from + imaginary)};
    }

    template <Index Vectors>
    static void project_vectors(const double* q, Index q_imaginary, double* set,
                                const PlanarShape& shape, Index rows) {
        Vector part[Vectors];
        for_places<Vectors>([&](auto v) { part[v.value] = {Set::zero(), Set::zero()}; });
        for (Index i = 0; i < rows; ++i) {
            const Vector of_q = broadcast_complex<Set>(q[i], q[i + q_imaginary]);
            const double* const row = set + i * shape.stride;
            for_places<Vectors>([&](auto v) {
                const Vector term =
                    conjugate_product<Set>(of_q, load(row + v.value * lanes, shape.imaginary));
                part[v.value] = {part[v.value].real + term.real, part[v.value].imag + term.imag};
            });
        }
        for (Index i = 0; i < rows; ++i) {
            const Vector of_q = broadcast_complex<Set>(q[i], q[i + q_imaginary]);
            double* const row = set + i * shape.stride;
            for_places<Vectors>([&](auto v) {
                double* const element = row + v.value * lanes;
                const Vector before = load(element, shape.imaginary);
                const Vector taken = product<Set>(of_q, part[v.value]);
                Set::store(element, before.real - taken.real);
                Set::store(element + shape.imaginary, before.imag - taken.imag);
            });
        }
    }

    static Register magnitude(Vector value) { return hypotenuse<Set>(value.real, value.imag); }
};

template <typename Set>
constexpr GramSchmidtKernels make_gram_schmidt_kernels() {
    return {
        .project_set = GramSchmidt<Set>::project_set,
        .project_column = GramSchmidt<Set>::project_column,
        .set_norms = GramSchmidt<Set>::set_norms,
        .magnitudes = GramSchmidt<Set>::magnitudes,
    };
}

} // namespace

} // namespace Tessaline::SimdKernels
