// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrices for tests of eigensolvers, and how well a pair or a set of values fits one. Errors are
// measured in long double, whose range and precision exceed those of the solvers.

#include "backend/cpu/lu/lu_problems.h"

#include <algorithm>
#include <functional>
#include <numbers>
#include <numeric>

namespace Tessaline::Testing {

using WideComplex = std::complex<long double>;

inline constexpr std::size_t eigen_orders[] = {0, 1, 2, 3, 5, 10, 33, 64};
inline constexpr double unit = std::numeric_limits<double>::epsilon();

template <typename C>
C adjoint_of(C value) {
    if constexpr (is_complex_element<C>) {
        return std::conj(value);
    } else {
        return value;
    }
}

/// A wide value in type C, which takes the real part where it is real.
template <typename C>
C narrowed(WideComplex value) {
    if constexpr (is_complex_element<C>) {
        return C(value);
    } else {
        return static_cast<C>(value.real());
    }
}

/// The matrix with the elements make(i, j).
template <typename C, typename Make>
SquareMatrix<C> filled(std::size_t n, const Make& make) {
    SquareMatrix<C> matrix{n, std::vector<C>(n * n)};
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            matrix(i, j) = C(make(i, j));
        }
    }
    return matrix;
}

template <typename C>
SquareMatrix<C> random_matrix(std::size_t n, CounterRandom& random) {
    return {n, random_elements<C>(n * n, [&] { return uniform(random); })};
}

template <typename C>
SquareMatrix<C> diagonal_matrix(const std::vector<C>& diagonal) {
    return filled<C>(diagonal.size(),
                     [&](std::size_t i, std::size_t j) { return i == j ? diagonal[i] : C(0); });
}

/// The lower triangle of a matrix and its adjoint, with the real parts of the diagonal.
template <typename C>
SquareMatrix<C> hermitian(const SquareMatrix<C>& A) {
    return filled<C>(A.order, [&](std::size_t i, std::size_t j) {
        return i == j ? C(std::real(A(i, i))) : i > j ? A(i, j) : adjoint_of(A(j, i));
    });
}

/// Unitary to rounding: a product of random Householder reflections.
template <typename C>
SquareMatrix<C> random_unitary(std::size_t n, CounterRandom& random) {
    auto Q = diagonal_matrix(std::vector<C>(n, 1));
    for (std::size_t reflection = 0; reflection < n; ++reflection) {
        const auto v = random_elements<C>(n, [&] { return uniform(random); });
        double squared = 0;
        for (const C element : v) {
            squared += std::norm(element);
        }
        for (std::size_t i = 0; i < n; ++i) {
            C along = 0;
            for (std::size_t j = 0; j < n; ++j) {
                along += Q(i, j) * v[j];
            }
            for (std::size_t j = 0; j < n; ++j) {
                Q(i, j) -= 2 / squared * along * adjoint_of(v[j]);
            }
        }
    }
    return Q;
}

/// Q A Q*, rounded once.
template <typename C>
SquareMatrix<C> in_coordinates(const SquareMatrix<C>& Q, const SquareMatrix<C>& A) {
    const std::size_t n = A.order;
    const auto half = filled<WideComplex>(n, [&](std::size_t i, std::size_t j) {
        WideComplex sum = 0;
        for (std::size_t k = 0; k < n; ++k) {
            sum += WideComplex(Q(i, k)) * WideComplex(A(k, j));
        }
        return sum;
    });
    return filled<C>(n, [&](std::size_t i, std::size_t j) {
        WideComplex sum = 0;
        for (std::size_t k = 0; k < n; ++k) {
            sum += half(i, k) * std::conj(WideComplex(Q(j, k)));
        }
        return narrowed<C>(sum);
    });
}

/// Twos on the diagonal and ones of the opposite sign beside it.
template <typename C>
SquareMatrix<C> second_difference(std::size_t n) {
    return filled<C>(n, [](std::size_t i, std::size_t j) {
        return i == j ? 2.0 : i + 1 == j || j + 1 == i ? -1.0 : 0.0;
    });
}

/// Of a vector, or of Frobenius for the elements of a matrix.
template <typename C>
long double euclidean_norm(const std::vector<C>& elements) {
    long double squared = 0;
    for (const C element : elements) {
        squared += std::norm(WideComplex(element));
    }
    return std::sqrt(squared);
}

/// The norm of A v - lambda v over that of v times the sum of |lambda| and the norm of A.
template <typename C, typename V>
double pair_residual(const SquareMatrix<C>& A, WideComplex lambda, const std::vector<V>& v) {
    std::vector<WideComplex> difference(A.order);
    for (std::size_t i = 0; i < A.order; ++i) {
        difference[i] = -lambda * WideComplex(v[i]);
        for (std::size_t j = 0; j < A.order; ++j) {
            difference[i] += WideComplex(A(i, j)) * WideComplex(v[j]);
        }
    }
    const long double scale = (std::abs(lambda) + euclidean_norm(A.elements)) * euclidean_norm(v);
    const long double norm = euclidean_norm(difference);
    return static_cast<double>(scale == 0 ? norm : norm / scale);
}

/// The largest element of V* V - 1, for the matrix of order n with these columns; or of V V* - 1,
/// for that with these rows.
template <typename C>
double distance_from_orthonormal(const std::vector<C>& lines, std::size_t n) {
    long double largest = 0;
    for (std::size_t j = 0; j < n; ++j) {
        for (std::size_t k = 0; k <= j; ++k) {
            WideComplex inner = j == k ? -1 : 0;
            for (std::size_t i = 0; i < n; ++i) {
                inner += std::conj(WideComplex(lines[j * n + i])) * WideComplex(lines[k * n + i]);
            }
            largest = std::max(largest, std::abs(inner));
        }
    }
    return static_cast<double>(largest);
}

} // namespace Tessaline::Testing
