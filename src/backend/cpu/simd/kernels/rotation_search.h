// SPDX-License-Identifier: Apache-2.0
#pragma once

// The search for rotations in lanes. A rotation is a chain of two hypotenuses and three divisions,
// of which the lanes share the time.

#include "backend/cpu/simd/kernels/hypotenuse.h"
#include "backend/cpu/simd/kernels/rotation_arithmetic.h"

namespace Tessaline::SimdKernels {

namespace {

template <typename Set, bool IsComplex>
class RotationSearch {
    using Register = typename Set::Register;
    using Arithmetic = RotationArithmetic<Set, IsComplex>;
    using Vector = typename Arithmetic::Vector;
    using Factors = typename Arithmetic::Factors;
    static constexpr Index imaginary_of_common = rotation_block * rotation_block;
    static constexpr Index imaginary_of_block = rotation_block * imaginary_of_common;

  public:
    static unsigned find_rotations(RotationLanes& lanes, Index row, double tolerance) {
        unsigned found = 0;
        for (Index lane = 0; lane < rotation_block; lane += Set::lanes) {
            found |= find(lanes, lane, row, tolerance) << lane;
        }
        return found;
    }

  private:
    /// Negligibility and rotation are those of the plain method, operation by operation.
    static unsigned find(RotationLanes& lanes, Index lane, Index row, double tolerance) {
        const Register p = Set::load(lanes.common_diagonal + lane);
        const Register q = Set::load(lanes.diagonal[row] + lane);
        const Vector x = load_common(lanes, row, lane).conjugated();
        const Register place = Set::broadcast(static_cast<double>(row));
        const auto looks = (Set::load(lanes.first + lane) <= place) &
                           (place < Set::load(lanes.end + lane)) & ~(magnitude(x) == 0);
        const auto counts = looks & ~is_negligible(p, q, magnitude(x), tolerance);
        if (true_lanes<Set>(counts) == 0) {
            return 0;
        }
        // Lanes without a rotation must not take the slow path of a hypotenuse.
        const Vector harmless = x.where(looks, one());
        const Register scale =
            Set::larger(absolute<Set>(p), Set::larger(absolute<Set>(q), largest_part(harmless)));
        const Vector ratio = divided(harmless, scale);
        const Register size = magnitude(ratio);
        const Register d = (q / scale) * 0.5 - (p / scale) * 0.5;
        const Register length = size / (absolute<Set>(d) + hypotenuse<Set>(d, size));
        const Register t = with_sign<Set>(length, d);
        const Register c = 1 / hypotenuse<Set>(Set::broadcast(1), t);
        const Factors factors = made(c, divided(ratio, size), c * t);
        const Register shift = t * scale * size;

        const auto turns = counts & ~(size == 0);
        Set::store(lanes.common_diagonal + lane, turns ? p - shift : p);
        Set::store(lanes.diagonal[row] + lane, turns ? q + shift : q);
        Set::store(lanes.c + lane, factors.c);
        Set::store(lanes.s_real + lane, factors.s_real);
        Set::store(lanes.s_imag + lane, factors.s_imag);
        const Vector former = load_common(lanes, row, lane);
        zero().where(counts, former).store(lanes.common_real[row] + lane, imaginary_of_common);
        rotate_block(lanes, lane, row, factors, turns);
        return true_lanes<Set>(turns);
    }

    [[gnu::always_inline]] static inline auto is_negligible(Register p, Register q,
                                                            Register magnitude, double tolerance) {
        const Register root_p = Set::root(absolute<Set>(p));
        const Register root_q = Set::root(absolute<Set>(q));
        // NaN as std::max and std::min choose.
        const Register ratio =
            magnitude / Set::larger(root_q, root_p) / Set::smaller(root_q, root_p);
        return ~(root_p == 0) & ~(root_q == 0) & (ratio <= tolerance);
    }

    /// Applies the rotations to the common row and to row `row`, whose elements left of the
    /// diagonal stand in its column.
    [[gnu::always_inline]] static inline void
    rotate_block(RotationLanes& lanes, Index lane, Index row, const Factors& factors, auto turns) {
        for (Index column = 0; column < row; ++column) {
            double* const element = lanes.block_real[column][row] + lane;
            const Vector v = Vector::load(element, imaginary_of_block).conjugated();
            rotate_common(lanes, column, lane, factors, turns, v)
                .conjugated()
                .store(element, imaginary_of_block);
        }
        for (Index column = row + 1; column < rotation_block; ++column) {
            double* const element = lanes.block_real[row][column] + lane;
            const Vector v = Vector::load(element, imaginary_of_block);
            rotate_common(lanes, column, lane, factors, turns, v)
                .store(element, imaginary_of_block);
        }
    }

    /// Returns what becomes of `v` beside the element of the common row.
    [[gnu::always_inline]] static inline Vector rotate_common(RotationLanes& lanes, Index column,
                                                              Index lane, const Factors& factors,
                                                              auto turns, Vector v) {
        const Vector u = load_common(lanes, column, lane);
        const auto rotated = Arithmetic::apply(factors, u, v);
        rotated.common.where(turns, u).store(lanes.common_real[column] + lane, imaginary_of_common);
        return rotated.of_row.where(turns, v);
    }

    static Vector load_common(const RotationLanes& lanes, Index column, Index lane) {
        return Vector::load(lanes.common_real[column] + lane, imaginary_of_common);
    }

    static Vector zero() { return constant(0); }
    static Vector one() { return constant(1); }
    static Vector constant(double value) {
        if constexpr (IsComplex) {
            return {Set::broadcast(value), Set::zero()};
        } else {
            return {Set::broadcast(value)};
        }
    }

    static Register magnitude(Vector value) {
        if constexpr (IsComplex) {
            return hypotenuse<Set>(value.real, value.imag);
        } else {
            return absolute<Set>(value.real);
        }
    }
    static Register largest_part(Vector value) {
        if constexpr (IsComplex) {
            return Set::larger(absolute<Set>(value.imag), absolute<Set>(value.real));
        } else {
            return absolute<Set>(value.real);
        }
    }
    static Vector divided(Vector value, Register divisor) {
        if constexpr (IsComplex) {
            return {value.real / divisor, value.imag / divisor};
        } else {
            return {value.real / divisor};
        }
    }
    /// The rotation with the sine of this phase and size.
    static Factors made(Register c, Vector phase, Register size) {
        if constexpr (IsComplex) {
            return {c, phase.real * size, phase.imag * size};
        } else {
            return {c, phase.real * size, Set::zero()};
        }
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
