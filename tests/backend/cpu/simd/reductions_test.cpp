// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// What an operation writes to a complex scalar.
template <typename Call>
Complex scalar_of(const Call& call) {
    float real = nan;
    float imag = nan;
    call(ComplexScalarView<float>{&real, &imag});
    return {real, imag};
}

/// What an operation writes to an integer scalar.
template <typename Call>
int truth_of(const Call& call) {
    int value = -1;
    call(RealScalarView<int>{&value});
    return value;
}

template <typename>
class SimdComplexReductionsTest : public ::testing::Test {};
TYPED_TEST_SUITE(SimdComplexReductionsTest, Forms);

TYPED_TEST(SimdComplexReductionsTest, SumsGoByLanesAndThenInOrder) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t size : awkward_sizes) {
            for (const Values values : {Values::ordinary, Values::special}) {
                SCOPED_TRACE(size);
                CounterRandom random(size);
                auto a = TypeParam::make(size, 1, random, values);
                std::vector<Complex> elements;
                std::vector<float> reals;
                for (std::uint64_t i = 0; i < size; ++i) {
                    elements.push_back(a[i]);
                    reals.push_back(a[i].real());
                }
                const auto expected = engine.plain.lane_sum(elements, engine.plain.lanes);
                expect_scalar(scalar_of([&](auto out) { engine.sum(a.input(), out); }), expected);
                float real = 0;
                engine.sum(DenseRealVectorView<const float>{reals.data(), size},
                           RealScalarView<float>{&real});
                expect_scalar(real, expected.real());
            }
        }
    });
}

TEST(SimdReductionsTest, TracesGoByEightLanesOnEitherEngine) {
    for_each_engine([](auto engine) {
        const std::uint64_t shapes[][2] = {{0, 0}, {1, 1},   {7, 7},   {8, 8},
                                           {9, 9}, {33, 33}, {40, 17}, {5, 31}};
        for (const auto& [rows, cols] : shapes) {
            for (const auto layout :
                 {DataMatrixLayout::row_major, DataMatrixLayout::column_major}) {
                CounterRandom random(rows + cols);
                auto a = split_data(rows * cols, 1, random);
                std::vector<Complex> diagonal;
                for (std::uint64_t i = 0; i < std::min(rows, cols); ++i) {
                    diagonal.push_back(
                        a[i * (layout == DataMatrixLayout::row_major ? cols : rows) + i]);
                }
                expect_scalar(
                    scalar_of([&](auto out) { engine.trace(a.input(rows, cols, layout), out); }),
                    engine.plain.lane_sum(diagonal, 8));
                if (layout == DataMatrixLayout::row_major) {
                    auto pairs = InterleavedForm::make(rows * cols);
                    for (std::uint64_t i = 0; i < rows * cols; ++i) {
                        pairs.data()[i] = a[i];
                    }
                    expect_scalar(
                        scalar_of([&](auto out) { engine.trace(pairs.input(rows, cols), out); }),
                        engine.plain.lane_sum(diagonal, 8));
                }
            }
        }
    });
}

TYPED_TEST(SimdComplexReductionsTest, NormsAddUnscaledSquaresInOrder) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t size : awkward_sizes) {
            CounterRandom random(size);
            auto a = TypeParam::make(size, 1, random);
            float sum = 0;
            for (std::uint64_t i = 0; i < size; ++i) {
                sum += a[i].real() * a[i].real() + a[i].imag() * a[i].imag();
            }
            expect_scalar(scalar_of([&](auto out) { engine.norm(a.input(), out); }),
                          {std::sqrt(sum), 0});
        }
        for (const auto& [part, norm] : {std::pair(1e30F, infinity), {1e-30F, 0.0F}}) {
            auto extreme = TypeParam::make(1);
            extreme.part(0, false) = extreme.part(0, true) = part;
            expect_scalar(scalar_of([&](auto out) { engine.norm(extreme.input(), out); }),
                          {norm, 0});
        }
    });
}

TYPED_TEST(SimdComplexReductionsTest, VectorsAreEqualWithinTolerances) {
    struct Case {
        float a, b;
        int equal;
    };
    const Case cases[] = {
        {1, 1, 1},
        {1, 1 + 1e-7F, 1},
        {1, 1.000009F, 1},
        {1, 1.00002F, 0},
        {0, 1e-6F, 1},
        {0, 1.1e-6F, 0},
        {0.0F, -0.0F, 1},
        {-1e20F, -1.000009e20F, 1},
        {1e20F, -1e20F, 0},
        {infinity, infinity, 1},
        {infinity, -infinity, 0},
        {infinity, 3e38F, 0},
        {nan, nan, 0},
        {nan, 1, 0},
        {3e38F, -3e38F, 0},
    };
    for_each_engine([&](auto engine) {
        for (const Case& one : cases) {
            SCOPED_TRACE(::testing::Message() << one.a << " and " << one.b);
            // The difference in the first, a middle and the last element, in either plane.
            for (const std::uint64_t place : {0, 1500, 2049}) {
                CounterRandom random(3);
                const auto a = TypeParam::make(2050, 1, random);
                for (const bool imaginary : {false, true}) {
                    auto left = a;
                    auto right = a;
                    left.part(place, imaginary) = one.a;
                    right.part(place, imaginary) = one.b;
                    EXPECT_EQ(truth_of([&](auto out) {
                                  engine.vector_equal(left.input(), right.input(), out);
                              }),
                              one.equal);
                }
            }
        }
        auto empty = TypeParam::make(0);
        auto one = TypeParam::make(1);
        const auto equal = [&](auto& a, auto& b) {
            return truth_of([&](auto out) { engine.vector_equal(a.input(), b.input(), out); });
        };
        EXPECT_EQ(equal(empty, empty), 1);
        EXPECT_EQ(equal(empty, one), 0);
    });
}

class SimdUnitaryTest : public ::testing::Test {
  protected:
    /// A unitary matrix of order n: rows of the discrete Fourier transform, scaled.
    static SplitData unitary(std::uint64_t n) {
        auto matrix = split_data(n * n);
        for (std::uint64_t i = 0; i < n * n; ++i) {
            const double angle = 6.283185307179586 * static_cast<double>(i / n * (i % n) % n) /
                                 static_cast<double>(n);
            matrix.real.data()[i] =
                static_cast<float>(std::cos(angle) / std::sqrt(static_cast<double>(n)));
            matrix.imag.data()[i] =
                static_cast<float>(std::sin(angle) / std::sqrt(static_cast<double>(n)));
        }
        return matrix;
    }

    template <typename Engine>
    static int is_unitary(Engine engine, SplitData& matrix, std::uint64_t rows, std::uint64_t cols,
                          DataMatrixLayout layout = DataMatrixLayout::row_major) {
        return truth_of(
            [&](auto out) { engine.is_unitary(matrix.input(rows, cols, layout), out); });
    }

    /// The answer for a matrix of one element.
    template <typename Engine>
    static int of_one(Engine engine, float real, float imag = 0) {
        auto matrix = split_data(1);
        *matrix.real.data() = real;
        *matrix.imag.data() = imag;
        return is_unitary(engine, matrix, 1, 1);
    }
};

TEST_F(SimdUnitaryTest, RowsAreComparedWithEachOther) {
    for_each_engine([](auto engine) {
        for (const std::uint64_t n : {1, 2, 5, 16, 17, 33}) {
            auto matrix = unitary(n);
            EXPECT_EQ(is_unitary(engine, matrix, n, n), 1) << n;
            EXPECT_EQ(is_unitary(engine, matrix, n, n, DataMatrixLayout::column_major), 1) << n;
            for (const std::uint64_t element : {std::uint64_t{0}, n * n / 2, n * n - 1}) {
                auto changed = matrix;
                changed.imag.data()[element] += 0.01F;
                EXPECT_EQ(is_unitary(engine, changed, n, n), 0) << n << " at " << element;
            }
        }
        auto wide = split_data(6);
        EXPECT_EQ(is_unitary(engine, wide, 2, 3), 0);
        EXPECT_EQ(is_unitary(engine, wide, 0, 3), 0);
        EXPECT_EQ(is_unitary(engine, wide, 0, 0), 1);
    });
}

TEST_F(SimdUnitaryTest, TolerancesAreThoseOfTheProducts) {
    for_each_engine([](auto engine) {
        EXPECT_EQ(of_one(engine, 1), 1);
        EXPECT_EQ(of_one(engine, 0.6F, 0.8F), 1);
        EXPECT_EQ(of_one(engine, 1.000004F), 1); // squared within 1e-5
        EXPECT_EQ(of_one(engine, 1.000006F), 0);
        EXPECT_EQ(of_one(engine, 0.999996F), 1);
        EXPECT_EQ(of_one(engine, 0.999993F), 0);
        EXPECT_EQ(of_one(engine, 1e30F), 0); // an infinite product is no 1
        EXPECT_EQ(of_one(engine, nan), 0);
        // Off the diagonal the product itself decides: 1e-6 passes.
        for (const auto& [off, expected] : {std::pair{0.9e-6F, 1}, std::pair{1.1e-6F, 0}}) {
            auto matrix = split_data(4);
            const float real[] = {1, off, 0, 1};
            std::copy_n(real, 4, matrix.real.data());
            std::fill_n(matrix.imag.data(), 4, 0.0F);
            EXPECT_EQ(is_unitary(engine, matrix, 2, 2), expected) << off;
        }
    });
}

} // namespace
} // namespace Tessaline
