// SPDX-License-Identifier: Apache-2.0
#pragma once

// Determinants in double precision that stay truthful at the ends of the range: sign and logarithm
// of any square matrix by elimination, and the logarithm alone of a positive definite one by
// Cholesky factorisation. What the range cannot hold is an error with a reason, never a zero or an
// infinity. Matrices are row-major of `order` rows and are overwritten; C is double or
// std::complex<double>. Elements are finite.

#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <utility>

namespace Tessaline::CpuStructured {

/// Multiplies a matrix that has subnormal entries by an even power of two, so that elimination
/// keeps their digits, and returns the natural logarithm of the determinant's factor; 0 for a
/// matrix that needs no scaling, and a diagonal one never does. Raises SolverError (reason
/// solver_failure, `operation` named) where the largest entry would overflow.
template <typename C>
double normalise_determinant(std::span<C> data, std::size_t order, const char* operation);

/// The sign of det A (its phase for complex C) and log|det A|; 0 and minus infinity for a singular
/// matrix. Raises std::runtime_error where elimination overflows and SolverError (reason
/// solver_failure) where a multiplier underflows or the scaling of normalise_determinant fails.
template <typename C>
std::pair<C, double> signed_logdet(std::span<C> data, std::size_t order);

/// log(det A) of a positive definite matrix, whose lower triangle counts, by Cholesky
/// factorisation. Empty for a pivot so close to zero that rounding decides its sign. Raises
/// SolverError (reason solver_failure) for a pivot that is not finite and where the scaling of
/// normalise_determinant fails.
template <typename C>
std::optional<double> rooted_positive_definite_logdet(std::span<C> data, std::size_t order);

/// The same without square roots, by symmetric elimination that rounds each entry of a Schur
/// complement once. Far slower, for what the rooted way cannot decide. Raises SolverError (reason
/// solver_failure) for a pivot that is not positive, for an entry that cannot be scaled exactly by
/// the pivot's power of two and where the scaling of normalise_determinant fails.
template <typename C>
double unrooted_positive_definite_logdet(std::span<C> data, std::size_t order);

/// log(det A) of a positive definite matrix, the rooted way where that decides and else the
/// unrooted one. `reload` refills `data` with the original matrix in between. Raises what they do.
template <typename C, typename Reload>
double positive_definite_logdet(std::span<C> data, std::size_t order, Reload&& reload) {
    if (const auto logarithm = rooted_positive_definite_logdet(data, order)) {
        return *logarithm;
    }
    std::forward<Reload>(reload)();
    return unrooted_positive_definite_logdet(data, order);
}

#define TESSALINE_DECLARE_DETERMINANTS(C)                                                          \
    extern template double normalise_determinant(std::span<C>, std::size_t, const char*);          \
    extern template std::pair<C, double> signed_logdet(std::span<C>, std::size_t);                 \
    extern template std::optional<double> rooted_positive_definite_logdet(std::span<C>,            \
                                                                          std::size_t);            \
    extern template double unrooted_positive_definite_logdet(std::span<C>, std::size_t);
TESSALINE_DECLARE_DETERMINANTS(double)
TESSALINE_DECLARE_DETERMINANTS(std::complex<double>)
#undef TESSALINE_DECLARE_DETERMINANTS

} // namespace Tessaline::CpuStructured
