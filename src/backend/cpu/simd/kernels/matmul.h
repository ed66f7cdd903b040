// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrix products by register tiles.
//
// Each element of C takes one step for each inner index, in increasing order; only the order among
// elements is free. A tile of C stays in registers while a block of the inner index runs; between
// blocks it lies in C, which loses nothing.

#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/kernels/forms.h"
#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/plain/scratch_memory.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// C = A B, or C = C - A B.
template <typename Elements, Update Kind>
class Matmul {
    using Set = typename Elements::Set;
    using Value = typename Elements::Value;
    using LaneMask = typename Elements::LaneMask;
    using Input = typename Elements::Input;
    using Output = typename Elements::Output;
    using Component = typename Set::Component;
    using PackedInput = typename Elements::PackedInput;
    using PackedOutput = typename Elements::PackedOutput;
    static constexpr Index lanes = Set::lanes;
    static constexpr Index block_terms = inner_block(lanes);
    static constexpr Index tile_rows = Elements::tile_rows;
    static constexpr Index tile_vectors = Elements::tile_vectors;
    static constexpr Index vector_bytes = lanes * Elements::parts * sizeof(Component);

    /// Tiles that pass down a panel before the next panel's turn. Panels of 256-bit vectors stay in
    /// the first cache meanwhile; wider ones stream by from the second cache while the rows of A
    /// stay in the first.
    static constexpr Index tiles_in_turn =
        block_terms * tile_vectors * vector_bytes <= first_cache_bytes ? tiles_down_a_panel : 1;

  public:
    Matmul(Strided<Input> A, Strided<Input> B, Strided<Output> C, ProductExtents extents)
        : a_(A),
          b_(B),
          c_(C),
          extents_(extents),
          packs_(Elements::packing == Packing::always ||
                 (Elements::packing == Packing::where_it_pays && packing_pays())) {}

    void run() const {
        if (extents_.inner == 0 && Kind == Update::replace) {
            clear();
        }
        const Index vectors = (extents_.cols + lanes - 1) / lanes;
        for (Index vector = 0; vector < vectors; vector += block_vectors) {
            const Index end = least(vector + block_vectors, vectors);
            for (Index k = 0; k < extents_.inner; k += block_terms) {
                if (vector + k != 0) {
                    stop_point();
                }
                multiply_block({k, least(extents_.inner - k, block_terms), vector, end});
            }
        }
    }

  private:
    /// Vectors across B that are packed at once.
    static constexpr Index block_vectors =
        packing_bytes / (block_terms * vector_bytes) / tile_vectors * tile_vectors;

    /// A block of B: `count` inner indices by the vectors of columns [vector, end).
    struct Block {
        Index first;
        Index count;
        Index vector;
        Index end;
    };

    /// The columns of a block that a tile meets at once.
    struct Panel {
        PackedInput B; ///< the panel's first row
        Index stride;
        Index first; ///< inner index
        Index count; ///< inner indices
        Index column;
        Index vectors;
    };

    /// The rows of the next smaller tile.
    static constexpr Index fewer_rows(Index rows) { return rows > 4 ? 4 : rows / 2; }
    static constexpr Index least(Index a, Index b) { return a < b ? a : b; }

    /// Enough rows pass over B, and it is too large to stay where it lies.
    bool packing_pays() const {
        return extents_.rows >= 2 * tile_rows && least(extents_.inner, block_terms) * b_.stride *
                                                         Elements::parts * sizeof(Component) >
                                                     first_cache_bytes;
    }

    void clear() const {
        for (Index row = 0; row < extents_.rows; ++row) {
            for_element_vectors<Elements>(extents_.cols, [&](Index column, auto mask) {
                Elements::store(c_.data, row * c_.stride + column, Elements::zero(), mask);
            });
        }
    }

    void multiply_block(const Block& block) const {
        if constexpr (Elements::packing != Packing::never) {
            if (packs_) {
                multiply_packed(block);
                return;
            }
        }
        if constexpr (Elements::packing != Packing::always) {
            multiply_rows<tile_rows>(block, [&](Index vector, Index width) {
                const Index start = block.first * b_.stride + vector * lanes;
                return Panel{Elements::offset(b_.data, start),
                             b_.stride,
                             block.first,
                             block.count,
                             vector * lanes,
                             width};
            });
        }
    }

    void multiply_packed(const Block& block) const {
        const PackedOutput packed = Elements::packed(packing_memory());
        pack(block, packed);
        multiply_rows<tile_rows>(block, [&](Index vector, Index width) {
            const Index start = (vector - block.vector) * lanes * block.count;
            return Panel{Elements::offset_packed(packed, start),
                         width * lanes,
                         block.first,
                         block.count,
                         vector * lanes,
                         width};
        });
    }

    /// Calls `body(vector, width)` for each panel of a block, as wide as a tile or a vector less:
    /// a narrow panel is a slow one.
    template <typename Body>
    static void for_panels(const Block& block, const Body& body) {
        Index width = 0;
        for (Index vector = block.vector; vector < block.end; vector += width) {
            const Index panels = (block.end - vector + tile_vectors - 1) / tile_vectors;
            width = (block.end - vector + panels - 1) / panels;
            body(vector, width);
        }
    }

    /// Panels one after the other, the rows of each without gaps.
    void pack(const Block& block, PackedOutput packed) const {
        for_panels(block, [&](Index vector, Index width) {
            const Index columns = least(width * lanes, extents_.cols - vector * lanes);
            const Index start = (vector - block.vector) * lanes * block.count;
            for (Index k = 0; k < block.count; ++k) {
                const Input row =
                    Elements::offset(b_.data, (block.first + k) * b_.stride + vector * lanes);
                for_element_vectors<Elements>(columns, [&](Index i, auto mask) {
                    Elements::store_packed(packed, start + k * width * lanes + i,
                                           Elements::load(row, i, mask));
                });
            }
        });
    }

    /// The rows from `row` on, as many at once as go, the rest in ever smaller tiles.
    template <Index Rows, typename PanelAt>
    void multiply_rows(const Block& block, const PanelAt& panel_at, Index row = 0) const {
        while (row + Rows <= extents_.rows) {
            const Index tiles = least((extents_.rows - row) / Rows, tiles_in_turn);
            const Index end = row + tiles * Rows;
            for_panels(block, [&](Index vector, Index width) {
                const Panel panel = panel_at(vector, width);
                for (Index first = row; first < end; first += Rows) {
                    multiply_panel<Rows>(panel, first);
                }
            });
            row = end;
        }
        if constexpr (Rows > 1) {
            multiply_rows<fewer_rows(Rows)>(block, panel_at, row);
        }
    }

    template <Index Rows>
    void multiply_panel(const Panel& panel, Index row) const {
        const Index columns = extents_.cols - panel.column;
        if (panel.vectors == tile_vectors && columns >= tile_vectors * lanes) {
            multiply_tile<Rows, tile_vectors>(panel, AllLanes{}, row);
        } else {
            const Index last = least(columns - (panel.vectors - 1) * lanes, lanes);
            multiply_narrow<Rows, tile_vectors>(panel, Elements::first_lanes(last), row);
        }
    }

    template <Index Rows, Index Vectors>
    void multiply_narrow(const Panel& panel, LaneMask last, Index row) const {
        if (panel.vectors == Vectors) {
            multiply_tile<Rows, Vectors>(panel, last, row);
        } else if constexpr (Vectors > 1) {
            multiply_narrow<Rows, Vectors - 1>(panel, last, row);
        }
    }

    /// Not inlined, for its registers' sake.
    template <Index Rows, Index Vectors, typename LastLanes>
    [[gnu::noinline]] void multiply_tile(const Panel& panel, LastLanes last, Index row) const {
        Value sums[Rows][Vectors];
        if (starts_from_zero(panel)) {
            for_tile<Rows, Vectors>(
                last, [&](auto r, auto v, auto) { sums[r.value][v.value] = Elements::zero(); });
        } else {
            for_tile<Rows, Vectors>(last, [&](auto r, auto v, auto mask) {
                sums[r.value][v.value] =
                    Elements::load(c_.data, c_index(panel, row + r.value, v.value), mask);
            });
        }
        prefetch_next<Rows, Vectors>(panel, row);
        const Index a_stride = a_.stride;
        const Input A = Elements::offset(a_.data, row * a_stride + panel.first);
        const PackedInput B = panel.B;
        const Index stride = panel.stride;
        for (Index k = 0, count = panel.count; k < count; ++k) {
            Value b[Vectors];
            for_vectors_of<Vectors>(last, [&](auto v, auto mask) {
                b[v.value] = Elements::load_packed(B, k * stride + v.value * lanes, mask);
            });
            for_places<Rows>([&](auto r) {
                const Value a = Elements::broadcast(A, r.value * a_stride + k);
                for_places<Vectors>([&](auto v) {
                    sums[r.value][v.value] = step(sums[r.value][v.value], a, b[v.value]);
                });
            });
        }
        if constexpr (Elements::recovers_infinities) {
            recover(sums, panel, row);
        }
        for_tile<Rows, Vectors>(last, [&](auto r, auto v, auto mask) {
            Elements::store(c_.data, c_index(panel, row + r.value, v.value), sums[r.value][v.value],
                            mask);
        });
    }

    /// Asks for the next tile, below or to the right, whose sums the first terms will wait for.
    template <Index Rows, Index Vectors>
    void prefetch_next(const Panel& panel, Index row) const {
        if (panel.first != 0 || Kind == Update::subtract) {
            constexpr bool is_below = tiles_in_turn > 1;
            const Index next = c_index(panel, row + (is_below ? Rows : 0), is_below ? 0 : Vectors);
            for_places<Rows>([&](auto r) {
                for_places<Vectors>([&](auto v) {
                    Elements::prefetch(c_.data, next + r.value * c_.stride + v.value * lanes);
                });
            });
        }
    }

    static bool starts_from_zero(const Panel& panel) {
        return Kind == Update::replace && panel.first == 0;
    }

    static Value step(Value sum, Value a, Value b) {
        if constexpr (Kind == Update::replace) {
            return add_product<Set>(sum, a, b);
        } else {
            return subtract_product<Set>(sum, a, b);
        }
    }

    /// Forms sums anew whose parts are both NaN, which they stay once they are so.
    template <Index Rows, Index Vectors>
    void recover(Value (&sums)[Rows][Vectors], const Panel& panel, Index row) const {
        unsigned lost = 0;
        for_places<Rows>([&](auto r) {
            for_places<Vectors>([&](auto v) { lost |= lost_lanes<Set>(sums[r.value][v.value]); });
        });
        if (__builtin_expect(lost == 0, 1)) {
            return;
        }
        const bool from_zero = starts_from_zero(panel);
        for_places<Rows>([&](auto r) {
            for_places<Vectors>([&](auto v) {
                const Index column = panel.column + v.value * lanes;
                const Input before =
                    Elements::offset(c_.data, (row + r.value) * c_.stride + column);
                Value& sum = sums[r.value][v.value];
                sum = InfinityRecovery<Set>::template recovered<Kind>(
                    sum, least(lanes, extents_.cols - column),
                    {.A = Elements::offset(a_.data, (row + r.value) * a_.stride + panel.first),
                     .B = Elements::offset(b_.data, panel.first * b_.stride + column),
                     .b_step = b_.stride,
                     .b_next = 1,
                     .terms = panel.count,
                     .before = from_zero ? nullptr : before});
            });
        });
    }

    Index c_index(const Panel& panel, Index row, Index vector) const {
        return row * c_.stride + panel.column + vector * lanes;
    }

    /// Calls `body(vector, lanes)` for each vector of a row of a tile.
    template <Index Vectors, typename LastLanes, typename Body>
    [[gnu::always_inline]] static void for_vectors_of(LastLanes last, const Body& body) {
        for_places<Vectors - 1>([&](auto v) { body(v, AllLanes{}); });
        body(Place<Vectors - 1>{}, last);
    }

    /// Calls `body(row, vector, lanes)` for each vector of a tile.
    template <Index Rows, Index Vectors, typename LastLanes, typename Body>
    [[gnu::always_inline]] static void for_tile(LastLanes last, const Body& body) {
        for_places<Rows>([&](auto r) {
            for_vectors_of<Vectors>(last, [&](auto v, auto mask) { body(r, v, mask); });
        });
    }

    Strided<Input> a_;
    Strided<Input> b_;
    Strided<Output> c_;
    ProductExtents extents_;
    bool packs_;
};

/// C = A B or C = C - A B for blocks that a caller cuts; see unfused_kernels.h.
template <typename Elements, Update Kind>
void strided_product(StridedRows<const typename Elements::Element> A,
                     StridedRows<const typename Elements::Element> B,
                     StridedRows<typename Elements::Element> C, ProductExtents extents) {
    Matmul<Elements, Kind>({Elements::input(A.data), A.stride}, {Elements::input(B.data), B.stride},
                           {Elements::output(C.data), C.stride}, extents)
        .run();
}

/// strided_product() of interleaved elements, which are packed where enough rows pass over B.
template <typename Set, Update Kind>
void strided_interleaved_product(StridedRows<const std::complex<typename Set::Component>> A,
                                 StridedRows<const std::complex<typename Set::Component>> B,
                                 StridedRows<std::complex<typename Set::Component>> C,
                                 ProductExtents extents) {
    if (extents.rows < 2 * InterleavedElements<Set>::tile_rows) {
        strided_product<UnpackedInterleavedElements<Set>, Kind>(A, B, C, extents);
    } else {
        strided_product<InterleavedElements<Set>, Kind>(A, B, C, extents);
    }
}

/// The rows [begin, end) of a product.
template <typename Set>
void matmul_real(RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C, Index begin, Index end) {
    Matmul<RealElements<Set>, Update::replace>({A.data + begin * A.cols, A.cols}, {B.data, B.cols},
                                               {C.data + begin * C.cols, C.cols},
                                               {end - begin, A.cols, C.cols})
        .run();
}

template <typename Elements>
void matmul_complex(typename Elements::Form::MatrixInput A, typename Elements::Form::MatrixInput B,
                    typename Elements::Form::MatrixOutput C, Index begin, Index end) {
    const auto multiply = [&]<typename Tiled>(Tiled) {
        Matmul<Tiled, Update::replace>(
            {Elements::of(A, begin * A.cols), A.cols}, {Elements::of(B), B.cols},
            {Elements::of(C, begin * C.cols), C.cols}, {end - begin, A.cols, C.cols})
            .run();
    };
    if (end - begin < 2 * Elements::tile_rows) {
        multiply(typename Elements::Unpacked{});
    } else {
        multiply(Elements{});
    }
}

} // namespace Tessaline::SimdKernels
