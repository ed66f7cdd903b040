// SPDX-License-Identifier: Apache-2.0
#pragma once

// The vectors of a Jacobi method, which take its rotations late.

#include "backend/cpu/planar_matrix.h"

#include <span>

namespace Tessaline::CpuStructured {

/// The rotations of the rows of one block, each of them common row in turn, with that block and
/// those after it.
class GroupRotations {
    using BlockRotations = SimdKernels::BlockRotations;
    static constexpr std::size_t block = SimdKernels::rotation_block;

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

/// The unit matrix under rotations of its rows. Those of one group are applied in pieces of work
/// that advance() hands out while the rotations of the next one are looked for.
template <typename C>
class RotatedVectors {
    static constexpr std::size_t block = SimdKernels::rotation_block;

  public:
    /// Where no vectors are wanted, nothing is kept.
    RotatedVectors(std::size_t order, bool wanted, const SimdKernels::RotationKernels<C>& kernels)
        : kernels_(kernels),
          wanted_(wanted),
          vectors_(wanted ? order : 0, order),
          pending_((order + block - 1) / block),
          end_((order + block - 1) / block * block),
          next_(end_) {
        for (std::size_t i = 0; i < order && wanted; ++i) {
            vectors_.set(i, i, 1);
        }
    }

    bool wanted() const { return wanted_; }
    /// Element k of vector i, once all is finished.
    C get(std::size_t i, std::size_t k) const { return vectors_.get(i, k); }

    /// Takes the rotations of a group, and gives those of an earlier one for them.
    void add(GroupRotations& rotations) {
        if (wanted_) {
            finish();
            std::swap(pending_, rotations);
            next_ = pending_.group() * block;
        }
    }

    /// Does a share of the work. There are no more shares than pairs of a phase and a
    /// block that the group had.
    void advance() {
        if (next_ < end_) {
            pending_.apply(next_ % block, next_ / block, vectors_, vectors_.padded_columns(),
                           kernels_);
            ++next_;
        }
    }

    void finish() {
        while (next_ < end_) {
            advance();
        }
    }

  private:
    const SimdKernels::RotationKernels<C>& kernels_;
    bool wanted_;
    PlanarMatrix<C> vectors_; ///< one vector a row
    GroupRotations pending_;
    // Shares of what is pending: block by block, and phase by phase within.
    std::size_t end_;
    std::size_t next_;
};

} // namespace Tessaline::CpuStructured
