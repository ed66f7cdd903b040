// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/simd/simd_test_support.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <cstring>
#include <functional>

namespace Tessaline {
namespace {

using namespace Testing;

/// Every operation that runs in chunks, on operands of primes and odd offsets.
template <typename Engine>
std::vector<std::pair<const char*, std::function<void(SplitData&)>>>
chunked_operations(SplitData& a, SplitData& b) {
    static constexpr std::uint64_t m = 23;
    static constexpr std::uint64_t k = 29;
    static constexpr std::uint64_t n = 31;
    const auto real = [](SplitData& data, std::uint64_t rows, std::uint64_t cols) {
        return DenseRealMatrixView<const float>{data.real.data(), rows, cols,
                                                DataMatrixLayout::row_major};
    };
    const auto vector = [](SplitData& data, std::uint64_t size) {
        return DenseComplexSplitVectorView<const float>{data.real.data(), data.imag.data(), size};
    };
    const auto result = [](SplitData& data, std::uint64_t size) {
        return DenseComplexSplitVectorView<float>{data.real.data(), data.imag.data(), size};
    };
    const ComplexScalarView<const float> scalar{b.real.data(), b.imag.data()};
    return {
        {"sqrt", [&a](SplitData& out) { Engine::sqrt(a.input(), out.output()); }},
        {"conj", [](SplitData& out) { Engine::conj(out.output()); }},
        {"add", [&](SplitData& out) { Engine::add(a.input(), b.input(), out.output()); }},
        {"sub", [&](SplitData& out) { Engine::sub(a.input(), b.input(), out.output()); }},
        {"mul", [&](SplitData& out) { Engine::mul(a.input(), b.input(), out.output()); }},
        {"scale", [&, scalar](SplitData& out) { Engine::scale(a.input(), scalar, out.output()); }},
        {"divide",
         [&, scalar](SplitData& out) { Engine::divide(a.input(), scalar, out.output()); }},
        {"transpose", [&](SplitData& out) { Engine::transpose(a.input(k, m), out.output(m, k)); }},
        {"adjoint", [&](SplitData& out) { Engine::adjoint(a.input(k, m), out.output(m, k)); }},
        {"matmul",
         [&](SplitData& out) { Engine::matmul(a.input(m, k), b.input(k, n), out.output(m, n)); }},
        {"matmul real",
         [&, real](SplitData& out) {
             Engine::matmul(
                 real(a, m, k), real(b, k, n),
                 DenseRealMatrixView<float>{out.real.data(), m, n, DataMatrixLayout::row_major});
         }},
        {"matvec",
         [&, vector, result](SplitData& out) {
             Engine::matvec(a.input(m, k), vector(b, k), result(out, m));
         }},
        {"kroneckerprod",
         [&](SplitData& out) {
             Engine::kroneckerprod(a.input(5, 7), b.input(3, 4), out.output(15, 28));
         }},
        {"outerprod",
         [&, vector](SplitData& out) {
             Engine::outerprod(vector(a, m), vector(b, k), out.output(m, k));
         }},
        {"matrix_power",
         [&](SplitData& out) { Engine::matrix_power(a.input(19, 19), out.output(19, 19), 5U); }},
        {"trace_out_left",
         [&](SplitData& out) { Engine::trace_out_left(a.input(26, 26), out.output(13, 13)); }},
        {"trace_out_right",
         [&](SplitData& out) { Engine::trace_out_right(a.input(26, 26), out.output(13, 13)); }},
        {"identity", [](SplitData& out) { Engine::identity(out.output(m, m)); }},
    };
}

TEST(SimdThreadsTest, TheNumberOfThreadsChangesNoBit) {
    constexpr std::uint64_t size = 26 * 36;
    for_each_engine([](auto engine) {
        CounterRandom random(12);
        auto a = split_data(size, 1, random, Values::special);
        auto b = split_data(size, 3, random, Values::special);
        const auto untouched = split_data(size, 2, random);
        for (const auto& [name, operation] : chunked_operations<decltype(engine)>(a, b)) {
            SCOPED_TRACE(name);
            auto expected = untouched;
            operation(expected);
            const auto changed = [&](const Plane& plane, const Plane& before) {
                bool any = false;
                for (std::uint64_t i = 0; i < size; ++i) {
                    any = any || !same_bits(plane[i], before[i]);
                }
                return any;
            };
            EXPECT_TRUE(changed(expected.real, untouched.real) ||
                        changed(expected.imag, untouched.imag));
            for (const std::size_t threads : {1, 2, 3, 7}) {
                const auto runtime = std::make_shared<CpuRuntimeContext>(
                    Tessaline::Test::unpinned_options(threads),
                    Tessaline::Test::one_node(threads + 1), BackendKind::cpu_simd);
                CpuExecutionContext context(BackendKind::cpu_simd, runtime);
                auto found = untouched;
                CpuProcessStepDetail::invoke_with_current_cpu_context(
                    context, [&, &run = operation] { run(found); });
                EXPECT_EQ(
                    std::memcmp(found.real.data(), expected.real.data(), size * sizeof(float)), 0)
                    << threads << " threads, real part";
                EXPECT_EQ(
                    std::memcmp(found.imag.data(), expected.imag.data(), size * sizeof(float)), 0)
                    << threads << " threads, imaginary part";
            }
        }
    });
}

} // namespace
} // namespace Tessaline
