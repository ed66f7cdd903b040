// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plane rotations of rows. A few vectors of the common row stay in registers while the rows of a
// block pass by: each of these is read and written once.

#include "backend/cpu/simd/simd_arithmetic.h"
#include "backend/cpu/simd/simd_rotation_kernels.h"

#include <type_traits>
#include <utility>

namespace Tessaline::SimdKernels {

namespace {

template <typename Set, bool IsComplex>
class Rotations {
    using Register = typename Set::Register;
    __extension__ using BuiltIn = _Complex double;
    static constexpr Index lanes = Set::lanes;

    struct RealVector {
        Register real;

        static RealVector load(const double* from, Index) { return {Set::load(from)}; }
        void store(double* to, Index) const { Set::store(to, real); }
    };
    struct ComplexVector {
        Register real;
        Register imag;

        static ComplexVector load(const double* from, Index imaginary) {
            return {Set::load(from), Set::load(from + imaginary)};
        }
        void store(double* to, Index imaginary) const {
            Set::store(to, real);
            Set::store(to + imaginary, imag);
        }
    };
    using Vector = std::conditional_t<IsComplex, ComplexVector, RealVector>;

    /// A rotation in all lanes.
    struct Factors {
        explicit Factors(const RowRotation& rotation)
            : c(Set::broadcast(rotation.c)),
              s_real(Set::broadcast(rotation.s_real)),
              s_imag(Set::broadcast(rotation.s_imag)) {}

        Register c;
        Register s_real;
        Register s_imag;
    };

    struct Pair {
        Vector common;
        Vector of_row;
    };

  public:
    static void rotate(double* common, double* block, const PlanarShape& shape,
                       const RowRotation* rotations, Index count, Index columns) {
        constexpr Index wide = 4 * lanes;
        Index column = 0;
        for (; column + wide <= columns; column += wide) {
            rotate_vectors<4>(common + column, shape.imaginary, block + column, shape, rotations,
                              count);
        }
        for (; column < columns; column += lanes) {
            rotate_vectors<1>(common + column, shape.imaginary, block + column, shape, rotations,
                              count);
        }
    }

    static void rotate_adjoint(double* common, double* adjoint, const PlanarShape& shape,
                               const RowRotation* rotations, Index count) {
        if constexpr (lanes == rotation_block) {
            if (count == rotation_block) {
                rotate_registers(common, adjoint, shape, rotations);
                return;
            }
        }
        constexpr PlanarShape compact{rotation_block, rotation_block * rotation_block};
        alignas(64) double rows[(IsComplex ? 2 : 1) * compact.imaginary];
        transpose(adjoint, shape, rows, compact);
        for (Index column = 0; column < rotation_block; column += lanes) {
            rotate_vectors<1>(common + column, shape.imaginary, rows + column, compact, rotations,
                              count);
        }
        transpose(rows, compact, adjoint, shape);
    }

  private:
    /// rotate_adjoint() where every row is rotated and each is one vector.
    static void rotate_registers(double* common, double* adjoint, const PlanarShape& shape,
                                 const RowRotation* rotations) {
        Vector v[lanes];
        for_places<lanes>([&](auto i) {
            v[i.value] = Vector::load(adjoint + i.value * shape.stride, shape.imaginary);
        });
        transpose_registers(v);
        Vector u = Vector::load(common, shape.imaginary);
        for_places<lanes>([&](auto i) {
            const Pair rotated = apply(Factors(rotations[i.value]), u, v[i.value]);
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
                               const PlanarShape& shape, const RowRotation* rotations,
                               Index count) {
        const auto [stride, imaginary] = shape;
        Vector u[Vectors];
        for_places<Vectors>(
            [&](auto i) { u[i.value] = Vector::load(common + i.value * lanes, common_imaginary); });
        for (Index k = 0; k < count; ++k) {
            const Factors factors(rotations[k]);
            double* const row = block + rotations[k].row * stride;
            for_places<Vectors>([&, imag = imaginary](auto i) {
                const Vector v = Vector::load(row + i.value * lanes, imag);
                const Pair rotated = apply(factors, u[i.value], v);
                u[i.value] = rotated.common;
                rotated.of_row.store(row + i.value * lanes, imag);
            });
        }
        for_places<Vectors>(
            [&](auto i) { u[i.value].store(common + i.value * lanes, common_imaginary); });
    }

    [[gnu::always_inline]] static inline Pair apply(const Factors& factors, Vector u, Vector v) {
        const Register c = factors.c;
        const Register s = factors.s_real;
        if constexpr (IsComplex) {
            const Register t = factors.s_imag;
            const Pair rotated{
                {c * u.real - (v.real * s + v.imag * t), c * u.imag - (v.imag * s - v.real * t)},
                {c * v.real + (u.real * s - u.imag * t), c * v.imag + (u.real * t + u.imag * s)}};
            // Where both parts of a product are NaN, so is this sum.
            if (Set::nan_lanes(rotated.common.real + rotated.of_row.real) != 0) [[unlikely]] {
                return recovered({u, v}, factors.c[0], element(s[0], t[0]));
            }
            return rotated;
        } else {
            return {{c * u.real - v.real * s}, {c * v.real + u.real * s}};
        }
    }

    static BuiltIn element(double real, double imag) {
        BuiltIn value;
        __real__ value = real;
        __imag__ value = imag;
        return value;
    }

    /// The rotation of each lane by products that recover infinities.
    [[gnu::noinline]] static Pair recovered(Pair pair, double c, BuiltIn s) {
        for (Index lane = 0; lane < lanes; ++lane) {
            const BuiltIn u = element(pair.common.real[lane], pair.common.imag[lane]);
            const BuiltIn v = element(pair.of_row.real[lane], pair.of_row.imag[lane]);
            const BuiltIn of_u = v * ~s;
            const BuiltIn of_v = u * s;
            pair.common.real[lane] = c * __real__ u - __real__ of_u;
            pair.common.imag[lane] = c * __imag__ u - __imag__ of_u;
            pair.of_row.real[lane] = c * __real__ v + __real__ of_v;
            pair.of_row.imag[lane] = c * __imag__ v + __imag__ of_v;
        }
        return pair;
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
        if constexpr (lanes >= 4) {
            exchange<2>(rows);
        }
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

template <typename Set>
constexpr RotationTable make_rotation_table() {
    return {{Rotations<Set, false>::rotate, Rotations<Set, false>::rotate_adjoint},
            {Rotations<Set, true>::rotate, Rotations<Set, true>::rotate_adjoint}};
}

} // namespace

} // namespace Tessaline::SimdKernels
