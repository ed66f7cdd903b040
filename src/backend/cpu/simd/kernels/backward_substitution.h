// SPDX-License-Identifier: Apache-2.0
#pragma once

// Backward substitution by blocks of rows of a column-major matrix.
//
// An element takes its terms in increasing column, so the last solved element is the first one
// subtracted, and all subtractions are one chain. The products are made in vectors and stored in
// the order of the chain, those of the next block between the links of the chain of this one, which
// leave the processor much time:
//
//      chain of this block    x9 -> x8 -> x7 -> x6      one subtraction after the other
//      products of the next   ab    cd    ef    gh      in vectors, in the time between

#include "backend/cpu/simd/kernels/complex_columns.h"
#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/plain/scratch_memory.h"

#include <utility>

namespace Tessaline::SimdKernels {

namespace {

/// Turns square blocks of vectors.
template <typename Real>
class BlockTranspose {
    static constexpr Index block = elimination_block;
    typedef Real Column __attribute__((vector_size(block * sizeof(Real))));

  public:
    [[gnu::always_inline]] static inline void turn(Column (&columns)[block]) {
        exchange<1>(columns);
        exchange<2>(columns);
        exchange<4>(columns);
    }

  private:
    /// Exchanges the squares of `Size` elements beside the diagonal in each square of twice that.
    template <int Size>
    [[gnu::always_inline]] static inline void exchange(Column (&columns)[block]) {
        for_places<block>([&](auto i) {
            if constexpr ((i.value & Size) == 0) {
                exchange<Size>(columns[i.value], columns[i.value + Size],
                               std::make_integer_sequence<int, 8>{});
            }
        });
    }
    template <int Size, int... Lane>
    [[gnu::always_inline]] static inline void exchange(Column& upper, Column& lower,
                                                       std::integer_sequence<int, Lane...>) {
        const Column old = upper;
        upper =
            __builtin_shufflevector(old, lower, ((Lane & Size) != 0 ? 8 + Lane - Size : Lane)...);
        lower =
            __builtin_shufflevector(old, lower, ((Lane & Size) != 0 ? 8 + Lane : Lane + Size)...);
    }
};

/// Elements of real matrices, and the products of a block of them with as many of a vector, each
/// row of which is stored `stride` apart.
template <typename InstructionSet>
struct RealRows {
    using Real = typename InstructionSet::Component;
    using Element = Real;
    using Value = Real;
    static constexpr Index block = elimination_block;

    static Value value(const Element* at) { return *at; }
    static void store(Element* at, Value value) { *at = value; }
    static Value product(Value a, Value b) { return a * b; }
    static void store_product(Real* products, Index, Value value) { *products = value; }
    static Value without_terms(Value value, const Real* products, Index, Index count) {
        for (Index link = 0; link < count; ++link) {
            value -= products[link];
        }
        return value;
    }

    static void multiply_block(const Element* columns, Index columns_stride, const Element* x,
                               Real* products, Index stride, Index) {
        typedef Real Column __attribute__((vector_size(block * sizeof(Real))));
        Column turned[block];
        for_places<block>([&](auto k) {
            __builtin_memcpy(&turned[k.value], columns + k.value * columns_stride, sizeof(Column));
            turned[k.value] = turned[k.value] * x[k.value];
        });
        BlockTranspose<Real>::turn(turned);
        for_places<block>([&](auto k) {
            __builtin_memcpy(products + k.value * stride, &turned[k.value], sizeof(Column));
        });
    }
};

/// Rows of complex elements, whose products have their imaginary parts `plane` behind the real
/// ones. Set says whether products fuse.
template <typename Set>
struct ComplexRows {
    using Real = typename Set::Component;
    using Element = std::complex<Real>;
    using Value = typename BuiltInComplex<Real>::Type;
    static constexpr Index block = elimination_block;

    static Value value(const Element* at) {
        return built_in_element(reinterpret_cast<const Real*>(at));
    }
    static void store(Element* at, Value value) {
        store_result<Set>(reinterpret_cast<Real*>(at), value);
    }
    static Value product(Value a, Value b) { return recovering_product<Set>(a, b); }
    static void store_product(Real* products, Index plane, Value value) {
        products[0] = __real__ value;
        products[plane] = __imag__ value;
    }
    static Value without_terms(Value value, const Real* products, Index plane, Index count) {
        // Apart, or the compiler keeps them in memory, where a link of the chain takes several
        // times as long.
        Real real = __real__ value;
        Real imag = __imag__ value;
        for (Index link = 0; link < count; ++link) {
            real -= products[link];
            imag -= products[plane + link];
        }
        __real__ value = real;
        __imag__ value = imag;
        return value;
    }

    static void multiply_block(const Element* columns, Index columns_stride, const Element* x,
                               Real* products, Index stride, Index plane) {
        using Columns = ComplexColumns<Set>;
        typename Columns::Plane real[block];
        typename Columns::Plane imag[block];
        typename Columns::Column sums{};
        for_places<block>([&](auto k) {
            const Real* const factor = reinterpret_cast<const Real*>(x + k.value);
            typename Columns::Column column;
            typename Columns::Column of_x;
            typename Columns::Column terms;
            of_x.real = factor[0] - typename Columns::Plane{};
            of_x.imag = factor[1] - typename Columns::Plane{};
            Columns::load(reinterpret_cast<const Real*>(columns + k.value * columns_stride),
                          column);
            Columns::multiply(column, of_x, terms);
            sums.real += terms.real - terms.real;
            sums.imag += terms.imag - terms.imag;
            real[k.value] = terms.real;
            imag[k.value] = terms.imag;
        });
        if (!Columns::is_finite(sums)) {
            multiply_plainly(columns, columns_stride, x, products, stride, plane);
            return;
        }
        BlockTranspose<Real>::turn(real);
        BlockTranspose<Real>::turn(imag);
        for_places<block>([&](auto k) {
            __builtin_memcpy(products + k.value * stride, &real[k.value], sizeof real[0]);
            __builtin_memcpy(products + plane + k.value * stride, &imag[k.value], sizeof imag[0]);
        });
    }

  private:
    [[gnu::noinline]] static void multiply_plainly(const Element* columns, Index columns_stride,
                                                   const Element* x, Real* products, Index stride,
                                                   Index plane) {
        for (Index k = 0; k < block; ++k) {
            for (Index row = 0; row < block; ++row) {
                store_product(products + row * stride + k, plane,
                              product(value(columns + k * columns_stride + row), value(x + k)));
            }
        }
    }
};

template <typename Rows>
class BackwardSubstitution {
    using Element = typename Rows::Element;
    using Real = typename Rows::Real;
    using Value = typename Rows::Value;
    static constexpr Index block = elimination_block;
    static constexpr Index links = 64; ///< of the chain, while `block` columns are multiplied

  public:
    static void solve(const UpperTriangle<Element>& U, Element* b,
                      DivideByDiagonal<Element> divide) {
        BackwardSubstitution(U, b, divide).solve();
    }

  private:
    static constexpr Index parts = sizeof(Element) / sizeof(Real);
    /// Products of a block of rows that find room beside as many of the next block.
    static constexpr Index most_products = packing_bytes / sizeof(Element) / 2;
    /// A line of memory beyond the columns, lest all rows meet in one set of the first-level cache.
    static constexpr Index padding = 64 / sizeof(Real);
    static constexpr Index most_columns = most_products / block - padding;

    BackwardSubstitution(const UpperTriangle<Element>& U, Element* b,
                         DivideByDiagonal<Element> divide)
        : u_(U.data),
          stride_(U.stride),
          order_(U.order),
          b_(b),
          divide_(divide),
          products_stride_(least(U.order, most_columns) + padding),
          plane_(block * products_stride_),
          products_(plane_ <= stacked_products ? own_ : static_cast<Real*>(packing_memory())),
          next_products_(products_ + parts * plane_) {}

    static constexpr Index least(Index a, Index b) { return a < b ? a : b; }
    /// The products of a block that ends before some row go up to this column.
    Index last_product(Index end) const { return least(order_, end + most_columns); }

    void solve() {
        Index end = order_;
        for (; end >= block; end -= block) {
            // What this block solves for, the next one has to multiply first.
            next_column_ = end;
            for (Index row = end; row-- > end - block;) {
                solve_row(row, end);
            }
            if (end >= 2 * block) {
                multiply_next(end, last_product(end - block));
                next_column_ = end - block;
                multiply_next(end, end);
            }
            Real* const former = products_;
            products_ = next_products_;
            next_products_ = former;
        }
        while (end-- > 0) {
            finish_row(end, with_terms(Rows::value(b_ + end), end, end + 1, order_));
        }
    }

    const Element* u(Index row, Index column) const { return u_ + column * stride_ + row; }

    void solve_row(Index row, Index end) {
        Value value = with_terms(Rows::value(b_ + row), row, row + 1, end);
        const Real* const products = products_ + (row + block - end) * products_stride_;
        const Index columns = last_product(end) - end;
        for (Index column = 0; column < columns; column += links) {
            value = Rows::without_terms(value, products + column, plane_,
                                        least(columns - column, links));
            if (end >= 2 * block) {
                multiply_next(end, least(next_column_ + block, last_product(end - block)));
            }
        }
        finish_row(row, with_terms(value, row, end + columns, order_));
    }

    /// `value` less a row's terms in the columns [begin, end).
    Value with_terms(Value value, Index row, Index begin, Index end) const {
        for (Index column = begin; column < end; ++column) {
            value -= Rows::product(Rows::value(u(row, column)), Rows::value(b_ + column));
        }
        return value;
    }

    void finish_row(Index row, Value value) const {
        Rows::store(b_ + row, divide_(value, Rows::value(u(row, row)), row));
    }

    /// Multiplies the columns of the block above row end - `block` up to `end_column`.
    void multiply_next(Index end, Index end_column) {
        const Index first_row = end - 2 * block;
        Real* const products = next_products_ - (end - block);
        for (; next_column_ + block <= end_column; next_column_ += block) {
            Rows::multiply_block(u(first_row, next_column_), stride_, b_ + next_column_,
                                 products + next_column_, products_stride_, plane_);
        }
        for (; next_column_ < end_column; ++next_column_) {
            for (Index row = 0; row < block; ++row) {
                Rows::store_product(products + row * products_stride_ + next_column_, plane_,
                                    Rows::product(Rows::value(u(first_row + row, next_column_)),
                                                  Rows::value(b_ + next_column_)));
            }
        }
    }

    const Element* u_;
    Index stride_;
    Index order_;
    Element* b_;
    DivideByDiagonal<Element> divide_;
    Index products_stride_;
    Index plane_;
    Real* products_; ///< by rows of the block, in the order of the chain
    Real* next_products_;
    Index next_column_ = 0;
    alignas(64) Real own_[2 * parts * stacked_products]; ///< for few columns
};

} // namespace

} // namespace Tessaline::SimdKernels
