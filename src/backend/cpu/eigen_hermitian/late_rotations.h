// SPDX-License-Identifier: Apache-2.0
#pragma once

// What takes the rotations of a Jacobi method late: vectors, and columns that are done for a sweep.

#include "backend/cpu/eigen_hermitian/planar_matrix.h"
#include "backend/cpu/numbers/floating_policies.h"

#include <span>

namespace Tessaline::CpuStructured {

/// The rotations of the rows of one block, each of them common row in turn, with that block and
/// those after it.
class GroupRotations {
    using BlockRotations = SimdKernels::BlockRotations;
    static constexpr std::size_t block = rotation_block;

  public:
    explicit GroupRotations(std::size_t blocks) : rotations_(block * blocks) {}

    /// Starts anew, without any rotation yet.
    void start(std::size_t group) {
        group_ = group;
        for (BlockRotations& found : rotations_) {
            found.rows = 0;
        }
    }

    std::size_t group() const { return group_; }
    BlockRotations& at(std::size_t phase, std::size_t b) { return rotations_[b * block + phase]; }
    const BlockRotations& at(std::size_t phase, std::size_t b) const {
        return rotations_[b * block + phase];
    }

    /// Applies those of one phase with the rows of block `b` in the leading columns of a matrix.
    template <typename C>
    void apply(std::size_t phase, std::size_t b, const PlanarMatrix<C>& matrix, std::size_t columns,
               const SimdKernels::RotationKernels<C>& kernels) const {
        kernels.rotate(matrix.at(group_ * block + phase, 0), matrix.at(b * block, 0),
                       matrix.shape(), at(phase, b), columns);
    }

  private:
    std::size_t group_ = 0;
    std::vector<BlockRotations> rotations_;
};

/// The rotations of one group at a time, in the columns of the matrix that the sweep needs no more,
/// and of the vectors. They are applied in shares of work that advance() hands out while the
/// rotations of the next group are looked for.
template <typename C>
class LateRotations {
    static constexpr std::size_t block = rotation_block;

  public:
    /// The vectors begin as the unit matrix. Where none are wanted, none are kept. Refers to the
    /// matrix.
    LateRotations(const PlanarMatrix<C>& matrix, std::size_t order, bool vectors,
                  const SimdKernels::RotationKernels<C>& kernels)
        : kernels_(kernels),
          wants_vectors_(vectors),
          matrix_(matrix),
          vectors_(vectors ? order : 0, order),
          pending_((order + block - 1) / block),
          end_((order + block - 1) / block * block),
          next_(end_) {
        for (std::size_t i = 0; i < order && vectors; ++i) {
            vectors_.set(i, i, 1);
        }
    }

    bool wants_vectors() const { return wants_vectors_; }
    /// Element k of vector i, once all is finished.
    C vector_element(std::size_t i, std::size_t k) const { return vectors_.get(i, k); }

    /// Takes the rotations of a group, and gives those of an earlier one for them.
    void add(GroupRotations& rotations) {
        finish();
        std::swap(pending_, rotations);
        next_ = pending_.group() * block;
    }

    /// Does a share of the work. There are no more shares than pairs of a phase and a block that
    /// the group had.
    void advance() {
        if (next_ < end_) {
            apply(next_ % block, next_ / block);
            if (++next_ == end_) {
                mirror_block();
            }
        }
    }

    void finish() {
        while (next_ < end_) {
            advance();
        }
    }

  private:
    /// Left of the group every phase, in its own columns those after the column's own.
    void apply(std::size_t phase, std::size_t b) const {
        const std::size_t first = pending_.group() * block;
        pending_.apply(phase, b, matrix_, first, kernels_);
        kernels_.rotate_leading(matrix_.at(first + phase, first), matrix_.at(b * block, first),
                                matrix_.shape(), pending_.at(phase, b), phase);
        if (wants_vectors_) {
            pending_.apply(phase, b, vectors_, vectors_.padded_columns(), kernels_);
        }
    }

    /// The block on the diagonal has been rotated below it only.
    void mirror_block() const {
        const std::size_t first = pending_.group() * block;
        for (std::size_t i = 0; i < block; ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                matrix_.set(first + j, first + i, conjugated(matrix_.get(first + i, first + j)));
            }
        }
    }

    const SimdKernels::RotationKernels<C>& kernels_;
    bool wants_vectors_;
    const PlanarMatrix<C>& matrix_;
    PlanarMatrix<C> vectors_; ///< one vector a row
    GroupRotations pending_;
    // Shares of what is pending: block by block, and phase by phase within.
    std::size_t end_;
    std::size_t next_;
};

} // namespace Tessaline::CpuStructured
