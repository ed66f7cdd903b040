// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plane rotations of rows. A few vectors of the common row stay in registers while the rows of a
// block pass by: each of these is read and written once.

#include "backend/cpu/simd/kernels/rotation_arithmetic.h"
#include "backend/cpu/simd/kernels/rotation_search.h"

#include <utility>

namespace Tessaline::SimdKernels {

namespace {

template <typename Set, bool IsComplex>
class Rotations {
    using Register = typename Set::Register;
    static constexpr Index lanes = Set::lanes;

    using Arithmetic = RotationArithmetic<Set, IsComplex>;
    using Vector = typename Arithmetic::Vector;
    using Factors = typename Arithmetic::Factors;
    using Pair = typename Arithmetic::Pair;

  public:
    static void rotate(double* common, double* block, const PlanarShape& shape,
                       const BlockRotations& rotations, Index columns) {
        constexpr Index wide = 4 * lanes;
        Index column = 0;
        for (; column + wide <= columns; column += wide) {
            rotate_vectors<4>(common + column, shape.imaginary, block + column, shape, rotations);
        }
        for (; column < columns; column += lanes) {
            rotate_vectors<1>(common + column, shape.imaginary, block + column, shape, rotations);
        }
    }

    static void rotate_adjoint(double* common, double* adjoint, const PlanarShape& shape,
                               const BlockRotations& rotations) {
        if constexpr (lanes == rotation_block) {
            if (rotations.rows == (1U << rotation_block) - 1) {
                rotate_registers(common, adjoint, shape, rotations);
                return;
            }
        }
        constexpr PlanarShape compact{rotation_block, rotation_block * rotation_block};
        alignas(64) double rows[(IsComplex ? 2 : 1) * compact.imaginary];
        transpose(adjoint, shape, rows, compact);
        for (Index column = 0; column < rotation_block; column += lanes) {
            rotate_vectors<1>(common + column, shape.imaginary, rows + column, compact, rotations);
        }
        transpose(rows, compact, adjoint, shape);
    }

    static void rotate_leading(double* common, double* block, const PlanarShape& shape,
                               const BlockRotations& rotations, Index columns) {
        const Index whole = columns / lanes * lanes;
        rotate(common, block, shape, rotations, whole);
        if (whole != columns) {
            rotate_lanes(common + whole, block + whole, shape, rotations, columns - whole);
        }
    }

  private:
    /// rotate() for the first lanes of one vector.
    static void rotate_lanes(double* common, double* block, const PlanarShape& shape,
                             const BlockRotations& rotations, Index taken) {
        static constexpr double places[] = {0, 1, 2, 3, 4, 5, 6, 7};
        const auto takes = Set::load(places) < Set::broadcast(static_cast<double>(taken));
        Vector u = Vector::load(common, shape.imaginary);
        for (unsigned rows = rotations.rows; rows != 0; rows &= rows - 1) {
            const auto row = static_cast<Index>(__builtin_ctz(rows));
            double* const element = block + row * shape.stride;
            const Vector v = Vector::load(element, shape.imaginary);
            const Pair rotated = Arithmetic::apply(Factors(rotations.of_row[row]), u, v);
            u = rotated.common.where(takes, u);
            rotated.of_row.where(takes, v).store(element, shape.imaginary);
        }
        u.store(common, shape.imaginary);
    }

    /// rotate_adjoint() where every row is rotated and each is one vector.
    static void rotate_registers(double* common, double* adjoint, const PlanarShape& shape,
                                 const BlockRotations& rotations) {
        Vector v[lanes];
        for_places<lanes>([&](auto i) {
            v[i.value] = Vector::load(adjoint + i.value * shape.stride, shape.imaginary);
        });
        transpose_registers(v);
        Vector u = Vector::load(common, shape.imaginary);
        for_places<lanes>([&](auto i) {
            const Pair rotated =
                Arithmetic::apply(Factors(rotations.of_row[i.value]), u, v[i.value]);
            u = rotated.common;
            v[i.value] = rotated.of_row;
        });
        u.store(common, shape.imaginary);
        transpose_registers(v);
        for_places<lanes>(
            [&](auto i) { v[i.value].store(adjoint + i.value * shape.stride, shape.imaginary); });
    }

    template <Index Vectors>
    static void rotate_vectors(double* common, Index common_imaginary, double* block,
                               const PlanarShape& shape, const BlockRotations& rotations) {
        const auto [stride, imaginary] = shape;
        Vector u[Vectors];
        for_places<Vectors>(
            [&](auto i) { u[i.value] = Vector::load(common + i.value * lanes, common_imaginary); });
        for (unsigned rows = rotations.rows; rows != 0; rows &= rows - 1) {
            const auto row = static_cast<Index>(__builtin_ctz(rows));
            const Factors factors(rotations.of_row[row]);
            double* const elements = block + row * stride;
            for_places<Vectors>([&, imag = imaginary](auto i) {
                const Vector v = Vector::load(elements + i.value * lanes, imag);
                const Pair rotated = Arithmetic::apply(factors, u[i.value], v);
                u[i.value] = rotated.common;
                rotated.of_row.store(elements + i.value * lanes, imag);
            });
        }
        for_places<Vectors>(
            [&](auto i) { u[i.value].store(common + i.value * lanes, common_imaginary); });
    }

    /// The conjugate transpose of one block.
    static void transpose(const double* from, const PlanarShape& from_shape, double* to,
                          const PlanarShape& to_shape) {
        for (Index i = 0; i < rotation_block; i += lanes) {
            for (Index j = 0; j < rotation_block; j += lanes) {
                Vector rows[lanes];
                for_places<lanes>([&](auto k) {
                    rows[k.value] = Vector::load(from + (i + k.value) * from_shape.stride + j,
                                                 from_shape.imaginary);
                });
                transpose_registers(rows);
                for_places<lanes>([&](auto k) {
                    rows[k.value].store(to + (j + k.value) * to_shape.stride + i,
                                        to_shape.imaginary);
                });
            }
        }
    }

    /// The conjugate transpose of as many vectors as each has lanes.
    [[gnu::always_inline]] static inline void transpose_registers(Vector (&rows)[lanes]) {
        exchange<1>(rows);
        exchange<2>(rows);
        if constexpr (lanes >= 8) {
            exchange<4>(rows);
        }
        if constexpr (IsComplex) {
            for_places<lanes>([&](auto i) { rows[i.value].imag = -rows[i.value].imag; });
        }
    }

    /// Exchanges the squares of `Size` elements beside the diagonal in each square of twice that.
    template <int Size>
    [[gnu::always_inline]] static inline void exchange(Vector (&rows)[lanes]) {
        constexpr auto every_lane = std::make_integer_sequence<int, static_cast<int>(lanes)>{};
        for_places<lanes>([&](auto i) {
            if constexpr ((i.value & Size) == 0) {
                Vector& upper = rows[i.value];
                Vector& lower = rows[i.value + Size];
                exchange<Size>(upper.real, lower.real, every_lane);
                if constexpr (IsComplex) {
                    exchange<Size>(upper.imag, lower.imag, every_lane);
                }
            }
        });
    }
    template <int Size, int... Lane>
    [[gnu::always_inline]] static inline void exchange(Register& upper, Register& lower,
                                                       std::integer_sequence<int, Lane...>) {
        constexpr int width = lanes;
        const Register old = upper;
        upper = __builtin_shufflevector(old, lower,
                                        ((Lane & Size) != 0 ? width + Lane - Size : Lane)...);
        lower = __builtin_shufflevector(old, lower,
                                        ((Lane & Size) != 0 ? width + Lane : Lane + Size)...);
    }
};

template <typename Set, typename C, bool IsComplex>
constexpr RotationKernels<C> make_rotation_kernels() {
    return {
        .rotate = Rotations<Set, IsComplex>::rotate,
        .rotate_adjoint = Rotations<Set, IsComplex>::rotate_adjoint,
        .rotate_leading = Rotations<Set, IsComplex>::rotate_leading,
        .find_rotations = RotationSearch<Set, IsComplex>::find_rotations,
    };
}

template <typename Set>
constexpr RotationTable make_rotation_table() {
    return {make_rotation_kernels<Set, double, false>(),
            make_rotation_kernels<Set, std::complex<double>, true>()};
}

} // namespace

} // namespace Tessaline::SimdKernels
