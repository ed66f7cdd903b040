// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrices for tests of eigensolvers, and how well a pair or a set of values fits one. Errors are
// measured in long double, whose range and precision exceed those of the solvers.

#include "backend/cpu/random_values.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <numeric>
#include <span>
#include <vector>

namespace Tessaline::Testing {

using Complex = std::complex<double>;
using LongComplex = std::complex<long double>;

/// Row-major.
template <typename C = Complex>
struct SquareMatrix {
    explicit SquareMatrix(std::size_t order) : n(order), elements(order * order) {}

    template <typename Make>
    SquareMatrix(std::size_t order, Make&& make) : SquareMatrix(order) {
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                (*this)(i, j) = C(make(i, j));
            }
        }
    }

    C& operator()(std::size_t i, std::size_t j) { return elements[i * n + j]; }
    C operator()(std::size_t i, std::size_t j) const { return elements[i * n + j]; }

    std::size_t n;
    std::vector<C> elements;
};

template <typename C>
SquareMatrix<C> random_matrix(std::size_t n, CounterRandom& random) {
    return {n, [&](std::size_t, std::size_t) {
                return random_element<C>([&] { return uniform(random); });
            }};
}

/// The lower triangle of `A` and its reflection, with the real parts of the diagonal.
template <typename C>
SquareMatrix<C> hermitian_part(SquareMatrix<C> A) {
    for (std::size_t i = 0; i < A.n; ++i) {
        A(i, i) = std::real(A(i, i));
        for (std::size_t j = 0; j < i; ++j) {
            if constexpr (std::is_floating_point_v<C>) {
                A(j, i) = A(i, j);
            } else {
                A(j, i) = std::conj(A(i, j));
            }
        }
    }
    return A;
}

/// Unitary to the precision of C: a product of Householder reflections.
template <typename C>
SquareMatrix<C> random_unitary(std::size_t n, CounterRandom& random) {
    SquareMatrix<C> Q(n, [](std::size_t i, std::size_t j) { return i == j ? 1.0 : 0.0; });
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
                if constexpr (std::is_floating_point_v<C>) {
                    Q(i, j) -= 2 / squared * along * v[j];
                } else {
                    Q(i, j) -= 2 / squared * along * std::conj(v[j]);
                }
            }
        }
    }
    return Q;
}

/// Q times A times the adjoint of Q.
template <typename C>
SquareMatrix<C> conjugated_by(const SquareMatrix<C>& Q, const SquareMatrix<C>& A) {
    const std::size_t n = A.n;
    SquareMatrix<LongComplex> half(n, [&](std::size_t i, std::size_t j) {
        LongComplex sum = 0;
        for (std::size_t k = 0; k < n; ++k) {
            sum += LongComplex(Q(i, k)) * LongComplex(A(k, j));
        }
        return sum;
    });
    return {n, [&](std::size_t i, std::size_t j) {
                LongComplex sum = 0;
                for (std::size_t k = 0; k < n; ++k) {
                    sum += half(i, k) * std::conj(LongComplex(Q(j, k)));
                }
                if constexpr (std::is_floating_point_v<C>) {
                    return static_cast<C>(sum.real());
                } else {
                    return C(sum);
                }
            }};
}

template <typename C>
SquareMatrix<C> diagonal_matrix(const std::vector<C>& diagonal) {
    return {diagonal.size(), [&](std::size_t i, std::size_t j) {
                return i == j ? diagonal[i] : C(0);
            }};
}

/// Twos on the diagonal and ones of the opposite sign beside it. Eigenvalue k of n is
/// 2 - 2 cos(k pi / (n + 1)), from k = 1.
template <typename C>
SquareMatrix<C> second_difference_matrix(std::size_t n) {
    return {n, [](std::size_t i, std::size_t j) {
                return i == j ? 2.0 : (i + 1 == j || j + 1 == i ? -1.0 : 0.0);
            }};
}
inline std::vector<double> second_difference_eigenvalues(std::size_t n) {
    std::vector<double> values(n);
    for (std::size_t k = 0; k < n; ++k) {
        const long double sine = std::sin((k + 1) * 3.14159265358979323846264338327950288L /
                                          (2 * (n + 1)));
        values[k] = static_cast<double>(4 * sine * sine);
    }
    return values;
}

template <typename C>
long double frobenius_norm(const std::vector<C>& elements) {
    long double squared = 0;
    for (const C element : elements) {
        squared += std::norm(LongComplex(element));
    }
    return std::sqrt(squared);
}

/// The norm of A v - lambda v over that of v times the sum of |lambda| and the norm of A.
template <typename C, typename V>
double residual(const SquareMatrix<C>& A, LongComplex lambda, const std::vector<V>& v) {
    std::vector<LongComplex> difference(A.n);
    for (std::size_t i = 0; i < A.n; ++i) {
        difference[i] = -lambda * LongComplex(v[i]);
        for (std::size_t j = 0; j < A.n; ++j) {
            difference[i] += LongComplex(A(i, j)) * LongComplex(v[j]);
        }
    }
    const long double scale =
        (std::abs(lambda) + frobenius_norm(A.elements)) * frobenius_norm(v);
    const long double norm = frobenius_norm(difference);
    return static_cast<double>(scale == 0 ? norm : norm / scale);
}

/// The largest distance between members of two sets that are paired greedily, nearest first found.
inline double set_distance(std::vector<Complex> found, const std::vector<Complex>& expected) {
    double largest = 0;
    for (const Complex value : expected) {
        const auto nearest = std::ranges::min_element(
            found, {}, [value](Complex candidate) { return std::abs(candidate - value); });
        if (nearest == found.end()) {
            return std::numeric_limits<double>::infinity();
        }
        largest = std::max(largest, std::abs(*nearest - value));
        found.erase(nearest);
    }
    return found.empty() ? largest : std::numeric_limits<double>::infinity();
}

} // namespace Tessaline::Testing
