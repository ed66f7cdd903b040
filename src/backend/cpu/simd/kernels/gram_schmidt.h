// SPDX-License-Identifier: Apache-2.0
#pragma once

// Projections of complex columns: many at once with a lane for each, or a single one, whose
// products are made in vectors and summed one by one.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/kernels/chain_norm.h"
#include "backend/cpu/simd/tables/gram_schmidt_kernels.h"

namespace Tessaline::SimdKernels {

namespace {

template <typename InstructionSet>
class GramSchmidt {
    using Set = Unfused<InstructionSet>;
    using Register = typename Set::Register;
    using Vector = Complex<Set>;
    static constexpr Index lanes = Set::lanes;

  public:
    static void project_set(const double* q, Index q_imaginary, double* set,
                            const PlanarShape& shape, Index rows, Index begin, Index end) {
        project_columns<4>(q, q_imaginary, set, shape, rows, begin, end);
    }

    static void project_column(const double* basis, const PlanarShape& shape, Index count,
                               double* column, double* terms, Index rows) {
        const Index imaginary = shape.imaginary;
        for (Index i = 0; i < rows && count != 0; i += lanes) {
            const Vector of_q = load(basis + i, imaginary);
            store(terms + i, imaginary, conjugate_product<Set>(of_q, load(column + i, imaginary)));
        }
        for (Index k = 0; k < count; ++k) {
            const double* const q = basis + k * shape.stride;
            const double* const next = k + 1 < count ? q + shape.stride : q;
            const Vector part = chain_sum(terms, imaginary, rows);
            // Vector by vector, so that the next sum need not wait for all of them.
            for (Index i = 0; i < rows; i += lanes) {
                const Vector before = load(column + i, imaginary);
                const Vector taken = product<Set>(load(q + i, imaginary), part);
                const Vector after{before.real - taken.real, before.imag - taken.imag};
                store(column + i, imaginary, after);
                store(terms + i, imaginary,
                      conjugate_product<Set>(load(next + i, imaginary), after));
            }
        }
    }

    static void magnitudes(const double* column, Index imaginary, Index rows, double* magnitudes) {
        for (Index i = 0; i < rows; i += lanes) {
            Set::store(magnitudes + i, magnitude(load(column + i, imaginary)));
        }
    }

    static bool divide_ordinary(double* column, Index imaginary, Index rows, double divisor) {
        unsigned others = 0;
        for (Index i = 0; i < rows; i += lanes) {
            const Vector element = load(column + i, imaginary);
            others |= true_lanes<Set>(~(is_ordinary(element.real) & is_ordinary(element.imag)));
        }
        const Register divisors = Set::broadcast(divisor);
        for (Index i = 0; i < rows && others == 0; i += lanes) {
            const Vector element = load(column + i, imaginary);
            Set::store(column + i, element.real / divisors);
            Set::store(column + imaginary + i, element.imag / divisors);
        }
        return others == 0;
    }

    static double chain_norm(const double* magnitudes, Index count) {
        return ChainNorm<Set, double>::prolong_norm(0, magnitudes, count);
    }

  private:
    /// The sum of the terms one by one, in all lanes.
    static Vector chain_sum(const double* terms, Index imaginary, Index count) {
        double real = 0;
        double imag = 0;
        for (Index i = 0; i < count; ++i) {
            real += terms[i];
            imag += terms[imaginary + i];
        }
        return broadcast_complex<Set>(real, imag);
    }

    static auto is_ordinary(Register part) {
        const Register size = absolute<Set>(part);
        return (part == 0) | ((size <= largest_ordinary) & (size >= 1 / largest_ordinary));
    }

    static Vector load(const double* from, Index imaginary) {
        return {Set::load(from), Set::load(from + imaginary)};
    }
    static void store(double* to, Index imaginary, Vector value) {
        Set::store(to, value.real);
        Set::store(to + imaginary, value.imag);
    }

    /// As many vectors at a time as there are, up to Most.
    template <Index Most>
    static void project_columns(const double* q, Index q_imaginary, double* set,
                                const PlanarShape& shape, Index rows, Index begin, Index end) {
        for (; begin + Most * lanes <= end; begin += Most * lanes) {
            project_vectors<Most>(q, q_imaginary, set + begin, shape, rows);
        }
        if constexpr (Most > 1) {
            project_columns<Most / 2>(q, q_imaginary, set, shape, rows, begin, end);
        }
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
        .magnitudes = GramSchmidt<Set>::magnitudes,
        .chain_norm = GramSchmidt<Set>::chain_norm,
        .divide_ordinary = GramSchmidt<Set>::divide_ordinary,
    };
}

} // namespace

} // namespace Tessaline::SimdKernels
