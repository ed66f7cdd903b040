// SPDX-License-Identifier: Apache-2.0
#pragma once

// The vectors of a Jacobi method, which take its rotations late.

#include "backend/cpu/planar_matrix.h"

#include <array>
#include <span>

namespace Tessaline::CpuStructured {

/// The rotations of a common row with one block of rows.
struct BlockRotations {
    std::size_t count = 0;
    std::array<SimdKernels::RowRotation, SimdKernels::rotation_block> rotations;
};

/// The rotations of the rows of one block, each of them common row in turn, with that block and
/// those after it.
class GroupRotations {
  public:
    explicit GroupRotations(std::size_t blocks)
        : blocks_(blocks),
          rotations_(SimdKernels::rotation_block * blocks) {}

    /// Starts anew, without any rotation yet.
    void start(std::size_t group) {
        group_ = group;
        for (BlockRotations& found : rotations_) {
            found.count = 0;
        }
    }

    std::size_t group() const { return group_; }
    BlockRotations& at(std::size_t phase, std::size_t block) {
        return rotations_[block * SimdKernels::rotation_block + phase];
    }
    const BlockRotations& at(std::size_t phase, std::size_t block) const {
        return rotations_[block * SimdKernels::rotation_block + phase];
    }

    /// Applies the rotations of one common row with one block in the leading columns of a matrix.
    template <typename C>
    void apply(std::size_t phase, std::size_t block, const PlanarMatrix<C>& matrix,
               std::size_t columns, const SimdKernels::RotationKernels<C>& kernels) const {
        const BlockRotations& found = at(phase, block);
        if (found.count != 0 && columns != 0) {
            kernels.rotate(matrix.at(group_ * SimdKernels::rotation_block + phase, 0),
                           matrix.at(block * SimdKernels::rotation_block, 0), matrix.shape(),
                           found.rotations.data(), found.count, columns);
        }
    }

  private:
    std::size_t blocks_;
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

    /// Does a share of the work. There are no more shares than pairs of a phase and a row that the
    /// group had.
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
    // Pieces of work on what is pending: block by block, and phase by phase within.
    std::size_t end_;
    std::size_t next_;
};

} // namespace Tessaline::CpuStructured
