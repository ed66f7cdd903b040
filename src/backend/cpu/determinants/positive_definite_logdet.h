// SPDX-License-Identifier: Apache-2.0
#pragma once

// The logarithm of the determinant of a positive definite matrix, by Cholesky factorisation in
// double precision that stays truthful at the ends of the range: what that cannot hold is an error
// with a reason, never a zero or an infinity. Matrices are row-major of `order` rows and are
// overwritten; C is double or std::complex<double>. Elements are finite.

#include <complex>
#include <cstddef>
#include <optional>
#include <span>
#include <utility>

namespace Tessaline::CpuStructured {

/// log(det A) of a positive definite matrix, whose lower triangle counts, by Cholesky
/// factorisation. Empty for a pivot so close to zero that rounding decides its sign. Raises
/// SolverError (reason solver_failure) for a pivot that is not finite and where the scaling of
/// normalise_determinant fails.
template <typename C>
std::optional<double> rooted_positive_definite_logdet(std::span<C> data, std::size_t order);

/// log(det A) of a positive definite matrix without square roots, by symmetric elimination that
/// rounds each entry of a Schur complement once. Far slower, for what the rooted way cannot decide.
/// Raises SolverError (reason solver_failure) for a pivot that is not positive, for an entry that
/// cannot be scaled exactly by the pivot's power of two and where the scaling of
/// normalise_determinant fails.
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

} // namespace Tessaline::CpuStructured
