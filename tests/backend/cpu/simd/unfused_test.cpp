// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

#include <cstring>
#include <numeric>

namespace Tessaline {
namespace {

using namespace Testing;
using namespace SimdKernels;

/// A matrix inside of a larger one, whose other elements nothing may touch.
template <typename T>
struct Block {
    Block(Size row_count, Size col_count, CounterRandom& random, bool with_specials)
        : rows(row_count),
          cols(col_count),
          memory(random_grid<T>(rows + 2, cols + 3, random, with_specials).elements) {}

    Size stride() const { return cols + 3; }
    T& operator()(Size i, Size j) { return memory[(i + 1) * stride() + j + 1]; }
    StridedRows<const T> input() const { return {memory.data() + stride() + 1, stride()}; }
    StridedRows<T> output() { return {memory.data() + stride() + 1, stride()}; }

    Size rows;
    Size cols;
    std::vector<T> memory;
};

template <typename T>
class UnfusedKernelsTest : public ::testing::Test {
  protected:
    /// Expects that with each instruction set `run(kernels, result)` makes `expected` of `before`.
    template <typename Run>
    static void expect(const std::vector<T>& before, const std::vector<T>& expected,
                       const char* what, const ProductExtents& shape, const Run& run) {
        for_each_unfused_table([&](const UnfusedTable& table) {
            auto found = with_guard(before);
            if constexpr (std::is_invocable_v<Run, const TriangleKernels<T>&, T*>) {
                const bool is_wide = &table == &avx512_unfused_table;
                const EliminationKernels<T>& kernels =
                    is_wide ? avx512_elimination_table : avx256_elimination_table;
                run(static_cast<const TriangleKernels<T>&>(kernels), found.data());
            } else {
                run(unfused_kernels<T>(table), found.data());
            }
            const auto* bytes = reinterpret_cast<const std::byte*>(found.data());
            const auto guarded = with_guard(expected);
            const auto* wanted = reinterpret_cast<const std::byte*>(guarded.data());
            const std::size_t size = guarded.size() * sizeof(T);
            const auto at =
                static_cast<std::size_t>(std::mismatch(bytes, bytes + size, wanted).first - bytes);
            EXPECT_EQ(at, size) << what << " of " << shape.rows << " x " << shape.inner << " and "
                                << shape.inner << " x " << shape.cols << ", element "
                                << at / sizeof(T) << ": "
                                << ::testing::PrintToString(found[at / sizeof(T) % found.size()]);
        });
    }

    /// Calls `body(shape, random, with_specials)` with sizes around tiles of every vector, primes,
    /// more than one inner block, packed and not, more rows than pass down a panel in turn, and
    /// long rows that start between two cache lines.
    template <typename Body>
    static void for_each_shape(const Body& body) {
        static constexpr ProductExtents shapes[] = {
            {1, 1, 1},     {0, 3, 4},     {3, 0, 4},    {3, 4, 0},      {7, 7, 7},    {8, 8, 8},
            {9, 17, 15},   {17, 31, 33},  {5, 2, 64},   {40, 3, 65},    {23, 29, 66}, {13, 385, 9},
            {19, 800, 51}, {33, 13, 545}, {1, 400, 50}, {213, 270, 67}, {3, 37, 1},   {3, 45, 2},
            {2, 41, 3},    {3, 29, 5},    {2, 1021, 19}};
        CounterRandom random(7);
        for (const ProductExtents& shape : shapes) {
            for (const bool with_specials : {false, true}) {
                // In long sums special values leave nothing but NaN.
                if (!with_specials || shape.inner < 50) {
                    body(shape, random, with_specials);
                }
            }
        }
    }

    /// Infinite; a complex number is so by one of its parts, and not a number by the other.
    static inline const T infinity = [] {
        using Real = Component<T>;
        Parts<T> parts;
        parts.fill(std::numeric_limits<Real>::quiet_NaN());
        parts[0] = std::numeric_limits<Real>::infinity();
        return std::bit_cast<T>(parts);
    }();

    /// With elements behind its own that nothing may touch.
    static std::vector<T> with_guard(std::vector<T> elements) {
        elements.resize(elements.size() + 32, T(12288));
        return elements;
    }

    /// The sum of the terms of one element, as a product stores it.
    template <typename Term>
    static T sum(Size terms, const Term& term) {
        T total{};
        for (Size k = 0; k < terms; ++k) {
            total += term(k);
        }
        return result_as<T>(total);
    }
};

using ComputeTypes = ::testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(UnfusedKernelsTest, ComputeTypes);

TYPED_TEST(UnfusedKernelsTest, BlocksOfProductsHaveTheBitsOfPlainLoops) {
    using T = TypeParam;
    this->for_each_shape([this](const ProductExtents& shape, auto& random, bool with_specials) {
        const auto [rows, inner, cols] = shape;
        Block<T> a(rows, inner, random, with_specials);
        Block<T> b(inner, cols, random, with_specials);
        if (rows > 0 && inner > 50) {
            // A term to be recovered in a late block.
            a(rows / 2, inner - 1) = this->infinity;
        }
        const Block<T> before(rows, cols, random, with_specials);
        auto product = before;
        auto difference = before;
        for (Size i = 0; i < rows; ++i) {
            for (Size j = 0; j < cols; ++j) {
                product(i, j) = this->sum(inner, [&](Size k) { return a(i, k) * b(k, j); });
                T& rest = difference(i, j);
                for (Size k = 0; k < inner; ++k) {
                    rest -= a(i, k) * b(k, j);
                }
                // Without a term there is no arithmetic, and a NaN stays what it was.
                rest = inner == 0 ? rest : result_as<T>(rest);
            }
        }
        const Size start = before.stride() + 1;
        this->expect(
            before.memory, product.memory, "product", shape,
            [&](const UnfusedKernels<T>& kernels, T* result) {
                kernels.multiply(a.input(), b.input(), {result + start, b.stride()}, shape);
            });
        this->expect(
            before.memory, difference.memory, "difference", shape,
            [&](const TriangleKernels<T>& kernels, T* result) {
                kernels.subtract_product(a.input(), b.input(), {result + start, b.stride()}, shape);
            });
    });
}

TYPED_TEST(UnfusedKernelsTest, RowProductsAndSumsOfRunsAddInOrder) {
    using T = TypeParam;
    this->for_each_shape([this](const ProductExtents& shape, auto& random, bool with_specials) {
        const Size rows = shape.cols;
        const Size cols = shape.inner;
        Block<T> a(rows, cols, random, with_specials);
        Block<T> x(1, cols, random, with_specials);
        std::vector<T> products;
        std::vector<T> sums;
        for (Size i = 0; i < rows; ++i) {
            products.push_back(this->sum(cols, [&](Size k) { return a(i, k) * x(0, k); }));
        }
        for (Size j = 0; j < cols; ++j) {
            sums.push_back(this->sum(rows, [&](Size i) { return a(i, j); }));
        }
        this->expect(std::vector<T>(rows), products, "row products", shape,
                     [&](const UnfusedKernels<T>& kernels, T* result) {
                         kernels.row_products(a.input(), x.input().data, result, rows, cols);
                     });
        this->expect(std::vector<T>(cols), sums, "sums of runs", shape,
                     [&](const UnfusedKernels<T>& kernels, T* result) {
                         kernels.sum_of_runs(a.input().data, a.stride(), rows, result, cols);
                     });
    });
}

TYPED_TEST(UnfusedKernelsTest, KroneckerProductsPlaceEveryProduct) {
    using T = TypeParam;
    this->for_each_shape([this](const ProductExtents& shape, auto& random, bool with_specials) {
        const Size a_rows = std::min<Size>(shape.rows, 3);
        const auto [rows, a_cols, b_cols] = shape;
        const Size b_rows = 2;
        Block<T> a(a_rows, a_cols, random, with_specials);
        Block<T> b(b_rows, b_cols, random, with_specials);
        std::vector<T> products;
        for (Size i = 0; i < a_rows * b_rows; ++i) {
            for (Size j = 0; j < a_cols * b_cols; ++j) {
                products.push_back(
                    result_as<T>(a(i / b_rows, j / b_cols) * b(i % b_rows, j % b_cols)));
            }
        }
        this->expect(std::vector<T>(products.size()), products, "Kronecker product", shape,
                     [&](const UnfusedKernels<T>& kernels, T* result) {
                         kernels.kron(a.input(), b.input(), result, {a_cols, b_rows, b_cols}, 0,
                                      a_rows * b_rows);
                     });
    });
}

/// Every stored value is widened, and rounded back with all that lies about it: the neighbours as
/// floats, the ties between two stored values and what is just off them.
template <typename T>
void expect_conversions_of_all_values() {
    std::vector<T> stored(0x10000);
    for (std::uint32_t bits = 0; bits < stored.size(); ++bits) {
        stored[bits] = T::from_bits(static_cast<std::uint16_t>(bits));
    }
    // An odd length and start, for the rest that is left over.
    const std::span<const T> all(stored.data() + 1, stored.size() - 4);
    const std::uint32_t half = std::is_same_v<T, Float16> ? 0x1000 : 0x8000;
    for_each_unfused_table([&](const UnfusedTable& table) {
        std::vector<float> wide(all.size());
        widen_elements(all.data(), wide.data(), all.size(), table);
        for (std::size_t i = 0; i < all.size(); ++i) {
            const float expected = widened(all[i]);
            ASSERT_TRUE(std::bit_cast<std::uint32_t>(wide[i]) ==
                            std::bit_cast<std::uint32_t>(expected) ||
                        (std::isnan(wide[i]) && std::isnan(expected)))
                << i;
        }
        for (const std::uint32_t offset : {0U, 1U, half - 1, half, half + 1, 2 * half - 1}) {
            std::vector<float> near(wide);
            for (float& value : near) {
                value = std::bit_cast<float>(std::bit_cast<std::uint32_t>(value) + offset);
            }
            std::vector<T> rounded(near.size());
            store_results(near.data(), rounded.data(), near.size(), table);
            for (std::size_t i = 0; i < near.size(); ++i) {
                ASSERT_EQ(rounded[i].bits, result_as<T>(near[i]).bits) << near[i];
            }
        }
    });
}

TEST(UnfusedConversionsTest, AllTwoByteValuesAndTheirNeighboursRoundAsTheScalarCode) {
    expect_conversions_of_all_values<Float16>();
    expect_conversions_of_all_values<BFloat16>();
}

} // namespace
} // namespace Tessaline
