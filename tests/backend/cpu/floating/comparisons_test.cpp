// SPDX-License-Identifier: Apache-2.0
#include "backend/common/tolerances.h"
#include "backend/cpu/floating/floating_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

template <typename T>
class FloatingComparisons : public ::testing::Test {
  protected:
    using Real = Component<ComputeOf<T>>;

    static bool equal(const Grid<T>& a, const Grid<T>& b) {
        return answer(FloatingOperation::vector_equal, Operand<T>(OperandKind::Vector, a),
                      Operand<T>(OperandKind::Vector, b));
    }
    static bool unitary(const Grid<T>& grid, DataMatrixLayout order) {
        return answer(FloatingOperation::is_unitary, Operand<T>(OperandKind::Matrix, grid, order));
    }
    /// Three elements with all parts 1, but for one part of the middle one.
    static Grid<T> with_part(std::size_t part, double value) {
        return {3, 1, [=](Size i, Size) {
                    Parts<T> parts;
                    parts.fill(static_cast<Component<T>>(Real(1)));
                    if (i == 1) {
                        parts[part] = static_cast<Component<T>>(static_cast<Real>(value));
                    }
                    return std::bit_cast<T>(parts);
                }};
    }

    const Tolerance<Real> tolerance_ = floating_tolerance<T>;

  private:
    template <typename... Operands>
    static bool answer(FloatingOperation operation, const Operands&... operands) {
        const auto result =
            Operand<int>(OperandKind::Scalar, Grid<int>(1, 1, [](Size, Size) { return 7; }));
        auto bindings = bindings_of({operands.read()...}, result.written());
        run_floating_kernel<T>(operation, bindings);
        EXPECT_EQ(result.grid()(0) & ~1, 0);
        return result.grid()(0) == 1;
    }
};

TYPED_TEST_SUITE(FloatingComparisons, FloatingTypes);

TEST(FloatingTolerances, AreThoseOfTheStorage) {
    EXPECT_EQ(floating_tolerance<Complex32>.absolute, 0.0009765625);
    EXPECT_EQ(floating_tolerance<Float16>.relative, 0.00390625);
    EXPECT_EQ(floating_tolerance<BFloat16>.absolute, 0.0078125);
    EXPECT_EQ(floating_tolerance<BFloat16>.relative, 0.03125);
    EXPECT_EQ(floating_tolerance<std::complex<float>>.absolute, 9.999999974752427e-07);
    EXPECT_EQ(floating_tolerance<float>.relative, 9.999999747378752e-06);
    EXPECT_EQ(floating_tolerance<std::complex<double>>.absolute, 2.220446049250313e-16);
    EXPECT_EQ(floating_tolerance<double>.relative, 8.881784197001252e-16);
}

TYPED_TEST(FloatingComparisons, EachPartIsEqualWithinEitherTolerance) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const double absolute = this->tolerance_.absolute;
    const double relative = this->tolerance_.relative;
    const std::tuple<double, double, bool> cases[] = {{0, absolute, true},
                                                      {0, 1.25 * absolute, false},
                                                      {-absolute / 2, absolute / 2, true},
                                                      {1024, 1024 * (1 + 0.75 * relative), true},
                                                      {1024, 1024 * (1 + 1.5 * relative), false},
                                                      {-1024, 1024, false},
                                                      {0., -0., true},
                                                      {inf, inf, true},
                                                      {inf, -inf, false},
                                                      {inf, 1, false},
                                                      {nan, nan, false},
                                                      {1, nan, false}};
    for (const auto& [a, b, expected] : cases) {
        for (std::size_t part = 0; part < part_count<TypeParam>; ++part) {
            const auto x = this->with_part(part, a);
            const auto y = this->with_part(part, b);
            EXPECT_EQ(this->equal(x, y), expected) << a << ", " << b << " in part " << part;
            EXPECT_EQ(this->equal(y, x), expected) << b << ", " << a << " in part " << part;
        }
    }
}

TYPED_TEST(FloatingComparisons, VectorsOfDifferentSizesDiffer) {
    const auto zeros = [](Size n) {
        return Grid<TypeParam>(n, 1, [](Size, Size) { return TypeParam{}; });
    };
    EXPECT_TRUE(this->equal(zeros(0), zeros(0)));
    EXPECT_FALSE(this->equal(zeros(0), zeros(1)));
    EXPECT_FALSE(this->equal(zeros(3), zeros(2)));
}

TYPED_TEST(FloatingComparisons, AUnitaryMatrixIsSquareWithOrthonormalLines) {
    using Value = ComputeOf<TypeParam>;
    for (const auto order : orders_of<TypeParam>()) {
        // Ones on the diagonal, signed, and one more entry.
        const auto unitary = [&](Size rows, Size cols, Size row = 0, Size col = 0, double off = 0) {
            return this->unitary({rows, cols,
                                  [&](Size i, Size j) {
                                      const double one = i != j ? 0 : i % 2 == 0 ? 1 : -1;
                                      const double extra = i == row && j == col ? off : 0;
                                      return Value(
                                          static_cast<decltype(std::abs(Value()))>(one + extra));
                                  }},
                                 order);
        };
        EXPECT_TRUE(unitary(0, 0));
        EXPECT_FALSE(unitary(0, 3));
        EXPECT_FALSE(unitary(2, 3));
        const double absolute = this->tolerance_.absolute;
        const double relative = this->tolerance_.relative;
        for (const Size n : {1, 2, 8, 11}) {
            EXPECT_TRUE(unitary(n, n));
            for (const Size i : {Size{0}, n / 2, n - 1}) {
                EXPECT_FALSE(unitary(n, n, i, i, i % 2 == 0 ? relative : -relative));
                for (const Size j : {Size{0}, n / 3, n - 1}) {
                    if (i != j) {
                        EXPECT_TRUE(unitary(n, n, i, j, 0.75 * absolute));
                        EXPECT_FALSE(unitary(n, n, i, j, 1.5 * absolute)) << i << ", " << j;
                        EXPECT_FALSE(unitary(n, n, i, j, std::nan("")));
                    }
                }
            }
        }
    }
}

TEST(FloatingComparisonsOfMatrices, LinesAreThoseOfTheElementOrder) {
    using C = std::complex<float>;
    // Orthogonal rows whose lengths are 1 within the relative tolerance; the columns are off being
    // orthogonal by more than the absolute one.
    const Grid<C> a(2, 2, [](Size i, Size j) {
        const float rotation[2][2] = {{0.6F, 0.8F}, {-0.8F, 0.6F}};
        return C(rotation[i][j] * (i == 0 ? 1.0000025F : 0.9999975F), 0);
    });
    const Grid<C> imaginary(2, 2, [&](Size i, Size j) { return a(i, j) * C(0, 1); });
    for (const auto& grid : {a, imaginary}) {
        for (const auto order : orders_of<C>()) {
            const bool row_major = order == DataMatrixLayout::row_major;
            const Grid<int> expected(1, 1, [=](Size, Size) { return row_major ? 1 : 0; });
            expect_result<C>(FloatingOperation::is_unitary,
                             {Operand<C>(OperandKind::Matrix, grid, order).read()},
                             Operand<int>(OperandKind::Scalar, expected), unwritten<int>(1, 1),
                             expected);
        }
    }
}

} // namespace
} // namespace Tessaline
