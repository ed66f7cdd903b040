// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/structured_solver.h"

#include "backend/cpu/floating_policies.h"
#include "backend/cpu/number_parts.h"
#include "backend/cpu/structured_input.h"
#include "tessaline/catalogue/errors.h"

#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

namespace Tessaline::CpuStructured {

using namespace NumberParts;

namespace {

/// The rotation that makes [[p, x], [conj(x), q]] diagonal by taking p - shift and q + shift, with
/// the cosine c and the sine s. All ratios are taken at the scale of the largest element.
template <typename C>
struct Rotation {
    bool is_identity;
    double c;
    C s;
    double shift;

    Rotation(double p, double q, C off_diagonal) {
        const double scale = std::max({largest_part(off_diagonal), std::abs(q), std::abs(p)});
        const C x = divided(off_diagonal, scale);
        const double magnitude = std::abs(x);
        is_identity = magnitude == 0;
        if (is_identity) {
            return;
        }
        const double d = (q / scale) * 0.5 - (p / scale) * 0.5;
        const double t = std::copysign(magnitude / (std::abs(d) + std::hypot(d, magnitude)), d);
        c = 1 / std::hypot(1, t);
        s = divided(x, magnitude) * (c * t);
        shift = t * scale * magnitude;
    }

    /// Takes an element of column p and one of column q to the rotated columns.
    void apply(C& of_p, C& of_q) const {
        const C u = of_p;
        const C v = of_q;
        of_p = c * u - v * conjugated(s);
        of_q = c * v + u * s;
    }
};

template <typename C>
class HermitianJacobi {
  public:
    HermitianJacobi(std::span<C> A, std::size_t order, bool vectors)
        : A_(A),
          n_(order),
          tolerance_(static_cast<double>(order) * std::numeric_limits<double>::epsilon()),
          vectors_(vectors ? order * order : 0) {
        for (std::size_t i = 0; i < n_ && vectors; ++i) {
            vectors_[i * n_ + i] = 1;
        }
        mirror_lower_triangle(A, order);
    }

    /// True when at most this many sweeps were enough.
    bool solve(int maximum_sweeps) {
        for (int sweeps = 0; !is_converged(); ++sweeps) {
            if (sweeps == maximum_sweeps) {
                return false;
            }
            sweep();
        }
        return true;
    }

    /// Raises std::runtime_error for a value that is not finite.
    HermitianEigenResult<C> result() const {
        for (std::size_t i = 0; i < n_; ++i) {
            if (!std::isfinite(diagonal(i))) {
                throw std::runtime_error("eigh/eigvalsh - eigenvalue overflow");
            }
        }
        HermitianEigenResult<C> result{std::vector<double>(n_), std::vector<C>(vectors_.size())};
        const auto order = ascending_order();
        for (std::size_t i = 0; i < n_; ++i) {
            result.values[i] = diagonal(order[i]);
            if (!vectors_.empty()) {
                copy_vector(order[i], i, result.vectors);
            }
        }
        return result;
    }

  private:
    C& element(std::size_t i, std::size_t j) const { return A_[i * n_ + j]; }
    double diagonal(std::size_t i) const { return real_part(element(i, i)); }

    bool is_negligible(std::size_t p, std::size_t q) const {
        const double magnitude = std::abs(element(p, q));
        if (magnitude == 0) {
            return true;
        }
        const double root_p = std::sqrt(std::abs(diagonal(p)));
        const double root_q = std::sqrt(std::abs(diagonal(q)));
        if (root_p == 0 || root_q == 0) {
            return false;
        }
        // One after the other, the larger first: the product of small roots would have few bits.
        return magnitude / std::max(root_p, root_q) / std::min(root_p, root_q) <= tolerance_;
    }

    bool is_converged() const {
        for (std::size_t p = 0; p < n_; ++p) {
            for (std::size_t q = p + 1; q < n_; ++q) {
                if (!is_negligible(p, q)) {
                    return false;
                }
            }
        }
        return true;
    }

    void sweep() {
        for (std::size_t p = 0; p + 1 < n_; ++p) {
            for (std::size_t q = p + 1; q < n_; ++q) {
                if (!is_negligible(p, q)) {
                    rotate(p, q);
                }
            }
        }
    }

    void rotate(std::size_t p, std::size_t q) {
        const double a = diagonal(p);
        const double b = diagonal(q);
        const Rotation<C> rotation(a, b, element(p, q));
        if (!rotation.is_identity) {
            rotate_matrix(p, q, rotation);
            element(p, p) = a - rotation.shift;
            element(q, q) = b + rotation.shift;
            if (!vectors_.empty()) {
                rotate_vectors(p, q, rotation);
            }
        }
        element(p, q) = 0;
        element(q, p) = 0;
    }

    /// Columns p and q by the rotation, rows p and q as their conjugates. Rows are what is read,
    /// because they are contiguous. The four elements where they meet are left to the caller.
    void rotate_matrix(std::size_t p, std::size_t q, const Rotation<C>& rotation) {
        C* const row_p = &A_[p * n_];
        C* const row_q = &A_[q * n_];
        for (std::size_t k = 0; k < n_; ++k) {
            C of_p = conjugated(row_p[k]);
            C of_q = conjugated(row_q[k]);
            rotation.apply(of_p, of_q);
            row_p[k] = conjugated(of_p);
            row_q[k] = conjugated(of_q);
        }
        for (std::size_t k = 0; k < n_; ++k) {
            element(k, p) = conjugated(row_p[k]);
            element(k, q) = conjugated(row_q[k]);
        }
    }

    void rotate_vectors(std::size_t p, std::size_t q, const Rotation<C>& rotation) {
        C* const vector_p = &vectors_[p * n_];
        C* const vector_q = &vectors_[q * n_];
        for (std::size_t k = 0; k < n_; ++k) {
            rotation.apply(vector_p[k], vector_q[k]);
        }
    }

    void copy_vector(std::size_t from, std::size_t column, std::vector<C>& vectors) const {
        for (std::size_t k = 0; k < n_; ++k) {
            vectors[k * n_ + column] = vectors_[from * n_ + k];
        }
    }

    /// Indices by ascending diagonal element; equal ones keep their order.
    std::vector<std::size_t> ascending_order() const {
        std::vector<std::size_t> order(n_);
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::ranges::stable_sort(order, {}, [this](std::size_t i) { return diagonal(i); });
        return order;
    }

    std::span<C> A_;
    std::size_t n_;
    double tolerance_;
    std::vector<C> vectors_; ///< one eigenvector after the other: rotations run along rows
};

} // namespace

template <typename C>
HermitianEigenResult<C> eigen(std::span<C> A, std::size_t order, bool vectors) {
    HermitianJacobi<C> jacobi(A, order, vectors);
    if (!jacobi.solve(maximum_jacobi_sweeps)) {
        throw SolverError("CPU", maximum_jacobi_sweeps, "Jacobi sweep limit reached",
                          vectors ? "tessaline.eigh" : "tessaline.eigvalsh",
                          "eigh/eigvalsh - Jacobi iteration did not converge for order " +
                              std::to_string(order),
                          ErrorReason::non_convergence);
    }
    return jacobi.result();
}

template HermitianEigenResult<double> eigen(std::span<double>, std::size_t, bool);
template HermitianEigenResult<std::complex<double>> eigen(std::span<std::complex<double>>,
                                                          std::size_t, bool);

} // namespace Tessaline::CpuStructured
