// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search for a pivot and the step of an elimination in a few columns of complex numbers. The
// elements stay pairs of parts in registers, so that a step needs few shuffles.

#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/kernels/pivot_search.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

#include <limits>

namespace Tessaline::SimdKernels {

namespace {

/// Vectors of complex numbers whose parts alternate.
template <typename Lane, int Lanes>
struct Pairs {
    typedef Lane Vector __attribute__((vector_size(Lanes * sizeof(Lane))));
    using Integers = decltype(Vector{} < Vector{});

    static Vector real_parts(Vector v) {
        return places(v, [](int lane) { return lane & ~1; });
    }
    static Vector imag_parts(Vector v) {
        return places(v, [](int lane) { return lane | 1; });
    }
    static Vector exchanged(Vector v) {
        return places(v, [](int lane) { return lane ^ 1; });
    }
    static Vector magnitudes(Vector v) { return v < 0 ? -v : v; }
    /// (real, imag) in all pairs.
    static Vector all(Lane real, Lane imag) {
        return places(Vector{real, imag}, [](int lane) { return lane & 1; });
    }

  private:
    template <typename From>
    [[gnu::always_inline]] static inline Vector places(Vector v, From from) {
        return places(v, from, std::make_integer_sequence<int, Lanes>{});
    }
    template <typename From, int... To>
    [[gnu::always_inline]] static inline Vector places(Vector v, From,
                                                       std::integer_sequence<int, To...>) {
        return __builtin_shufflevector(v, v, From{}(To)...);
    }
};

/// Quotients as PreparedDivisor tells.
template <typename Real, int Lanes>
class PairQuotients {
    using Vector = typename Pairs<Real, Lanes>::Vector;

  public:
    explicit PairQuotients(const PreparedDivisor<Real>& divisor)
        : p_(Vector{} + divisor.p),
          q_(Pairs<Real, Lanes>::all(divisor.q, -divisor.q)),
          denominator_(Vector{} + divisor.denominator) {}

    Vector of_scaled(Vector dividends) const {
        return (dividends * p_ + Pairs<Real, Lanes>::exchanged(dividends) * q_) / denominator_;
    }

  private:
    Vector p_;
    Vector q_;
    Vector denominator_;
};

/// Quotients by a scaled divisor. Not a number where they need a second look.
template <typename Set>
class ScaledQuotients {
    using Real = typename Set::Component;
    using Registers = Pairs<Real, Set::lanes>;
    using Register = typename Registers::Vector;

  public:
    using Divisor = PreparedDivisor<Real>;

    explicit ScaledQuotients(const Divisor& divisor)
        : scale_(Register{} + divisor.scale),
          least_(Register{} + divisor.least),
          quotients_(divisor) {}

    Register operator()(Register dividends) const {
        const Register scaled = dividends / scale_;
        const Register quotients = quotients_.of_scaled(scaled);
        const Register sizes = Registers::magnitudes(quotients);
        // A power of two, which scales exactly or, at the end of the range, rounds.
        constexpr Real epsilon = static_cast<Real>(std::numeric_limits<double>::epsilon());
        // Constants, and no functions of the library, of which this unit may not keep copies.
        constexpr Real largest = std::numeric_limits<Real>::max();
        constexpr Real not_a_number = std::numeric_limits<Real>::quiet_NaN();
        const auto stands = ((dividends == 0) | (Registers::magnitudes(scaled) >= least_)) &
                            (sizes > epsilon * Registers::exchanged(sizes)) & (sizes <= largest);
        return stands ? quotients : Register{} + not_a_number;
    }

  private:
    Register scale_;
    Register least_;
    PairQuotients<Real, Set::lanes> quotients_;
};

/// Quotients of floats, each rounded once more from a quotient of doubles.
template <typename Set>
class WideQuotients {
    static_assert(sizeof(typename Set::Component) == sizeof(float));
    using Register = typename Set::Register;
    static constexpr int half = Set::lanes / 2;
    using Floats = typename Pairs<float, half>::Vector;
    using Doubles = typename Pairs<double, half>::Vector;

  public:
    using Divisor = PreparedDivisor<double>;

    explicit WideQuotients(const Divisor& divisor) : quotients_(divisor) {}

    Register operator()(Register dividends) const {
        Floats halves[2];
        __builtin_memcpy(halves, &dividends, sizeof dividends);
        halves[0] = of_half(halves[0]);
        halves[1] = of_half(halves[1]);
        __builtin_memcpy(&dividends, halves, sizeof dividends);
        return dividends;
    }

  private:
    Floats of_half(Floats dividends) const {
        return __builtin_convertvector(
            quotients_.of_scaled(__builtin_convertvector(dividends, Doubles)), Floats);
    }

    PairQuotients<double, half> quotients_;
};

/// Set says whether products fuse.
template <typename Set>
class ComplexElimination {
    static_assert(Set::lost_product == LostProduct::recovers);
    using Real = typename Set::Component;
    using T = std::complex<Real>;
    using Register = typename Set::Register;
    using Registers = Pairs<Real, Set::lanes>;

  public:
    static Index largest_magnitude(const T* candidates, Index count) {
        // Squares are off by a few roundings, so the largest has to lead by more than these; and
        // none may have left the range.
        constexpr Real share = 1 - static_cast<Real>(0x1p-16);
        constexpr Real least = sizeof(Real) == sizeof(float) ? Real(0x1p-100) : Real(0x1p-900);
        const auto [row, is_finite] = find_largest(candidates, count, squares);
        if (row == undecided || !is_finite) {
            return undecided;
        }
        const Real bound = share * square(candidates[row]);
        return bound >= least && count_from(candidates, count, bound) == 1 ? row : undecided;
    }

    static Index largest_part(const T* candidates, Index count) {
        const auto [row, is_finite] = find_largest(candidates, count, [](Register pairs_of_parts) {
            const Register sizes = Registers::magnitudes(pairs_of_parts);
            const Register others = Registers::exchanged(sizes);
            return sizes > others ? sizes : others;
        });
        return is_finite ? row : undecided;
    }

    static Index largest_square(const T* candidates, Index count) {
        const Real first = square(candidates[0]);
        return first == first ? find_largest(candidates, count, squares).row : undecided;
    }

    template <typename Quotients>
    static Index eliminate(const PivotBlock<T>& block, Index begin,
                           const typename Quotients::Divisor& divisor) {
        const Quotients quotients(divisor);
        PivotRow factors;
        for (Index j = 0; j < block.right; ++j) {
            const Real* const factor = parts(block.pivot + (j + 1) * block.stride);
            factors.of_real[j] = Registers::all(factor[0], factor[1]);
            factors.of_imag[j] = Registers::all(-factor[1], factor[0]);
        }
        for (Index row = begin; row < block.rows; row += pairs) {
            const bool done =
                row + pairs <= block.rows
                    ? eliminate_rows(block, row, pairs, quotients, factors, AllLanes{})
                    : eliminate_rows(block, row, block.rows - row, quotients, factors,
                                     Set::first_lanes(2 * (block.rows - row)));
            if (!done) {
                return row;
            }
        }
        return block.rows;
    }

  private:
    static constexpr Index pairs = Set::lanes / 2;

    /// The elements right of a pivot, in all pairs: what real and imaginary parts of a multiplier
    /// are multiplied with.
    struct PivotRow {
        Register of_real[elimination_block - 1];
        Register of_imag[elimination_block - 1];
    };

    struct Largest {
        Index row; ///< undecided where all are zero
        bool is_finite;
    };

    /// The first largest of what `measure` makes of the candidates, in both places of a pair.
    template <typename Measure>
    static Largest find_largest(const T* candidates, Index count, const Measure& measure) {
        PivotSearch<Set> search;
        for_vectors<Set>(2 * count, [&](Index i, auto mask) {
            search.include(measure(load<Set>(parts(candidates) + i, mask)));
        });
        bool found = false;
        const Index place = search.row(found);
        return {found ? place / 2 : undecided, search.is_finite()};
    }

    static Register squares(Register pairs_of_parts) {
        const Register of_parts = pairs_of_parts * pairs_of_parts;
        return of_parts + Registers::exchanged(of_parts);
    }
    static Real square(const T& value) {
        const Real* const of_value = parts(&value);
        return of_value[0] * of_value[0] + of_value[1] * of_value[1];
    }

    /// How many candidates have a square of at least `bound`, which is above zero.
    static Index count_from(const T* candidates, Index count, Real bound) {
        const Register bounds = Set::broadcast(bound);
        const Register one = Set::broadcast(1);
        Register found = Set::zero();
        for_vectors<Set>(2 * count, [&](Index i, auto mask) {
            found += squares(load<Set>(parts(candidates) + i, mask)) >= bounds ? one : Set::zero();
        });
        Real total = 0;
        for (Index lane = 0; lane < Set::lanes; lane += 2) {
            total += found[lane];
        }
        return static_cast<Index>(total);
    }

    /// The `count` rows from `row` on. False, with nothing done, where a quotient is NaN.
    template <typename Quotients, typename Lanes>
    [[gnu::always_inline]] static inline bool
    eliminate_rows(const PivotBlock<T>& block, Index row, Index count, const Quotients& quotients,
                   const PivotRow& factors, Lanes lanes) {
        const unsigned active = count == pairs ? ~0U : (1U << 2 * count) - 1;
        Real* const elements = parts(block.pivot + 1 + row);
        const Register multipliers = quotients(load<Set>(elements, lanes));
        if ((Set::nan_lanes(multipliers) & active) != 0) [[unlikely]] {
            return false;
        }
        store<Set>(elements, multipliers, lanes);
        const Register real = Registers::real_parts(multipliers);
        const Register imag = Registers::imag_parts(multipliers);
        for (Index j = 0; j < block.right; ++j) {
            Real* const column = elements + 2 * (j + 1) * block.stride;
            const Register left =
                load<Set>(column, lanes) -
                sum_of_products<Set>(real, factors.of_real[j], imag, factors.of_imag[j]);
            if ((Set::nan_lanes(left) & active) == 0) [[likely]] {
                store<Set>(column, left, lanes);
            } else {
                subtract_plainly(column, elements, parts(block.pivot + (j + 1) * block.stride),
                                 count);
            }
        }
        return true;
    }

    /// Subtracts from elements of a column the multiples of one factor, element by element.
    [[gnu::noinline]] static void subtract_plainly(Real* column, const Real* multipliers,
                                                   const Real* factor, Index count) {
        for (Index i = 0; i < 2 * count; i += 2) {
            store_result<Set>(column + i,
                              built_in_element(column + i) -
                                  recovering_product<Set>(built_in_element(multipliers + i),
                                                          built_in_element(factor)));
        }
    }

    static const Real* parts(const T* elements) { return reinterpret_cast<const Real*>(elements); }
    static Real* parts(T* elements) { return reinterpret_cast<Real*>(elements); }
};

} // namespace

} // namespace Tessaline::SimdKernels
