// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

/// rows, inner, columns: around tiles of every engine, primes, more than one inner block, and
/// more rows than pass down a panel in turn.
struct ProductShape {
    std::uint64_t rows, inner, cols;
};
const ProductShape product_shapes[] = {
    {1, 1, 1},   {0, 3, 4},     {3, 0, 4},     {3, 4, 0},    {2, 3, 5},
    {7, 7, 7},   {8, 8, 8},     {9, 17, 15},   {16, 16, 16}, {17, 31, 33},
    {5, 2, 48},  {40, 3, 48},   {3, 5, 97},    {23, 29, 31}, {13, 257, 9},
    {4, 256, 8}, {19, 600, 49}, {33, 13, 145}, {1, 700, 50}, {113, 3, 35},
};

template <typename Body>
void for_each_product(const Body& body) {
    for_each_engine([&](auto engine) {
        for (const ProductShape& shape : product_shapes) {
            for (const Values values : {Values::ordinary, Values::special}) {
                SCOPED_TRACE(::testing::Message() << shape.rows << " x " << shape.inner << " times "
                                                  << shape.inner << " x " << shape.cols);
                CounterRandom random(shape.rows + 1000 * shape.inner + 1000000 * shape.cols);
                // Special values in long sums leave nothing but NaN.
                if (values == Values::ordinary || shape.inner < 20) {
                    body(engine, shape, random, values);
                }
            }
        }
    });
}

/// Element (i, j) of a product, one step for each inner index.
template <typename Element, typename Engine, typename Data>
Element plain_product(const Engine& engine, const Data& a, const Data& b, const ProductShape& shape,
                      std::uint64_t element) {
    Element sum{};
    const std::uint64_t row = element / shape.cols;
    const std::uint64_t column = element % shape.cols;
    for (std::uint64_t k = 0; k < shape.inner; ++k) {
        sum = engine.plain.step(sum, a[row * shape.inner + k], b[k * shape.cols + column]);
    }
    return sum;
}

/// `make` makes the operands, of the form that is tested.
template <typename Element, typename Make>
void expect_ordered_products(const Make& make) {
    for_each_product([&](auto engine, const auto& shape, auto& random, auto values) {
        const auto [rows, inner, cols] = shape;
        auto a = make(rows * inner, 1, random, values);
        auto b = make(inner * cols, 2, random, values);
        auto c = make(rows * cols, 3, random, Values::ordinary);
        engine.matmul(a.input(rows, inner), b.input(inner, cols), c.output(rows, cols));
        expect_elements(c, [&](auto i) { return plain_product<Element>(engine, a, b, shape, i); });
    });
}

TEST(SimdProductsTest, RealMatmulSumsEachElementInInnerOrder) {
    expect_ordered_products<float>([](auto&&... of) { return real_data(of...); });
}

template <typename>
class SimdComplexProductsTest : public ::testing::Test {};
TYPED_TEST_SUITE(SimdComplexProductsTest, Forms);

TYPED_TEST(SimdComplexProductsTest, MatmulSumsEachElementInInnerOrder) {
    expect_ordered_products<Complex>([](auto&&... of) { return TypeParam::make(of...); });
}

TYPED_TEST(SimdComplexProductsTest, MatvecSumsEachRowInOrder) {
    for_each_product([](auto engine, const auto& shape, auto& random, auto values) {
        const std::uint64_t rows = shape.rows;
        const std::uint64_t cols = shape.inner;
        auto a = TypeParam::make(rows * cols, 1, random, values);
        auto x = TypeParam::make(cols, 2, random, values);
        auto out = TypeParam::make(rows, 3, random);
        engine.matvec(a.input(rows, cols), x.input(), out.output());
        expect_elements(out, [&](auto i) {
            Complex sum;
            for (std::uint64_t k = 0; k < cols; ++k) {
                sum = engine.plain.plus(sum, engine.plain.product(a[i * cols + k], x[k]));
            }
            return sum;
        });
    });
}

TYPED_TEST(SimdComplexProductsTest, KroneckerAndOuterProductsMultiplyTheFirstOperandFirst) {
    for_each_product([](auto engine, const auto& shape, auto& random, auto values) {
        const auto [r1, c1, c2] = shape;
        if (r1 * c1 * c2 > 3000) {
            return;
        }
        const std::uint64_t r2 = 3;
        const std::uint64_t cols = c1 * c2;
        auto a = TypeParam::make(r1 * c1, 1, random, values);
        auto b = TypeParam::make(r2 * c2, 2, random, values);
        auto out = TypeParam::make(r1 * r2 * cols);
        engine.kroneckerprod(a.input(r1, c1), b.input(r2, c2), out.output(r1 * r2, cols));
        expect_elements(out, [&](auto element) {
            const std::uint64_t i = element / cols;
            const std::uint64_t j = element % cols;
            return engine.plain.product(a[i / r2 * c1 + j / c2], b[i % r2 * c2 + j % c2]);
        });
        auto outer = TypeParam::make(r1 * c1 * r2 * c2);
        engine.outerprod(a.input(), b.input(), outer.output(r1 * c1, r2 * c2));
        expect_elements(outer, [&](auto element) {
            return engine.plain.product(a[element / (r2 * c2)], b[element % (r2 * c2)]);
        });
    });
}

TYPED_TEST(SimdComplexProductsTest, InnerProductSumsItsTermsByLanes) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t size : awkward_sizes) {
            for (const Values values : {Values::ordinary, Values::special}) {
                CounterRandom random(size);
                auto a = TypeParam::make(size, 1, random, values);
                auto b = TypeParam::make(size, 2, random, values);
                std::vector<Complex> terms;
                for (std::uint64_t i = 0; i < size; ++i) {
                    terms.push_back(engine.plain.conjugate_product(a[i], b[i]));
                }
                Plane out(2);
                engine.innerprod(a.input(), b.input(),
                                 ComplexScalarView<float>{out.data(), out.data() + 1});
                expect_scalar({out[0], out[1]}, engine.plain.lane_sum(terms, engine.plain.lanes));
            }
        }
    });
}

TEST(SimdProductsTest, ColumnMajorOperandsGiveTheBitsOfRowMajorOnes) {
    constexpr auto column_major = DataMatrixLayout::column_major;
    for_each_engine([&](auto engine) {
        CounterRandom random(77);
        const std::uint64_t m = 19, k = 21, n = 18;
        const auto flipped = [&](SplitData& matrix, std::uint64_t rows, std::uint64_t cols) {
            auto other = split_data(rows * cols);
            engine.transpose(matrix.input(rows, cols), other.output(cols, rows));
            return other; // read as rows x cols, column-major, it is the same matrix
        };
        auto a = split_data(m * k, 0, random);
        auto b = split_data(k * n, 0, random);
        auto x = split_data(k, 0, random);
        auto a_columns = flipped(a, m, k);
        auto b_columns = flipped(b, k, n);

        auto expected = split_data(m * n);
        auto found = split_data(m * n);
        engine.matmul(a.input(m, k), b.input(k, n), expected.output(m, n));
        engine.matmul(a_columns.input(m, k, column_major), b_columns.input(k, n, column_major),
                      found.output(m, n, column_major));
        expected = flipped(expected, m, n);
        expect_elements(found, [&](auto i) { return expected[i]; });

        auto expected_vector = split_data(m);
        auto found_vector = split_data(m);
        engine.matvec(a.input(m, k), x.input(), expected_vector.output());
        engine.matvec(a_columns.input(m, k, column_major), x.input(), found_vector.output());
        expect_elements(found_vector, [&](auto i) { return expected_vector[i]; });
    });
}

TEST(SimdProductsTest, PowersSquareBeforeTheyMultiply) {
    for_each_engine([](auto engine) {
        CounterRandom random(4);
        const std::uint64_t n = 21;
        const ProductShape square{n, n, n};
        auto a = split_data(n * n, 1, random);
        const auto times = [&](const SplitData& left, const SplitData& right) {
            auto product = split_data(n * n);
            for (std::uint64_t i = 0; i < n * n; ++i) {
                const auto value = plain_product<Complex>(engine, left, right, square, i);
                product.real.data()[i] = value.real();
                product.imag.data()[i] = value.imag();
            }
            return product;
        };
        const auto power = [&](unsigned exponent) {
            auto out = split_data(n * n);
            engine.matrix_power(a.input(n, n), out.output(n, n), exponent);
            return out;
        };
        auto one = split_data(n * n);
        engine.identity(one.output(n, n));
        const auto a2 = times(a, a);
        const auto a4 = times(a2, a2);
        const auto expected = {one,
                               a,
                               times(one, a2),
                               times(times(one, a), a2),
                               times(one, a4),
                               times(times(one, a), a4)};
        unsigned exponent = 0;
        for (const SplitData& matrix : expected) {
            SCOPED_TRACE(exponent);
            expect_elements(power(exponent++), [&](auto i) { return matrix[i]; });
        }
    });
}

TEST(SimdProductsTest, PowersZeroAndOneMultiplyNothing) {
    for_each_engine([](auto engine) {
        CounterRandom random(6);
        auto a = split_data(9, 0, random, Values::special);
        a.real.data()[4] = std::bit_cast<float>(0xff812345U);
        auto out = split_data(9);
        engine.matrix_power(a.input(3, 3), out.output(3, 3), 0U);
        expect_elements(out, [](auto i) { return Complex(i % 4 == 0 ? 1.0F : 0.0F); });
        engine.matrix_power(a.input(3, 3), out.output(3, 3), 1U);
        expect_elements(
            out, [&](auto i) { return a[i]; }, Origin::moved);
    });
}

TEST(SimdProductsTest, ShapesThatDoNotFitAreRefused) {
    for_each_engine([](auto engine) {
        auto s = split_data(64);
        auto r = real_data(64);
        const auto split = [&](std::uint64_t rows, std::uint64_t cols) {
            return s.input(rows, cols);
        };
        const auto to = [&](std::uint64_t rows, std::uint64_t cols) {
            return s.output(rows, cols);
        };
        const auto refused = [](const char* message, auto call) {
            expect_error<std::invalid_argument>(call, message);
        };
        const char* matmul = "SimdEngine::matmul - incompatible shapes";
        refused(matmul, [&] { engine.matmul(split(2, 3), split(2, 4), to(2, 4)); });
        refused(matmul, [&] { engine.matmul(split(2, 3), split(3, 4), to(3, 4)); });
        refused(matmul, [&] { engine.matmul(split(2, 3), split(3, 4), to(2, 3)); });
        const char* real = "SimdEngine::matmul - incompatible shapes or layout";
        refused(real, [&] { engine.matmul(r.input(2, 3), r.input(2, 4), r.output(2, 4)); });
        for (int operand = 0; operand < 3; ++operand) {
            auto a = r.input(4, 4);
            auto b = r.input(4, 4);
            auto c = r.output(4, 4);
            (operand == 0   ? a.layout
             : operand == 1 ? b.layout
                            : c.layout) = DataMatrixLayout::column_major;
            refused(real, [&] { engine.matmul(a, b, c); });
        }
        const char* matvec = "SimdEngine::matvec - incompatible shapes";
        auto v2 = split_data(2);
        auto v3 = split_data(3);
        refused(matvec, [&] { engine.matvec(split(2, 3), v2.input(), v2.output()); });
        refused(matvec, [&] { engine.matvec(split(2, 3), v3.input(), v3.output()); });
        const char* power = "SimdEngine::matrix_power - incompatible shapes";
        refused(power, [&] { engine.matrix_power(split(2, 3), to(2, 3), 0U); });
        refused(power, [&] { engine.matrix_power(split(2, 2), to(3, 3), 2U); });
    });
}

} // namespace
} // namespace Tessaline
