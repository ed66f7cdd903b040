// SPDX-License-Identifier: Apache-2.0
#pragma once

// Solve and log-determinant of complex64 as the SIMD engine defines them, with the library's
// complex division. The engine with fused operations fuses the second product of each part of a
// complex product. For the factorisation see engine_factor.h.
//
// Every unit that includes this gets its own copy of the code, compiled for its instruction set:
// the functions are static and use no inline function of the standard library, or the linker would
// merge copies across instruction sets.

#include "backend/cpu/simd/kernels/complex_triangle.h"
#include "backend/cpu/simd/plain/lu_failures.h"
#include "backend/cpu/simd/plain/scratch_memory.h"
#include "tessaline/storage/kernel_views.h"

#include <complex>

namespace Tessaline::EngineLu {

/// Its quotients are the library's.
using ComplexFloat = SimdKernels::BuiltInComplex<float>::Type;

/// The elements that a std::complex pointer points to.
template <typename Complex>
static auto built_in(Complex* elements) {
    using Element = std::conditional_t<std::is_const_v<Complex>, const ComplexFloat, ComplexFloat>;
    return reinterpret_cast<Element*>(elements);
}

static inline ComplexFloat make_complex(float real, float imag) {
    ComplexFloat value;
    __real__ value = real;
    __imag__ value = imag;
    return value;
}

static inline bool is_zero(ComplexFloat value) {
    return __real__ value == 0 && __imag__ value == 0;
}

static inline void swap_elements(ComplexFloat& a, ComplexFloat& b) {
    const ComplexFloat former = a;
    a = b;
    b = former;
}

/// Solves L U x = b in place, terms in increasing column. Set says whether products fuse.
template <typename Set>
static void substitute(const std::complex<float>* elements, ComplexFloat* b, std::uint64_t order) {
    SimdKernels::ComplexTriangle<Set>::substitute_forward(
        elements, order, reinterpret_cast<std::complex<float>*>(b), order);
    SimdKernels::BackwardSubstitution<SimdKernels::ComplexRows<Set>>::solve(
        {elements, order, order}, reinterpret_cast<std::complex<float>*>(b),
        [](ComplexFloat value, ComplexFloat diagonal, std::uint64_t row) {
            if (is_zero(diagonal)) {
                LuFailures::singular(row);
            }
            return value / diagonal;
        });
}

/// Solves A x = b from the factors of A, x in the place of b. Raises std::invalid_argument for a
/// right-hand side of another size and for a pivot that numbers no row, SolverError (reason
/// singular) for a zero on the diagonal of U; b is then unchanged.
template <typename Set, typename P>
static void solve(LuDecompView<const P, const std::complex<float>> lu,
                  DenseComplexSplitVectorView<float> b) {
    const std::uint64_t order = lu.size;
    if (b.size != order) {
        LuFailures::engine_incompatible_rhs();
    }
    const Scratch<float> scratch(2 * order);
    auto* const x = reinterpret_cast<ComplexFloat*>(scratch.data());
    for (std::uint64_t i = 0; i < order; ++i) {
        x[i] = make_complex(b.real[i], b.imag[i]);
    }
    for (std::uint64_t i = 0; i < order; ++i) {
        if (lu.pivots[i] < 1 || static_cast<std::uint64_t>(lu.pivots[i]) > order) {
            LuFailures::invalid_pivot();
        }
        swap_elements(x[i], x[lu.pivots[i] - 1]);
    }
    substitute<Set>(lu.factors, x, order);
    for (std::uint64_t i = 0; i < order; ++i) {
        b.real[i] = __real__ x[i];
        b.imag[i] = __imag__ x[i];
    }
}

/// log(det A) from the factors of A: the sum of the logarithms along the diagonal of U, plus i pi
/// for an odd number of swaps. The imaginary part is not folded to the principal range. No product
/// occurs, so both engines have the same bits. Set says which NaN is stored.
template <typename Set, typename P>
static void logdet(LuDecompView<const P, const std::complex<float>> lu,
                   ComplexScalarView<float> out) {
    constexpr float pi = 3.14159265358979323846F;
    float real = 0;
    float imag = 0;
    for (std::uint64_t i = 0; i < lu.size; ++i) {
        const ComplexFloat logarithm = __builtin_clogf(built_in(lu.factors)[i * lu.size + i]);
        real += __real__ logarithm;
        imag += __imag__ logarithm;
    }
    *out.real = SimdKernels::as_result<Set>(real);
    *out.imag = SimdKernels::as_result<Set>(*lu.swap_count % 2 != 0 ? imag + pi : imag);
}

} // namespace Tessaline::EngineLu
