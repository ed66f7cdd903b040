// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

/// Calls `body(engine, size, offset, random, values)` for every engine, awkward size, offset of the
/// first element and kind of values.
template <typename Body>
void for_each_case(const Body& body) {
    for_each_engine([&](auto engine) {
        for (const std::uint64_t size : awkward_sizes) {
            for (const std::size_t offset : {0, 1, 3}) {
                for (const Values values : {Values::ordinary, Values::special}) {
                    CounterRandom random(100 * size + 10 * offset +
                                         static_cast<std::uint64_t>(values));
                    body(engine, size, offset, random, values);
                }
            }
        }
    });
}

TEST(SimdElementwiseTest, RealOperationsRoundOnce) {
    for_each_case([](auto engine, auto size, auto offset, auto& random, auto values) {
        auto a = real_data(size, offset, random, values);
        auto b = real_data(size, offset + 1, random, values);
        auto out = real_data(size, offset + 2);
        engine.add(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) { return a[i] + b[i]; });
        engine.sub(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) { return a[i] - b[i]; });
        engine.mul(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) { return a[i] * b[i]; });
        const float factor = random_float(random, values);
        engine.scale(a.input(), RealScalarView<const float>{&factor}, out.output());
        expect_elements(out, [&](auto i) { return a[i] * factor; });
    });
}

template <typename>
class SimdComplexElementwiseTest : public ::testing::Test {};
TYPED_TEST_SUITE(SimdComplexElementwiseTest, Forms);

TYPED_TEST(SimdComplexElementwiseTest, OperationsFollowTheEnginesArithmetic) {
    for_each_case([](auto engine, auto size, auto offset, auto& random, auto values) {
        auto a = TypeParam::make(size, offset, random, values);
        auto b = TypeParam::make(size, offset + 1, random, values);
        auto out = TypeParam::make(size, offset + 2);
        engine.add(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) {
            return Complex(a[i].real() + b[i].real(), a[i].imag() + b[i].imag());
        });
        engine.sub(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) {
            return Complex(a[i].real() - b[i].real(), a[i].imag() - b[i].imag());
        });
        engine.mul(a.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) { return engine.plain.product(a[i], b[i]); });
        engine.sqrt(a.input(), out.output());
        expect_elements(out, [&](auto i) { return std::sqrt(a[i]); });
        out = a;
        engine.conj(out.output());
        expect_elements(
            out, [&](auto i) { return std::conj(a[i]); }, Origin::moved);
    });
}

TYPED_TEST(SimdComplexElementwiseTest, DivisionMultipliesByTheUnscaledInverse) {
    for_each_case([](auto engine, auto size, auto offset, auto& random, auto values) {
        auto a = TypeParam::make(size, offset, random, values);
        auto out = TypeParam::make(size, offset + 2);
        const float re = random_float(random, values);
        const float im = random_float(random, values);
        const ComplexScalarView<const float> scalar{&re, &im};
        engine.scale(a.input(), scalar, out.output());
        expect_elements(out, [&](auto i) { return engine.plain.product(a[i], {re, im}); });
        engine.divide(a.input(), scalar, out.output());
        const float squared = re * re + im * im;
        const Complex inverse(re / squared, -im / squared);
        expect_elements(out, [&](auto i) { return engine.plain.product(a[i], inverse); });
    });
}

TYPED_TEST(SimdComplexElementwiseTest, AResultMayLieWhereAnOperandDoes) {
    for_each_engine([](auto engine) {
        CounterRandom random(5);
        const auto a = TypeParam::make(67, 1, random);
        auto b = TypeParam::make(67, 1, random);
        auto out = a;
        engine.mul(out.input(), b.input(), out.output());
        expect_elements(out, [&](auto i) { return engine.plain.product(a[i], b[i]); });
        // The factor itself is overwritten on the way.
        out = a;
        engine.scale(out.input(),
                     ComplexScalarView<const float>{&out.part(20, false), &out.part(20, true)},
                     out.output());
        expect_elements(out, [&](auto i) { return engine.plain.product(a[i], a[20]); });
    });
}

TEST(SimdElementwiseTest, HalfPrecisionRoundsOnceAtTheStore) {
    struct Case {
        std::uint16_t a, b, sum;
    };
    const Case cases[] = {
        {0x3c00, 0x3c00, 0x4000}, // 1 + 1
        {0x7bff, 0x7bff, 0x7c00}, // 65504 + 65504 overflows at the store
        {0x7bff, 0x4b80, 0x7bff}, // 65504 + 15 rounds down
        {0x7bff, 0x4c00, 0x7c00}, // 65504 + 16 ties up, to infinity
        {0x0001, 0x0001, 0x0002}, // subnormals are exact
        {0x3c00, 0x1000, 0x3c00}, // 1 + 2^-11 ties to even
        {0x3c01, 0x1000, 0x3c02}, // 1 + 2^-10 + 2^-11 ties to even
        {0x8000, 0x8000, 0x8000}, // -0
        {0x7c00, 0xfc00, 0x7e00}, // infinity - infinity, whose NaN the processor signs
        {0x3c00, 0xfd55, 0x7e00}, // a NaN loses its payload and its sign
    };
    std::vector<Case> sums(std::begin(cases), std::end(cases));
    CounterRandom random(11);
    while (sums.size() < 3000) {
        const auto a = Float16::from_bits(static_cast<std::uint16_t>(random.next()));
        const auto b = Float16::from_bits(static_cast<std::uint16_t>(random.next()));
        const float sum = static_cast<float>(a) + static_cast<float>(b);
        sums.push_back({a.bits, b.bits, Float16(result_of(Origin::computed, sum)).bits});
    }
    for_each_engine([&](auto engine) {
        for (const std::size_t start : {0, 1, 2, 3}) {
            std::vector<Float16> a, b;
            for (std::size_t i = start; i < sums.size(); ++i) {
                a.push_back(Float16::from_bits(sums[i].a));
                b.push_back(Float16::from_bits(sums[i].b));
            }
            engine.add(DenseRealVectorView<const Float16>{a.data(), a.size()},
                       DenseRealVectorView<const Float16>{b.data(), b.size()},
                       DenseRealVectorView<Float16>{b.data(), b.size()});
            for (std::size_t i = 0; i < b.size(); ++i) {
                const Case& one = sums[start + i];
                ASSERT_EQ(b[i].bits, one.sum) << one.a << " and " << one.b;
            }
        }
    });
}

TEST(SimdElementwiseTest, TheDispatcherCallsTheSelectedEngine) {
    CounterRandom random(9);
    auto a = split_data(100, 0, random);
    auto b = split_data(100, 0, random);
    auto out = split_data(100);
    SimdEngine::mul(a.input(), b.input(), out.output());
    bool is_selected = false;
    for_each_engine([&](auto engine) {
        if (engine.simd == selected_x86_simd()) {
            expect_elements(out, [&](auto i) { return engine.plain.product(a[i], b[i]); });
            is_selected = true;
        }
    });
    EXPECT_TRUE(is_selected);
}

} // namespace
} // namespace Tessaline
