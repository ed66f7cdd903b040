// SPDX-License-Identifier: Apache-2.0
#pragma once

// Projections of complex columns: many at once with a lane for each, or a single one, whose
// products are made in vectors and summed one by one.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/kernels/hypotenuse.h"
#include "backend/cpu/simd/tables/gram_schmidt_kernels.h"

#include <utility>

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
        double norm = magnitudes[0];
        for (Index i = 1; i < count;) {
            i += prolong_chain(norm, magnitudes + i, least(chain_length, count - i));
        }
        return norm;
    }

  private:
    using Bits = LaneBits<Set>;
    using Words [[gnu::vector_size(sizeof(Register))]] = std::uint64_t; ///< without overflow

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

    /// Takes the chain of a norm over some of `count` magnitudes, at least one. Returns how many.
    ///
    /// The norms on the way are foretold by sums of squares, to a few units in the last place. Of
    /// each and of both its neighbours the hypotenuse with the next magnitude is found. The chain
    /// has only to choose among these, until it comes to a norm that is no neighbour:
    ///
    ///     foretold         f0          f1          f2           all lanes at once
    ///     next to each     f0- f0 f0+  f1- f1 f1+  f2- f2 f2+   hypotenuses, all lanes at once
    ///     the chain        f0+ ------> f1 -------> f2- ----->   one look-up a link
    ///
    /// Measured over 16 to 256 magnitudes: 7 to 8 ns a link with 512-bit vectors and 10 to 11 with
    /// 256-bit ones, where the library's hypotenuse takes 40 to 57.
    static Index prolong_chain(double& norm, const double* magnitudes, Index count) {
        alignas(64) double found[neighbours][chain_length];
        alignas(64) long choices[chain_length];
        Register before = Set::broadcast(norm);
        Register sum = before * before;
        for_places<chain_vectors>([&](auto v) {
            const Register terms = Set::load(magnitudes + v.value * lanes);
            const Register sums = sum + prefix_sums(terms * terms);
            const Register foretold = Set::root(sums);
            const Words former = Words(shifted<1>(foretold, before));
            sum = Set::broadcast(sums[lanes - 1]);
            before = foretold;
            // For each neighbour the place of the norm after it.
            Bits choice{};
            for_places<neighbours>([&](auto place) {
                const Register candidate = Register(former + place.value - 1);
                const Register next = hypotenuse<Set>(candidate, terms);
                Set::store(found[place.value] + v.value * lanes, next);
                const Bits after = Bits(Words(next) - Words(foretold) + 1);
                const auto is_neighbour = (after >= 0) & (after < neighbours);
                choice |= (is_neighbour ? after : Bits{} + lost)
                          << (place_bits * long{place.value});
            });
            Set::store(reinterpret_cast<double*>(choices) + v.value * lanes, Register(choice));
        });
        long place;
        long next = 1;
        Index taken = 0;
        do {
            place = next;
            next = choices[taken] >> (place_bits * place) & lost;
            ++taken;
        } while (taken < count && next != lost);
        norm = found[place][taken - 1];
        return taken;
    }
    static constexpr long neighbours = 3;
    static constexpr long place_bits = 8;
    static constexpr long lost = 0xff;
    /// A second vector shares the time that the first one waits for roots; a third brought nothing.
    static constexpr Index chain_vectors = 2;
    static constexpr Index chain_length = chain_vectors * lanes;

    static Register prefix_sums(Register value) {
        value += shifted<1>(value, Set::zero());
        value += shifted<2>(value, Set::zero());
        if constexpr (lanes >= 8) {
            value += shifted<4>(value, Set::zero());
        }
        return value;
    }
    /// The lanes moved up by `Count`, and the last ones of `before` below.
    template <int Count>
    static Register shifted(Register value, Register before) {
        return shifted<Count>(value, before,
                              std::make_integer_sequence<int, static_cast<int>(lanes)>{});
    }
    template <int Count, int... Lane>
    static Register shifted(Register value, Register before, std::integer_sequence<int, Lane...>) {
        return __builtin_shufflevector(before, value, (Lane + static_cast<int>(lanes) - Count)...);
    }

    static auto is_ordinary(Register part) {
        const Register size = absolute<Set>(part);
        return (part == 0) | ((size <= largest_ordinary) & (size >= 1 / largest_ordinary));
    }

    static Index least(Index a, Index b) { return a < b ? a : b; }

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
