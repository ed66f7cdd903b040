// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/structured_solver.h"

#include "backend/cpu/floating_policies.h"
#include "backend/cpu/rotated_vectors.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

namespace Tessaline::CpuStructured {

using namespace NumberParts;
using namespace SimdKernels;

namespace {

constexpr std::size_t block = rotation_block;

/// The rotation that makes [[p, x], [conj(x), q]] diagonal by taking p - shift and q + shift, with
/// the cosine c and the sine s. All ratios are taken at the scale of the largest element.
template <typename C>
struct Rotation {
    bool is_identity = false;
    double c = 1;
    C s = 0;
    double shift = 0;

    Rotation(double p, double q, C off_diagonal) {
        const double scale =
            std::max(std::max(largest_part(off_diagonal), std::abs(q)), std::abs(p));
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

/// A row-cyclic sweep, phase by phase: the rotations of row p with every later row q.
///
/// A rotation needs of the matrix no more than row p, the block of rows around q in the columns of
/// that block, and the diagonal. So the rotations of a block are found first and applied to the
/// other columns then, a block of columns at a time, and to the vectors some phases later. That
/// work is handed out in small pieces between the rotations of the next block: these are one long
/// chain of roots and divisions, behind which it hides.
///
/// The rows that are stored are conjugated, which makes them the columns. Below the blocks on the
/// diagonal only; what is right of these is found there in transposed blocks.
template <typename C>
class HermitianJacobi {
  public:
    HermitianJacobi(std::span<const C> A, std::size_t order, bool vectors,
                    const RotationKernels<C>& kernels)
        : kernels_(kernels),
          n_(order),
          blocks_((order + block - 1) / block),
          tolerance_(static_cast<double>(order) * std::numeric_limits<double>::epsilon()),
          matrix_(order, order),
          common_(1, order),
          diagonal_(order),
          vectors_(order, vectors, kernels) {
        for (std::size_t i = 0; i < n_; ++i) {
            diagonal_[i] = real_part(A[i * n_ + i]);
            for (std::size_t j = 0; j < i; ++j) {
                matrix_.set(i, j, conjugated(A[i * n_ + j]));
                matrix_.set(j, i, A[i * n_ + j]);
            }
        }
    }

    /// True when at most this many sweeps were enough.
    bool solve(int maximum_sweeps) {
        for (int sweeps = 0; !is_converged(); ++sweeps) {
            if (sweeps == maximum_sweeps) {
                return false;
            }
            for (std::size_t p = 0; p + 1 < n_; ++p) {
                run_phase(p);
            }
        }
        vectors_.finish();
        return true;
    }

    /// Raises std::runtime_error for a value that is not finite.
    HermitianEigenResult<C> result() const {
        if (!std::ranges::all_of(diagonal_, [](double value) { return std::isfinite(value); })) {
            throw std::runtime_error("eigh/eigvalsh - eigenvalue overflow");
        }
        HermitianEigenResult<C> result{std::vector<double>(n_),
                                       std::vector<C>(vectors_.wanted() ? n_ * n_ : 0)};
        const auto order = ascending_order();
        for (std::size_t i = 0; i < n_; ++i) {
            result.values[i] = diagonal_[order[i]];
            for (std::size_t k = 0; k < n_ && vectors_.wanted(); ++k) {
                result.vectors[k * n_ + i] = vectors_.get(order[i], k);
            }
        }
        return result;
    }

  private:
    bool is_negligible(double a, double b, C off_diagonal) const {
        const double magnitude = std::abs(off_diagonal);
        if (magnitude == 0) {
            return true;
        }
        const double root_a = std::sqrt(std::abs(a));
        const double root_b = std::sqrt(std::abs(b));
        if (root_a == 0 || root_b == 0) {
            return false;
        }
        // One after the other, the larger first: the product of small roots would have few bits.
        return magnitude / std::max(root_a, root_b) / std::min(root_a, root_b) <= tolerance_;
    }

    bool is_converged() const {
        for (std::size_t q = 1; q < n_; ++q) {
            for (std::size_t p = 0; p < q; ++p) {
                if (!is_negligible(diagonal_[p], diagonal_[q], matrix_.get(q, p))) {
                    return false;
                }
            }
        }
        return true;
    }

    void run_phase(std::size_t p) {
        take_common_row(p);
        phase_ = vectors_.next_phase();
        for (std::size_t b = (p + 1) / block; b < blocks_; ++b) {
            find_rotations(p, b);
            finish_columns();
            rotated_block_ = b;
            next_columns_ = 0;
            if (b + 1 < blocks_) {
                rotate_columns(b + 1, b + 2);
            }
        }
        finish_columns();
        put_common_row(p);
        vectors_.add_phase(p);
    }

    void take_common_row(std::size_t p) const {
        const std::size_t split = (p / block + 1) * block;
        for (std::size_t k = 0; k < n_; ++k) {
            common_.set(0, k, k < split ? matrix_.get(p, k) : conjugated(matrix_.get(k, p)));
        }
    }
    void put_common_row(std::size_t p) const {
        const std::size_t first = p / block * block;
        for (std::size_t k = 0; k < n_; ++k) {
            const C element = common_.get(0, k);
            if (k < first + block) {
                matrix_.set(p, k, element);
            }
            if (k >= first) {
                matrix_.set(k, p, conjugated(element));
            }
        }
    }

    /// Finds the rotations of row p with the rows of block b, notes them and applies them in the
    /// columns of that block.
    void find_rotations(std::size_t p, std::size_t b) {
        const std::size_t first = b * block;
        BlockRotations& found = phase_[b];
        for (std::size_t q = std::max(first, p + 1); q < std::min(first + block, n_); ++q) {
            const C off_diagonal = conjugated(common_.get(0, q));
            if (is_negligible(diagonal_[p], diagonal_[q], off_diagonal)) {
                continue;
            }
            const Rotation<C> rotation(diagonal_[p], diagonal_[q], off_diagonal);
            if (!rotation.is_identity) {
                diagonal_[p] -= rotation.shift;
                diagonal_[q] += rotation.shift;
                RowRotation& noted = found.rotations[found.count++];
                noted = {q - first, rotation.c, real_part(rotation.s), imaginary_part(rotation.s)};
                kernels_.rotate(common_.at(0, first), matrix_.at(first, first), matrix_.shape(),
                                &noted, 1, block);
                for (std::size_t k = 0; k < block; ++k) {
                    matrix_.set(first + k, q, conjugated(matrix_.get(q, first + k)));
                }
                advance();
            }
            common_.set(0, q, 0);
        }
    }

    /// Does a share of the work that no rotation waits for.
    void advance() {
        const std::size_t columns_step = (blocks_ + block - 1) / block;
        for (std::size_t i = 0; i < columns_step && rotated_block_ < blocks_; ++i) {
            rotate_next_columns();
        }
        vectors_.advance();
    }

    void finish_columns() {
        while (rotated_block_ < blocks_) {
            rotate_next_columns();
        }
    }
    void rotate_next_columns() {
        const std::size_t first = next_columns_;
        if (first < rotated_block_) {
            next_columns_ = std::min(first + rotated_columns / block, rotated_block_);
        } else {
            ++next_columns_;
        }
        if (first == blocks_) {
            rotated_block_ = blocks_;
        } else if (first != rotated_block_ && first != rotated_block_ + 1) {
            rotate_columns(first, next_columns_);
        }
    }

    /// Applies the rotations of `rotated_block_` to blocks of columns, to a single one above it.
    void rotate_columns(std::size_t first, std::size_t end) const {
        const BlockRotations& found = phase_[rotated_block_];
        if (found.count == 0) {
            return;
        }
        const std::size_t row = rotated_block_ * block;
        const std::size_t column = first * block;
        double* const common = common_.at(0, column);
        if (first < rotated_block_) {
            kernels_.rotate(common, matrix_.at(row, column), matrix_.shape(),
                            found.rotations.data(), found.count, (end - first) * block);
        } else {
            kernels_.rotate_adjoint(common, matrix_.at(column, row), matrix_.shape(),
                                    found.rotations.data(), found.count);
        }
    }

    /// Indices by ascending diagonal element; equal ones keep their order.
    std::vector<std::size_t> ascending_order() const {
        std::vector<std::size_t> order(n_);
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::ranges::stable_sort(order, {}, [this](std::size_t i) { return diagonal_[i]; });
        return order;
    }

    const RotationKernels<C>& kernels_;
    std::size_t n_;
    std::size_t blocks_;
    double tolerance_;
    PlanarMatrix<C> matrix_;
    PlanarMatrix<C> common_; ///< row p in its phase
    std::vector<double> diagonal_;
    RotatedVectors<C> vectors_;

    std::span<BlockRotations> phase_;     ///< those of row p, by the block of q
    std::size_t rotated_block_ = blocks_; ///< whose columns are being rotated, if any
    std::size_t next_columns_ = 0;
};

} // namespace

template <typename C>
HermitianEigenResult<C> eigen(std::span<const C> A, std::size_t order, bool vectors,
                              const RotationKernels<C>& kernels) {
    HermitianJacobi<C> jacobi(A, order, vectors, kernels);
    if (!jacobi.solve(maximum_jacobi_sweeps)) {
        throw SolverError("CPU", maximum_jacobi_sweeps, "Jacobi sweep limit reached",
                          vectors ? "tessaline.eigh" : "tessaline.eigvalsh",
                          "eigh/eigvalsh - Jacobi iteration did not converge for order " +
                              std::to_string(order),
                          ErrorReason::non_convergence);
    }
    return jacobi.result();
}

template HermitianEigenResult<double> eigen(std::span<const double>, std::size_t, bool,
                                            const RotationKernels<double>&);
template HermitianEigenResult<std::complex<double>>
eigen(std::span<const std::complex<double>>, std::size_t, bool,
      const RotationKernels<std::complex<double>>&);

} // namespace Tessaline::CpuStructured
