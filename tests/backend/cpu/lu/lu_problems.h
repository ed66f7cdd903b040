// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrices for tests of factorisations, and residuals in wider precision.

#include "backend/cpu/random_values.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/storage/element_traits.h"
#include "tessaline/storage/kernel_views.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace Tessaline::Testing {

inline constexpr std::size_t lu_orders[] = {0, 1, 2, 3, 5, 10, 33, 64};

/// A square matrix, row by row whatever the order of the kernel's elements.
template <typename T>
struct SquareMatrix {
    std::size_t order;
    std::vector<T> elements;

    T& operator()(std::size_t row, std::size_t column) { return elements[row * order + column]; }
    T operator()(std::size_t row, std::size_t column) const {
        return elements[row * order + column];
    }
};

/// Pivots, factors in one element order, and swap count.
template <typename T, typename Pivot = long>
struct LuStorage {
    LuStorage(const SquareMatrix<T>& matrix, DataMatrixLayout element_order)
        : order(matrix.order),
          layout(element_order),
          pivots(order, -7),
          factors(order * order) {
        for (std::size_t row = 0; row < order; ++row) {
            for (std::size_t column = 0; column < order; ++column) {
                factors[index(row, column)] = matrix(row, column);
            }
        }
    }

    std::size_t index(std::size_t row, std::size_t column) const {
        return layout == DataMatrixLayout::row_major ? row * order + column : column * order + row;
    }
    SquareMatrix<T> matrix() const {
        SquareMatrix<T> result{order, std::vector<T>(order * order)};
        for (std::size_t row = 0; row < order; ++row) {
            for (std::size_t column = 0; column < order; ++column) {
                result(row, column) = factors[index(row, column)];
            }
        }
        return result;
    }
    LuDecompView<Pivot, T> view() { return {pivots.data(), factors.data(), &swaps, order}; }
    LuDecompView<const Pivot, const T> input() const {
        return {pivots.data(), factors.data(), &swaps, order};
    }

    std::size_t order;
    DataMatrixLayout layout;
    std::vector<Pivot> pivots;
    std::vector<T> factors;
    std::uint64_t swaps = 99;
};

/// A kind of random matrix: what scales element (i, j), beside a common power of two that brings
/// the matrix near one end of the range.
struct MatrixKind {
    enum class Range { ordinary, underflow, overflow };

    const char* name;
    double (*scale)(std::size_t i, std::size_t j, std::size_t order);
    Range range = Range::ordinary;
};

inline double power_of_two(std::size_t exponent) {
    return std::scalbn(1.0, static_cast<int>(exponent));
}

inline constexpr MatrixKind matrix_kinds[] = {
    {"dense", [](std::size_t, std::size_t, std::size_t) { return 1.0; }},
    {"diagonal", [](std::size_t i, std::size_t j, std::size_t) { return i == j ? 1.0 : 0.0; }},
    {"upper triangular",
     [](std::size_t i, std::size_t j, std::size_t) { return i <= j ? 1.0 : 0.0; }},
    {"lower triangular",
     [](std::size_t i, std::size_t j, std::size_t) { return i >= j ? 1.0 : 0.0; }},
    {"permuted diagonal",
     [](std::size_t i, std::size_t j, std::size_t order) {
         return j == (i + 1 + order / 3) % order ? 1.0 : 0.0;
     }},
    {"rows graded down",
     [](std::size_t i, std::size_t, std::size_t) { return 1 / power_of_two(i); }},
    {"rows graded up", [](std::size_t i, std::size_t, std::size_t) { return power_of_two(i); }},
    {"columns graded down",
     [](std::size_t, std::size_t j, std::size_t) { return 1 / power_of_two(j); }},
    {"near underflow", [](std::size_t, std::size_t, std::size_t) { return 1.0; },
     MatrixKind::Range::underflow},
    {"near overflow", [](std::size_t, std::size_t, std::size_t) { return 1.0; },
     MatrixKind::Range::overflow},
};

/// The common factor of a kind. Near underflow, products of two elements lose no digit that the
/// residual could see; near overflow, growth, solutions of moderate size and sums of 64 have room.
template <typename T>
double range_factor(const MatrixKind& kind) {
    using Limits = std::numeric_limits<Component<T>>;
    switch (kind.range) {
    case MatrixKind::Range::underflow:
        return std::scalbn(1.0, Limits::min_exponent + Limits::digits);
    case MatrixKind::Range::overflow:
        return std::scalbn(1.0, Limits::max_exponent - 16);
    default:
        return 1;
    }
}

template <typename T>
SquareMatrix<T> make_matrix(const MatrixKind& kind, std::size_t order, CounterRandom& random) {
    SquareMatrix<T> matrix{order, std::vector<T>(order * order)};
    for (std::size_t i = 0; i < order; ++i) {
        for (std::size_t j = 0; j < order; ++j) {
            const double scale = kind.scale(i, j, order) * range_factor<T>(kind);
            matrix(i, j) = random_element<T>([&] { return scale * uniform(random); });
        }
    }
    return matrix;
}

template <typename T>
struct WiderType {
    using type = long double;
};
template <typename Real>
struct WiderType<std::complex<Real>> {
    using type = std::complex<long double>;
};
template <typename T>
using Wider = typename WiderType<T>::type;

/// The unit roundoff, by which LAPACK's test ratios are scaled.
template <typename T>
inline constexpr long double unit_roundoff = std::numeric_limits<Component<T>>::epsilon() / 2;

/// Eliminates one element after the other, with the upper one of the largest rows as the pivot, and
/// stops at a column that holds nothing above `Arithmetic::threshold`. Whether it came to the end.
/// Arithmetic has size, product, multiplier and quotient.
template <typename Arithmetic, typename T>
bool plain_elimination(LuStorage<T>& lu) {
    const auto a = [&lu](std::size_t row, std::size_t column) -> T& {
        return lu.factors[lu.index(row, column)];
    };
    lu.swaps = 0;
    for (std::size_t k = 0; k < lu.order; ++k) {
        std::size_t best = k;
        for (std::size_t row = k; row < lu.order; ++row) {
            best = Arithmetic::size(a(row, k)) > Arithmetic::size(a(best, k)) ? row : best;
        }
        if (!(Arithmetic::size(a(best, k)) > Arithmetic::threshold)) {
            return false;
        }
        lu.pivots[k] = static_cast<long>(best) + 1;
        lu.swaps += best != k ? 1 : 0;
        for (std::size_t column = 0; column < lu.order; ++column) {
            std::swap(a(k, column), a(best, column));
        }
        for (std::size_t row = k + 1; row < lu.order; ++row) {
            a(row, k) = Arithmetic::multiplier(a(row, k), a(k, k));
            for (std::size_t column = k + 1; column < lu.order; ++column) {
                a(row, column) -= Arithmetic::product(a(row, k), a(k, column));
            }
        }
    }
    return true;
}

/// The solution that plain substitution gives.
template <typename Arithmetic, typename T>
std::vector<T> plain_solution(const LuStorage<T>& lu, std::vector<T> b) {
    const auto factors = lu.matrix();
    for (std::size_t i = 0; i < lu.order; ++i) {
        std::swap(b[i], b[static_cast<std::size_t>(lu.pivots[i] - 1)]);
    }
    for (std::size_t i = 0; i < lu.order; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            b[i] -= Arithmetic::product(factors(i, j), b[j]);
        }
    }
    for (std::size_t i = lu.order; i-- > 0;) {
        for (std::size_t j = i + 1; j < lu.order; ++j) {
            b[i] -= Arithmetic::product(factors(i, j), b[j]);
        }
        b[i] = Arithmetic::quotient(b[i], factors(i, i));
    }
    return b;
}

/// Whether two arrays hold the same bits.
template <typename T>
bool same_bits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

/// Expects `call` to raise exactly this SolverError.
template <typename Call>
void expect_solver_error(Call&& call, int status, const std::string& detail,
                         const std::string& operation, const std::string& message,
                         ErrorReason reason) {
    try {
        call();
        ADD_FAILURE() << "nothing raised, expected: " << message;
    } catch (const SolverError& error) {
        EXPECT_EQ(error.library(), "CPU");
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(error.detail(), detail);
        EXPECT_EQ(error.operation(), operation);
        EXPECT_STREQ(error.what(), message.c_str());
        EXPECT_EQ(error.reason(), reason);
    } catch (const std::exception& error) {
        ADD_FAILURE() << "raised: " << error.what() << ", expected: " << message;
    }
}

} // namespace Tessaline::Testing
