// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

constexpr auto row_major = DataMatrixLayout::row_major;
constexpr auto column_major = DataMatrixLayout::column_major;

/// Element (i, j) of a matrix that lies in `layout`.
template <typename Data>
auto at(const Data& matrix, std::uint64_t rows, std::uint64_t cols, DataMatrixLayout layout,
        std::uint64_t i, std::uint64_t j) {
    return matrix[layout == row_major ? i * cols + j : j * rows + i];
}

TEST(SimdStructureTest, TransposesServeEveryPairOfLayouts) {
    for_each_engine([](auto engine) {
        const std::uint64_t shapes[][2] = {{0, 3},  {1, 1},  {1, 17}, {16, 16},
                                           {8, 31}, {33, 7}, {47, 50}};
        for (const auto& [rows, cols] : shapes) {
            for (const auto from : {row_major, column_major}) {
                for (const auto to : {row_major, column_major}) {
                    SCOPED_TRACE(::testing::Message() << rows << " x " << cols);
                    CounterRandom random(rows + cols);
                    auto a = split_data(rows * cols, 1, random, Values::special);
                    auto out = split_data(rows * cols, 2);
                    const auto element = [&](std::uint64_t index) {
                        // The row of the result is the column of the operand.
                        const std::uint64_t line = to == row_major ? rows : cols;
                        const std::uint64_t first = index / line;
                        const std::uint64_t second = index % line;
                        return to == row_major ? at(a, rows, cols, from, second, first)
                                               : at(a, rows, cols, from, first, second);
                    };
                    engine.transpose(a.input(rows, cols, from), out.output(cols, rows, to));
                    expect_elements(out, element, Origin::moved);
                    engine.adjoint(a.input(rows, cols, from), out.output(cols, rows, to));
                    expect_elements(
                        out, [&](auto i) { return std::conj(element(i)); }, Origin::moved);
                }
            }
            CounterRandom random(rows + cols);
            auto a = InterleavedForm::make(rows * cols, 1, random, Values::special);
            auto out = InterleavedForm::make(rows * cols, 2);
            const auto element = [&](std::uint64_t i) { return a[i % rows * cols + i / rows]; };
            engine.transpose(a.input(rows, cols), out.output(cols, rows));
            expect_elements(out, element, Origin::moved);
            engine.adjoint(a.input(rows, cols), out.output(cols, rows));
            expect_elements(
                out, [&](auto i) { return std::conj(element(i)); }, Origin::moved);
        }
    });
}

template <typename>
class SimdComplexStructureTest : public ::testing::Test {};
TYPED_TEST_SUITE(SimdComplexStructureTest, Forms);

TYPED_TEST(SimdComplexStructureTest, PartialTracesSumInIncreasingOrder) {
    for_each_engine([](auto engine) {
        const std::uint64_t orders[][2] = {{1, 0}, {3, 0},  {1, 1},  {1, 9}, {9, 1},
                                           {2, 3}, {17, 3}, {16, 4}, {5, 13}};
        for (const auto& [m, k] : orders) {
            SCOPED_TRACE(::testing::Message() << "order " << m << " times " << k);
            const std::uint64_t n = m * k;
            CounterRandom random(n);
            auto a = TypeParam::make(n * n, 1, random, Values::special);
            auto out = TypeParam::make(m * m, 2);
            const auto traced = [&, m = m, k = k](auto element, bool left) {
                const std::uint64_t i = element / m;
                const std::uint64_t j = element % m;
                Complex sum;
                for (std::uint64_t t = 0; t < k; ++t) {
                    sum = engine.plain.plus(sum, left ? a[(t * m + i) * n + t * m + j]
                                                      : a[(i * k + t) * n + j * k + t]);
                }
                return sum;
            };
            engine.trace_out_left(a.input(n, n), out.output(m, m));
            expect_elements(out, [&](auto i) { return traced(i, true); });
            engine.trace_out_right(a.input(n, n), out.output(m, m));
            expect_elements(out, [&](auto i) { return traced(i, false); });
        }
    });
}

TYPED_TEST(SimdComplexStructureTest, IdentityOverwritesEverything) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t n : {0, 1, 8, 17}) {
            CounterRandom random(n);
            auto out = TypeParam::make(n * n, 1, random, Values::special);
            engine.identity(out.output(n, n));
            expect_elements(out, [&](auto i) { return Complex(i / n == i % n ? 1.0F : 0.0F); });
        }
    });
}

TEST(SimdStructureTest, RelayoutMovesElementsBetweenOrders) {
    for_each_engine([](auto engine) {
        const std::uint64_t rows = 5;
        const std::uint64_t cols = 19;
        std::vector<Complex> from;
        for (std::uint64_t i = 0; i < rows * cols; ++i) {
            from.emplace_back(static_cast<float>(i), -static_cast<float>(i));
        }
        for (const auto source : {row_major, column_major}) {
            for (const auto target : {row_major, column_major}) {
                std::vector<Complex> to(rows * cols);
                engine.relayout(
                    DenseComplexIntlvMatrixView<const Complex>{from.data(), rows, cols, source},
                    DenseComplexIntlvMatrixView<Complex>{to.data(), rows, cols, target});
                for (std::uint64_t i = 0; i < rows; ++i) {
                    for (std::uint64_t j = 0; j < cols; ++j) {
                        ASSERT_EQ(at(to, rows, cols, target, i, j),
                                  at(from, rows, cols, source, i, j));
                    }
                }
            }
        }
    });
}

TEST(SimdStructureTest, ShapesThatDoNotFitAreRefused) {
    for_each_engine([](auto engine) {
        auto s = split_data(64);
        const auto refused = [](const char* message, auto call) {
            expect_error<std::invalid_argument>(call, message);
        };
        refused("SimdEngine::transpose - incompatible shapes",
                [&] { engine.transpose(s.input(2, 3), s.output(2, 3)); });
        refused("SimdEngine::adjoint - incompatible shapes",
                [&] { engine.adjoint(s.input(2, 3), s.output(3, 3)); });
        refused("SimdEngine::identity - non-square matrix",
                [&] { engine.identity(s.output(2, 3)); });
        refused("SimdEngine::relayout - incompatible shapes", [&] {
            std::vector<Complex> elements(6);
            engine.relayout(
                DenseComplexIntlvMatrixView<const Complex>{elements.data(), 2, 3, row_major},
                DenseComplexIntlvMatrixView<Complex>{elements.data(), 3, 2, row_major});
        });

        struct TraceCase {
            std::uint64_t rows, cols, out_rows, out_cols;
            DataMatrixLayout layout, out_layout;
        };
        const TraceCase cases[] = {
            {6, 6, 4, 4, row_major, row_major}, // 4 does not divide 6
            {6, 6, 0, 0, row_major, row_major},    {6, 5, 3, 3, row_major, row_major},
            {6, 6, 3, 2, row_major, row_major},    {6, 6, 3, 3, column_major, row_major},
            {6, 6, 3, 3, row_major, column_major},
        };
        for (const TraceCase& one : cases) {
            const auto from = s.input(one.rows, one.cols, one.layout);
            const auto to = s.output(one.out_rows, one.out_cols, one.out_layout);
            refused("SimdEngine::trace_out_left - incompatible shapes or layout",
                    [&] { engine.trace_out_left(from, to); });
            refused("SimdEngine::trace_out_right - incompatible shapes or layout",
                    [&] { engine.trace_out_right(from, to); });
        }
    });
}

} // namespace
} // namespace Tessaline
