// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrix products by register tiles.
//
// Each element of C starts from zero and takes one step for each inner index, in increasing order;
// only the order among elements is free. A tile of C stays in registers while a block of the inner
// index runs; between blocks it lies in C, which loses nothing.

#include "backend/cpu/simd/simd_matmul_elements.h"

namespace Tessaline::SimdKernels {

/// Inner indices of one block: the packed panel of B, 256 rows of at most 48 columns, takes 48 KiB
/// a plane and streams from the second-level cache while the rows of A pass by.
inline constexpr Index matmul_block = 256;

template <typename Elements>
class Matmul {
    using Set = typename Elements::Set;
    using Value = typename Elements::Value;
    using Input = typename Elements::Input;
    using Output = typename Elements::Output;
    static constexpr Index lanes = Set::lanes;
    static constexpr Index tile_rows = Elements::tile_rows;
    static constexpr Index tile_vectors = Elements::tile_vectors;
    static constexpr Index tile_columns = tile_vectors * lanes;

  public:
    static void matmul(typename Elements::MatrixInput A, typename Elements::MatrixInput B,
                       typename Elements::MatrixOutput C, Index begin, Index end) {
        const Matmul whole(A, B, C, begin, end);
        if (A.cols == 0) {
            whole.clear();
        }
        for (Index k = 0; k < A.cols; k += matmul_block) {
            for (Index column = 0; column < C.cols; column += tile_columns) {
                whole.multiply_panel(k, least(A.cols - k, matmul_block), column,
                                     least(C.cols - column, tile_columns));
            }
        }
    }

  private:
    /// One block of the inner index against one panel of columns.
    struct Panel {
        Input B; ///< the panel's first row
        Index stride;
        Index first; ///< inner index
        Index count; ///< inner indices
        Index column;
    };

    static Index least(Index a, Index b) { return a < b ? a : b; }

    void clear() const {
        for (Index row = begin_; row < end_; ++row) {
            for_vectors<Set>(c_stride_, [&](std::size_t column, auto part) {
                Elements::store(c_, row * c_stride_ + column, Elements::zero(), part);
            });
        }
    }

    /// Packs a panel where enough rows pay for it, and where it would be read beyond its columns.
    void multiply_panel(Index first, Index count, Index column, Index columns) const {
        if (columns == tile_columns && end_ - begin_ < 2 * tile_rows) {
            const Input start = Elements::offset(b_, first * b_stride_ + column);
            multiply_rows<tile_rows, tile_vectors>({start, b_stride_, first, count, column},
                                                   AllLanes{}, begin_);
            return;
        }
        typename Elements::template Packed<matmul_block * tile_columns> packed;
        const Index vectors = (columns + lanes - 1) / lanes;
        pack(packed, first, count, column, columns);
        const Panel panel{packed.input(), vectors * lanes, first, count, column};
        if (columns == tile_columns) {
            multiply_rows<tile_rows, tile_vectors>(panel, AllLanes{}, begin_);
        } else {
            multiply_narrow<tile_vectors>(panel, vectors,
                                          Set::first_lanes(columns - (vectors - 1) * lanes));
        }
    }

    template <typename Packed>
    void pack(Packed& packed, Index first, Index count, Index column, Index columns) const {
        const Index width = (columns + lanes - 1) / lanes * lanes;
        for (Index k = 0; k < count; ++k) {
            const Input row = Elements::offset(b_, (first + k) * b_stride_ + column);
            for_vectors<Set>(columns, [&](std::size_t i, auto part) {
                Elements::store(packed.output(), k * width + i, Elements::load(row, i, part),
                                AllLanes{});
            });
        }
    }

    template <Index Vectors>
    void multiply_narrow(const Panel& panel, Index vectors, typename Set::Mask last) const {
        if (vectors == Vectors) {
            multiply_rows<tile_rows, Vectors>(panel, last, begin_);
        } else if constexpr (Vectors > 1) {
            multiply_narrow<Vectors - 1>(panel, vectors, last);
        }
    }

    /// The rows from `row` on, as many at once as go, the rest in ever smaller tiles.
    template <Index Rows, Index Vectors, typename LastLanes>
    void multiply_rows(const Panel& panel, LastLanes last, Index row) const {
        for (; row + Rows <= end_; row += Rows) {
            multiply_tile<Rows, Vectors>(panel, last, row);
        }
        if constexpr (Rows > 1) {
            multiply_rows<Rows / 2, Vectors>(panel, last, row);
        }
    }

    template <Index Rows, Index Vectors, typename LastLanes>
    void multiply_tile(const Panel& panel, LastLanes last, Index row) const {
        Value sums[Rows][Vectors];
        for_tile<Rows, Vectors>(last, [&](Index r, Index v, auto part) {
            sums[r][v] =
                panel.first == 0
                    ? Elements::zero()
                    : Elements::load(c_, (row + r) * c_stride_ + panel.column + v * lanes, part);
        });
        const Input A = Elements::offset(a_, row * a_stride_ + panel.first);
        for (Index k = 0; k < panel.count; ++k) {
            Value b[Vectors];
            for (Index v = 0; v < Vectors; ++v) {
                b[v] = Elements::load(panel.B, k * panel.stride + v * lanes, AllLanes{});
            }
            for (Index r = 0; r < Rows; ++r) {
                const Value a = Elements::broadcast(A, r * a_stride_ + k);
                for (Index v = 0; v < Vectors; ++v) {
                    sums[r][v] = add_product<Set>(sums[r][v], a, b[v]);
                }
            }
        }
        for_tile<Rows, Vectors>(last, [&](Index r, Index v, auto part) {
            Elements::store(c_, (row + r) * c_stride_ + panel.column + v * lanes, sums[r][v], part);
        });
    }

    /// Calls `body(row, vector, lanes)` for each vector of a tile.
    template <Index Rows, Index Vectors, typename LastLanes, typename Body>
    static void for_tile(LastLanes last, const Body& body) {
        for (Index r = 0; r < Rows; ++r) {
            for (Index v = 0; v + 1 < Vectors; ++v) {
                body(r, v, AllLanes{});
            }
            body(r, Vectors - 1, last);
        }
    }

    Matmul(typename Elements::MatrixInput A, typename Elements::MatrixInput B,
           typename Elements::MatrixOutput C, Index begin, Index end)
        : a_(Elements::input(A)),
          a_stride_(A.cols),
          b_(Elements::input(B)),
          b_stride_(B.cols),
          c_(Elements::output(C)),
          c_stride_(C.cols),
          begin_(begin),
          end_(end) {}

    Input a_;
    Index a_stride_;
    Input b_;
    Index b_stride_;
    Output c_;
    Index c_stride_;
    Index begin_;
    Index end_;
};

} // namespace Tessaline::SimdKernels
