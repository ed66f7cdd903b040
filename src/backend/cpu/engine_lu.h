// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factorisation, solve and log-determinant of complex64 as the SIMD engine defines them: a plain
// singularity threshold, no test of finiteness, the library's complex division. The engine with
// fused operations fuses the second product of each part of a complex product.
//
// Every unit that includes this gets its own copy of the code, compiled for its instruction set:
// the functions are static and use no inline function of the standard library, or the linker would
// merge copies across instruction sets.

#include "backend/cpu/lu_failures.h"
#include "tessaline/storage/kernel_views.h"

#include <complex>

namespace Tessaline::EngineLu {

/// The built-in complex type, laid out like std::complex<float>. Its products recover infinities
/// as Annex G of C99 tells, and its quotients are the library's.
__extension__ using ComplexFloat = _Complex float;

/// Below this squared magnitude a pivot counts as zero.
constexpr float singular_threshold = 0x1p-23F;

/// Temporary storage, allocated outside the units for one instruction set.
class Scratch {
  public:
    explicit Scratch(std::uint64_t count);
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();

    ComplexFloat* const data; ///< `count` elements, not initialised
};

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

template <bool Fused>
static ComplexFloat product(ComplexFloat a, ComplexFloat b) {
    if constexpr (Fused) {
        const float real = __builtin_fmaf(-__imag__ a, __imag__ b, __real__ a * __real__ b);
        const float imag = __builtin_fmaf(__imag__ a, __real__ b, __real__ a * __imag__ b);
        if (real == real || imag == imag) {
            return make_complex(real, imag);
        }
    }
    return a * b;
}

static inline float squared_magnitude(ComplexFloat value) {
    return __real__ value * __real__ value + __imag__ value * __imag__ value;
}

static inline bool is_zero(ComplexFloat value) {
    return __real__ value == 0 && __imag__ value == 0;
}

static inline void swap_elements(ComplexFloat& a, ComplexFloat& b) {
    const ComplexFloat former = a;
    a = b;
    b = former;
}

/// The row of column k's largest element on or below the diagonal, the upper one of equals.
static inline std::uint64_t find_pivot_row(const ComplexFloat* column, std::uint64_t k,
                                           std::uint64_t order) {
    float best = squared_magnitude(column[k]);
    std::uint64_t best_row = k;
    for (std::uint64_t row = k + 1; row < order; ++row) {
        const float candidate = squared_magnitude(column[row]);
        if (candidate > best) {
            best = candidate;
            best_row = row;
        }
    }
    if (!(best > singular_threshold)) {
        LuFailures::engine_singular();
    }
    return best_row;
}

/// Factors a column-major matrix into P A = L U in place, with the pivots and the swap count of
/// CpuFallback::lu_factor. Raises SolverError (reason singular) for a column whose largest squared
/// magnitude is not above the threshold; the matrix is then partly eliminated.
template <bool Fused, typename P>
static void lu_decomp(LuDecompView<P, std::complex<float>> lu) {
    static_assert(sizeof(P) == sizeof(std::int64_t), "numbers every row");
    *lu.swap_count = 0;
    const std::uint64_t order = lu.size;
    ComplexFloat* factors = built_in(lu.factors);
    for (std::uint64_t k = 0; k < order; ++k) {
        ComplexFloat* pivot_column = factors + k * order;
        const std::uint64_t pivot_row = find_pivot_row(pivot_column, k, order);
        lu.pivots[k] = static_cast<P>(pivot_row + 1);
        if (pivot_row != k) {
            for (std::uint64_t column = 0; column < order; ++column) {
                swap_elements(factors[column * order + k], factors[column * order + pivot_row]);
            }
            ++*lu.swap_count;
        }
        for (std::uint64_t row = k + 1; row < order; ++row) {
            pivot_column[row] /= pivot_column[k];
        }
        for (std::uint64_t column = k + 1; column < order; ++column) {
            ComplexFloat* elements = factors + column * order;
            for (std::uint64_t row = k + 1; row < order; ++row) {
                elements[row] -= product<Fused>(pivot_column[row], elements[k]);
            }
        }
    }
}

/// Solves L U x = b in place, terms in increasing column.
template <bool Fused>
static void substitute(const ComplexFloat* factors, ComplexFloat* b, std::uint64_t order) {
    for (std::uint64_t column = 0; column < order; ++column) {
        for (std::uint64_t row = column + 1; row < order; ++row) {
            b[row] -= product<Fused>(factors[column * order + row], b[column]);
        }
    }
    for (std::uint64_t row = order; row-- > 0;) {
        ComplexFloat value = b[row];
        for (std::uint64_t column = row + 1; column < order; ++column) {
            value -= product<Fused>(factors[column * order + row], b[column]);
        }
        const ComplexFloat diagonal = factors[row * order + row];
        if (is_zero(diagonal)) {
            LuFailures::singular(row);
        }
        b[row] = value / diagonal;
    }
}

/// Solves A x = b from the factors of A, x in the place of b. Raises std::invalid_argument for a
/// right-hand side of another size and for a pivot that numbers no row, SolverError (reason
/// singular) for a zero on the diagonal of U; b is then unchanged.
template <bool Fused, typename P>
static void solve(LuDecompView<const P, const std::complex<float>> lu,
                  DenseComplexSplitVectorView<float> b) {
    const std::uint64_t order = lu.size;
    if (b.size != order) {
        LuFailures::engine_incompatible_rhs();
    }
    const Scratch scratch(order);
    ComplexFloat* x = scratch.data;
    for (std::uint64_t i = 0; i < order; ++i) {
        x[i] = make_complex(b.real[i], b.imag[i]);
    }
    for (std::uint64_t i = 0; i < order; ++i) {
        if (lu.pivots[i] < 1 || static_cast<std::uint64_t>(lu.pivots[i]) > order) {
            LuFailures::invalid_pivot();
        }
        swap_elements(x[i], x[lu.pivots[i] - 1]);
    }
    substitute<Fused>(built_in(lu.factors), x, order);
    for (std::uint64_t i = 0; i < order; ++i) {
        b.real[i] = __real__ x[i];
        b.imag[i] = __imag__ x[i];
    }
}

/// log(det A) from the factors of A: the sum of the logarithms along the diagonal of U, plus i pi
/// for an odd number of swaps. The imaginary part is not folded to the principal range. No product
/// occurs, so both engines have the same bits.
template <typename P>
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
    *out.real = real;
    *out.imag = *lu.swap_count % 2 != 0 ? imag + pi : imag;
}

} // namespace Tessaline::EngineLu
