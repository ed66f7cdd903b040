// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/engine_power_methods.h"
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

/// The row products of an engine's power iteration, in plain words.
template <typename Engine>
struct PlainRows {
    static void multiply_row(const float* row, const float* vector, std::uint64_t count,
                             float* result) {
        std::vector<Complex> terms;
        for (std::uint64_t k = 0; k < 2 * count; k += 2) {
            terms.push_back(
                Engine::plain.product({row[k], row[k + 1]}, {vector[k], vector[k + 1]}));
        }
        const Complex sum = Engine::plain.lane_sum(terms, Engine::plain.lanes);
        result[0] = sum.real();
        result[1] = sum.imag();
    }
};

TEST(SimdSolversTest, PowerIterationSumsRowsByLanes) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t n : {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 20, 24, 33, 50}) {
            for (const auto layout :
                 {DataMatrixLayout::row_major, DataMatrixLayout::column_major}) {
                SCOPED_TRACE(n);
                CounterRandom random(n);
                std::vector<Complex> a;
                for (std::uint64_t i = 0; i < n * n; ++i) {
                    // A dominant eigenvalue near n, so that the iteration ends before its limit.
                    a.emplace_back(1 + 0.1F * random_float(random, Values::ordinary),
                                   0.1F * random_float(random, Values::ordinary));
                }
                std::vector<Complex> found(n, 9);
                std::vector<Complex> expected(n, 9);
                const DenseComplexIntlvMatrixView<const Complex> matrix{a.data(), n, n, layout};
                engine.principal_eigenvect(matrix,
                                           DenseComplexIntlvVectorView<Complex>{found.data(), n});
                EnginePowerMethods::principal_eigenvect<PlainRows<decltype(engine)>>(
                    matrix, {expected.data(), n});
                for (std::uint64_t i = 0; i < n; ++i) {
                    expect_scalar(found[i], expected[i]);
                }
            }
        }
    });
}

} // namespace
} // namespace Tessaline
