// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrix products by register tiles.
//
// Each element of C takes one step for each inner index, in increasing order; only the order among
// elements is free. A tile of C stays in registers while a block of the inner index runs; between
// blocks it lies in C, which loses nothing.

#include "backend/cpu/simd/simd_infinity_recovery.h"
#include "backend/cpu/simd/simd_matmul_elements.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// Inner indices of one block: the packed panel of B, 256 rows of at most 48 floats, takes 48 KiB
/// a plane and streams from the second-level cache while the rows of A pass by.
inline constexpr Index matmul_block = 256;

/// A block of B of this many bytes stays in the first-level cache as it lies, and is not packed.
inline constexpr Index matmul_unpacked_bytes = Index{32} << 10U;

/// Rows of elements that lie `stride` of them apart.
template <typename Elements>
struct Strided {
    Elements data;
    Index stride;
};

/// C = A B, or C = C - A B.
template <typename Elements, Update Kind>
class Matmul {
    using Set = typename Elements::Set;
    using Value = typename Elements::Value;
    using Part = typename Elements::Part;
    using Input = typename Elements::Input;
    using Output = typename Elements::Output;
    using PackedInput = typename Elements::PackedInput;
    static constexpr Index lanes = Set::lanes;
    static constexpr Index tile_rows = Elements::tile_rows;
    static constexpr Index tile_vectors = Elements::tile_vectors;

  public:
    Matmul(Strided<Input> A, Strided<Input> B, Strided<Output> C, ProductExtents extents)
        : a_(A),
          b_(B),
          c_(C),
          extents_(extents),
          packs_(Elements::must_be_packed ||
                 (extents.rows >= 2 * tile_rows &&
                  least(extents.inner, matmul_block) * B.stride * sizeof(typename Set::Component) >
                      matmul_unpacked_bytes)) {}

    void run() const {
        if (extents_.inner == 0 && Kind == Update::replace) {
            clear();
        }
        const Index vectors = (extents_.cols + lanes - 1) / lanes;
        for (Index k = 0; k < extents_.inner; k += matmul_block) {
            for (Index vector = 0; vector < vectors;) {
                // As wide as the others, give or take a vector: a narrow panel is a slow one.
                const Index panels = (vectors - vector + tile_vectors - 1) / tile_vectors;
                const Index width = (vectors - vector + panels - 1) / panels;
                multiply_panel(k, least(extents_.inner - k, matmul_block), vector * lanes, width);
                vector += width;
            }
        }
    }

  private:
    /// One block of the inner index against one panel of columns.
    struct Panel {
        PackedInput B; ///< the panel's first row
        Index stride;
        Index first; ///< inner index
        Index count; ///< inner indices
        Index column;
    };

    static constexpr Index least(Index a, Index b) { return a < b ? a : b; }

    void clear() const {
        for (Index row = 0; row < extents_.rows; ++row) {
            for_row_vectors(extents_.cols, [&](Index column, auto part) {
                Elements::store(c_.data, row * c_.stride + column, Elements::zero(), part);
            });
        }
    }

    /// Calls `body(column, part)` for each vector of `columns`.
    template <typename Body>
    static void for_row_vectors(Index columns, const Body& body) {
        Index column = 0;
        for (; column + lanes <= columns; column += lanes) {
            body(column, AllLanes{});
        }
        if (column < columns) {
            body(column, Elements::first_lanes(columns - column));
        }
    }

    void multiply_panel(Index first, Index count, Index column, Index vectors) const {
        const Index columns = least(vectors * lanes, extents_.cols - column);
        if constexpr (!Elements::must_be_packed) {
            if (!packs_) {
                const auto start = Elements::offset(b_.data, first * b_.stride + column);
                multiply_columns({start, b_.stride, first, count, column}, vectors, columns);
                return;
            }
        }
        typename Elements::template Packed<matmul_block * tile_vectors * lanes> packed;
        for (Index k = 0; k < count; ++k) {
            const Input row = Elements::offset(b_.data, (first + k) * b_.stride + column);
            for_row_vectors(columns, [&](Index i, auto part) {
                packed.store(k * vectors * lanes + i, Elements::load(row, i, part));
            });
        }
        multiply_columns({packed.input(), vectors * lanes, first, count, column}, vectors, columns);
    }

    void multiply_columns(const Panel& panel, Index vectors, Index columns) const {
        if (columns == tile_vectors * lanes) {
            multiply_rows<tile_rows, tile_vectors>(panel, AllLanes{}, 0);
        } else {
            multiply_narrow<tile_vectors>(panel, vectors,
                                          Elements::first_lanes(columns - (vectors - 1) * lanes));
        }
    }

    template <Index Vectors>
    void multiply_narrow(const Panel& panel, Index vectors, Part last) const {
        if (vectors == Vectors) {
            multiply_rows<tile_rows, Vectors>(panel, last, 0);
        } else if constexpr (Vectors > 1) {
            multiply_narrow<Vectors - 1>(panel, vectors, last);
        }
    }

    /// The rows from `row` on, as many at once as go, the rest in ever smaller tiles.
    template <Index Rows, Index Vectors, typename LastLanes>
    void multiply_rows(const Panel& panel, LastLanes last, Index row) const {
        for (; row + Rows <= extents_.rows; row += Rows) {
            multiply_tile<Rows, Vectors>(panel, last, row);
        }
        if constexpr (Rows > 1) {
            multiply_rows<Rows / 2, Vectors>(panel, last, row);
        }
    }

    template <Index Rows, Index Vectors, typename LastLanes>
    void multiply_tile(const Panel& panel, LastLanes last, Index row) const {
        Value sums[Rows][Vectors];
        const bool from_zero = Kind == Update::replace && panel.first == 0;
        if (from_zero) {
            for_tile<Rows, Vectors>(
                last, [&](auto r, auto v, auto) { sums[r.value][v.value] = Elements::zero(); });
        } else {
            for_tile<Rows, Vectors>(last, [&](auto r, auto v, auto part) {
                sums[r.value][v.value] =
                    Elements::load(c_.data, c_index(panel, row + r.value, v.value), part);
            });
        }
        const Index a_stride = a_.stride;
        const Input A = Elements::offset(a_.data, row * a_stride + panel.first);
        const PackedInput B = panel.B;
        const Index stride = panel.stride;
        for (Index k = 0, count = panel.count; k < count; ++k) {
            Value b[Vectors];
            for_vectors_of<Vectors>(last, [&](auto v, auto part) {
                b[v.value] = Elements::load_packed(B, k * stride + v.value * lanes, part);
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
        for_tile<Rows, Vectors>(last, [&](auto r, auto v, auto part) {
            Elements::store(c_.data, c_index(panel, row + r.value, v.value), sums[r.value][v.value],
                            part);
        });
    }

    static Value step(Value sum, Value a, Value b) {
        if constexpr (Kind == Update::replace) {
            return add_product<Set>(sum, a, b);
        } else {
            return subtract_product<Set>(sum, a, b);
        }
    }

    /// A sum whose parts are both NaN, which no step ends once it is so, is formed anew.
    template <Index Rows, Index Vectors>
    void recover(Value (&sums)[Rows][Vectors], const Panel& panel, Index row) const {
        unsigned lost = 0;
        for_places<Rows>([&](auto r) {
            for_places<Vectors>([&](auto v) {
                const Value sum = sums[r.value][v.value];
                lost |= Set::nan_lanes(sum.real) & Set::nan_lanes(sum.imag);
            });
        });
        if (__builtin_expect(lost == 0, 1)) {
            return;
        }
        for_places<Rows>([&](auto r) {
            for_places<Vectors>([&](auto v) {
                Value& sum = sums[r.value][v.value];
                const Index column = panel.column + v.value * lanes;
                sum =
                    InfinityRecovery<Set, Kind>{
                        .A = Elements::offset(a_.data, (row + r.value) * a_.stride + panel.first),
                        .B = Elements::offset(b_.data, panel.first * b_.stride + column),
                        .b_stride = b_.stride,
                        .C = Elements::offset(c_.data, (row + r.value) * c_.stride + column),
                        .starts_from_zero = Kind == Update::replace && panel.first == 0,
                        .terms = panel.count,
                        .columns = least(lanes, extents_.cols - column)}
                        .recovered(sum);
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
            for_vectors_of<Vectors>(last, [&](auto v, auto part) { body(r, v, part); });
        });
    }

    Strided<Input> a_;
    Strided<Input> b_;
    Strided<Output> c_;
    ProductExtents extents_;
    bool packs_;
};

/// The same of blocks that a caller cuts; see simd_unfused_kernels.h.
template <typename Elements, Update Kind>
void strided_product(StridedRows<const typename Elements::Element> A,
                     StridedRows<const typename Elements::Element> B,
                     StridedRows<typename Elements::Element> C, ProductExtents extents) {
    Matmul<Elements, Kind>({Elements::input(A.data), A.stride}, {Elements::input(B.data), B.stride},
                           {Elements::output(C.data), C.stride}, extents)
        .run();
}

/// The rows [begin, end) of a product of real matrices, or of complex ones in two planes.
template <typename Set>
void matmul_real(RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C, Index begin, Index end) {
    Matmul<RealElements<Set>, Update::replace>({A.data + begin * A.cols, A.cols}, {B.data, B.cols},
                                               {C.data + begin * C.cols, C.cols},
                                               {end - begin, A.cols, C.cols})
        .run();
}

template <typename Set>
void matmul_split(SplitMatrixInput A, SplitMatrixInput B, SplitMatrixOutput C, Index begin,
                  Index end) {
    const Index a = begin * A.cols;
    const Index c = begin * C.cols;
    Matmul<SplitElements<Set>, Update::replace>(
        {{A.real + a, A.imag + a}, A.cols}, {{B.real, B.imag}, B.cols},
        {{C.real + c, C.imag + c}, C.cols}, {end - begin, A.cols, C.cols})
        .run();
}

} // namespace Tessaline::SimdKernels
