// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plane rotations in vectors of doubles: real ones, and complex ones whose products recover
// infinities.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/tables/built_in_complex.h"
#include "backend/cpu/simd/tables/rotation_kernels.h"

#include <type_traits>

namespace Tessaline::SimdKernels {

namespace {

template <typename Set, bool IsComplex>
class RotationArithmetic {
    using Register = typename Set::Register;
    using BuiltIn = BuiltInComplex<double>::Type;

  public:
    struct RealVector {
        Register real;

        static RealVector load(const double* from, Index) { return {Set::load(from)}; }
        void store(double* to, Index) const { Set::store(to, real); }
        RealVector conjugated() const { return *this; }
        /// In the lanes where `truth` holds; `other` elsewhere.
        template <typename Truth>
        RealVector where(Truth truth, RealVector other) const {
            return {truth ? real : other.real};
        }
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
        ComplexVector conjugated() const { return {real, -imag}; }
        template <typename Truth>
        ComplexVector where(Truth truth, ComplexVector other) const {
            return {truth ? real : other.real, truth ? imag : other.imag};
        }
    };
    using Vector = std::conditional_t<IsComplex, ComplexVector, RealVector>;

    /// One rotation in all lanes, or one a lane.
    struct Factors {
        Factors(Register cosine, Register real, Register imag)
            : c(cosine),
              s_real(real),
              s_imag(imag) {}
        explicit Factors(const Rotation& rotation)
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
                return recovered({u, v}, factors);
            }
            return rotated;
        } else {
            return {{c * u.real - v.real * s}, {c * v.real + u.real * s}};
        }
    }

  private:
    static BuiltIn element(double real, double imag) {
        BuiltIn value;
        __real__ value = real;
        __imag__ value = imag;
        return value;
    }

    /// The rotation of each lane by products that recover infinities.
    [[gnu::noinline]] static Pair recovered(Pair pair, const Factors& factors) {
        for (Index lane = 0; lane < Set::lanes; ++lane) {
            const double c = factors.c[lane];
            const BuiltIn s = element(factors.s_real[lane], factors.s_imag[lane]);
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
};

} // namespace

} // namespace Tessaline::SimdKernels
