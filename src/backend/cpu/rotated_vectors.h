// SPDX-License-Identifier: Apache-2.0
#pragma once

// The vectors of a Jacobi method, which take its rotations late.

#include "backend/cpu/planar_matrix.h"

#include <algorithm>
#include <array>
#include <span>

namespace Tessaline::CpuStructured {

/// Columns in which rotations are applied at once.
inline constexpr std::size_t rotated_columns = 4 * SimdKernels::rotation_block;

/// The rotations of a common row with one block of rows.
struct BlockRotations {
    std::size_t count = 0;
    std::array<SimdKernels::RowRotation, SimdKernels::rotation_block> rotations;
};

/// The unit matrix under rotations of its rows. They are kept until some phases have come together
/// and then applied to a few columns after the other, which stay in the first-level cache, in
/// pieces of work that advance() hands out while the next rotations are looked for.
template <typename C>
class RotatedVectors {
    static constexpr std::size_t block = SimdKernels::rotation_block;
    static constexpr std::size_t phases = 8; ///< that come together

  public:
    /// Where no vectors are wanted, nothing is kept.
    RotatedVectors(std::size_t order, bool wanted, const SimdKernels::RotationKernels<C>& kernels)
        : kernels_(kernels),
          wanted_(wanted),
          blocks_((order + block - 1) / block),
          vectors_(wanted ? order : 0, order),
          added_((wanted ? phases : 1) * blocks_),
          pending_(wanted ? phases * blocks_ : 0) {
        for (std::size_t i = 0; i < order && wanted; ++i) {
            vectors_.set(i, i, 1);
        }
    }

    bool wanted() const { return wanted_; }
    /// Element k of vector i, once all is finished.
    C get(std::size_t i, std::size_t k) const { return vectors_.get(i, k); }

    /// Where to note the rotations of the next phase, by block; without any at first.
    std::span<BlockRotations> next_phase() {
        const auto phase = std::span(added_).subspan(count_ * blocks_, blocks_);
        for (BlockRotations& found : phase) {
            found.count = 0;
        }
        return phase;
    }
    /// That phase is complete; p was its common row.
    void add_phase(std::size_t p) {
        rows_[count_] = p;
        if (wanted_ && ++count_ == phases) {
            start_pending();
        }
    }

    /// Does a share of the work that pays off before as many calls as there are rotations in the
    /// phases to come.
    void advance() {
        for (std::size_t i = 0; i < share_ && next_ < end_; ++i) {
            apply_next();
        }
    }

    void finish() {
        start_pending();
        finish_pending();
    }

  private:
    std::size_t pieces_of_row() const {
        return (vectors_.padded_columns() + rotated_columns - 1) / rotated_columns;
    }

    void finish_pending() {
        while (next_ < end_) {
            apply_next();
        }
    }

    void start_pending() {
        finish_pending();
        std::swap(added_, pending_);
        pending_rows_ = rows_;
        pending_count_ = count_;
        count_ = 0;
        next_ = 0;
        end_ = pending_count_ * blocks_ * pieces_of_row();
        // The phases to come are a little shorter.
        share_ = pieces_of_row() / block + 1;
    }

    void apply_next() {
        const std::size_t in_piece = next_ % (pending_count_ * blocks_);
        const std::size_t column = next_ / (pending_count_ * blocks_) * rotated_columns;
        ++next_;
        const BlockRotations& found = pending_[in_piece];
        if (found.count != 0) {
            kernels_.rotate(vectors_.at(pending_rows_[in_piece / blocks_], column),
                            vectors_.at(in_piece % blocks_ * block, column), vectors_.shape(),
                            found.rotations.data(), found.count,
                            std::min(rotated_columns, vectors_.padded_columns() - column));
        }
    }

    const SimdKernels::RotationKernels<C>& kernels_;
    bool wanted_;
    std::size_t blocks_;
    PlanarMatrix<C> vectors_; ///< one vector a row

    // By phase and block.
    std::vector<BlockRotations> added_;
    std::vector<BlockRotations> pending_;
    std::array<std::size_t, phases> rows_{};
    std::array<std::size_t, phases> pending_rows_{};
    std::size_t count_ = 0;
    std::size_t pending_count_ = 0;
    // Pieces of work on what is pending.
    std::size_t next_ = 0;
    std::size_t end_ = 0;
    std::size_t share_ = 0;
};

} // namespace Tessaline::CpuStructured
