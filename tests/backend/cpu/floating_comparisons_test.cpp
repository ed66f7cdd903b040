// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_comparisons.h"

#include "backend/cpu/floating_test_support.h"

namespace Tessaline {
namespace {

using Testing::Grid;
using Testing::Operand;
using Testing::orders_of;

using Size = std::uint64_t;

/// The tolerances of each stored type, as reports state them.
template <typename T>
std::pair<double, double> stated_tolerance() {
    if constexpr (std::is_same_v<T, BFloat16>) {
        return {0.0078125, 0.03125};
    } else if constexpr (std::is_same_v<Component<T>, Float16>) {
        return {0.0009765625, 0.00390625};
    } else if constexpr (std::is_same_v<Component<T>, float>) {
        return {9.999999974752427e-07, 9.999999747378752e-06};
    } else {
        return {2.220446049250313e-16, 8.881784197001252e-16};
    }
}

template <typename Real>
bool close(Real a, Real b, std::pair<double, double> tolerance) {
    const Real difference = std::abs(a - b);
    const bool finite = std::isfinite(a) && std::isfinite(b);
    return a == b || (finite && (difference <= static_cast<Real>(tolerance.first) ||
                                 difference <= static_cast<Real>(tolerance.second) *
                                                   std::max(std::abs(a), std::abs(b))));
}

template <typename T>
class FloatingComparisons : public ::testing::Test {
  protected:
    using Real = Component<ComputeOf<T>>;

    static int answer(FloatingOperation operation, const std::vector<OperandBinding>& inputs) {
        const auto result = Operand<int>::scalar(Grid<int>(1, 1, [](Size, Size) { return 7; }));
        auto bindings = Testing::bindings_of(inputs, result.written());
        run_floating_kernel<T>(operation, bindings);
        return result.grid()(0);
    }
    static int equal(const Grid<T>& a, const Grid<T>& b) {
        return answer(FloatingOperation::vector_equal,
                      {Operand<T>::vector(a).read(), Operand<T>::vector(b).read()});
    }
    static int unitary(const Grid<T>& grid, DataMatrixLayout order) {
        return answer(FloatingOperation::is_unitary, {Operand<T>::matrix(grid, order).read()});
    }
    /// A vector with one part of its middle element set, the other parts ones.
    static Grid<T> with_part(std::size_t part, Real value) {
        return {3, 1, [=](Size i, Size) {
                    Testing::Parts<T> parts;
                    parts.fill(static_cast<Component<T>>(Real(1)));
                    if (i == 1) {
                        parts[part] = static_cast<Component<T>>(value);
                    }
                    return std::bit_cast<T>(parts);
                }};
    }
};

TYPED_TEST_SUITE(FloatingComparisons, Testing::FloatingTypes);

TYPED_TEST(FloatingComparisons, VectorsAreEqualWithinTheTolerancesOfTheirStorage) {
    using T = TypeParam;
    using Limits = std::numeric_limits<Component<ComputeOf<T>>>;
    const auto [absolute, relative] = stated_tolerance<T>();
    EXPECT_EQ(floating_tolerance<T>.absolute, absolute);
    EXPECT_EQ(floating_tolerance<T>.relative, relative);
    struct Case {
        double a, b;
        int equal;
    };
    const Case cases[] = {{0, absolute, 1},
                          {0, 1.25 * absolute, 0},
                          {-absolute / 2, absolute / 2, 1},
                          {1024, 1024 * (1 + 0.75 * relative), 1},
                          {1024, 1024 * (1 + 1.5 * relative), 0},
                          {-1024, 1024, 0},
                          {0., -0., 1},
                          {Limits::infinity(), Limits::infinity(), 1},
                          {Limits::infinity(), -Limits::infinity(), 0},
                          {Limits::infinity(), 1, 0},
                          {Limits::quiet_NaN(), Limits::quiet_NaN(), 0},
                          {1, Limits::quiet_NaN(), 0}};
    for (const auto& [a, b, expected] : cases) {
        for (std::size_t part = 0; part < Testing::part_count<T>; ++part) {
            using Part = Component<ComputeOf<T>>;
            const auto x = this->with_part(part, static_cast<Part>(a));
            const auto y = this->with_part(part, static_cast<Part>(b));
            EXPECT_EQ(this->equal(x, y), expected) << a << ", " << b << " in part " << part;
            EXPECT_EQ(this->equal(y, x), expected) << b << ", " << a << " in part " << part;
        }
    }
}

TYPED_TEST(FloatingComparisons, VectorsOfDifferentSizesDifferWithoutALook) {
    const auto of_size = [](Size n) {
        return Grid<TypeParam>(n, 1, [](Size, Size) { return ComputeOf<TypeParam>(1); });
    };
    EXPECT_EQ(this->equal(of_size(0), of_size(0)), 1);
    EXPECT_EQ(this->equal(of_size(0), of_size(1)), 0);
    EXPECT_EQ(this->equal(of_size(3), of_size(2)), 0);
}

TYPED_TEST(FloatingComparisons, OnlySquareMatricesAreUnitary) {
    for (const auto order : orders_of<TypeParam>()) {
        for (const auto& [rows, cols, expected] :
             {std::tuple<Size, Size, int>{0, 0, 1}, {0, 3, 0}, {1, 1, 1}, {2, 3, 0}, {3, 3, 1}}) {
            const Grid<TypeParam> ones(
                rows, cols, [](Size i, Size j) { return ComputeOf<TypeParam>(i == j ? 1 : 0); });
            EXPECT_EQ(this->unitary(ones, order), expected) << rows << " by " << cols;
        }
    }
}

/// Signed permutations with one entry off by about the tolerance, against the inner products of all
/// pairs of lines.
TYPED_TEST(FloatingComparisons, AMatrixIsUnitaryWhenAllPairsOfLinesPass) {
    using T = TypeParam;
    using C = ComputeOf<T>;
    using Part = Component<ComputeOf<T>>;
    const auto tolerance = stated_tolerance<T>();
    Testing::CounterRandom random(8);
    int answers[2] = {0, 0};
    for (int round = 0; round < 400; ++round) {
        const Size n = 1 + random.below(11);
        const Size shift = random.below(n);
        const Size row = random.below(n);
        const Size col = random.below(n);
        const double scale = random.below(2) == 0 ? tolerance.first : tolerance.second;
        const auto off = static_cast<Part>(scale * static_cast<double>(random.below(9)) / 4);
        const bool imaginary = is_complex_element<T> && random.below(2) == 0;
        const Grid<T> a(n, n, [&](Size i, Size j) {
            C value = (i + shift) % n == j ? Part(i % 2 == 0 ? 1 : -1) : Part(0);
            if (i == row && j == col) {
                if constexpr (is_complex_element<T>) {
                    value += imaginary ? C(0, off) : C(off, 0);
                } else {
                    value += off;
                }
            }
            return value;
        });
        for (const auto order : orders_of<T>()) {
            const auto line = [&](Size i, Size k) {
                return order == DataMatrixLayout::row_major ? a(i, k) : a(k, i);
            };
            bool expected = true;
            for (Size i = 0; i < n; ++i) {
                for (Size j = 0; j < n; ++j) {
                    std::complex<Part> product;
                    for (Size k = 0; k < n; ++k) {
                        const std::complex<Part> x(line(i, k)), y(line(j, k));
                        product += std::conj(x) * y;
                    }
                    expected = expected && close(product.real(), Part(i == j), tolerance) &&
                               close(product.imag(), Part(0), tolerance);
                }
            }
            ++answers[expected ? 1 : 0];
            ASSERT_EQ(this->unitary(a, order), expected ? 1 : 0) << "round " << round;
        }
    }
    EXPECT_GT(answers[0], 50);
    EXPECT_GT(answers[1], 50);
}

TEST(FloatingComparisonsOfComplexTypes, LinesAreThoseOfTheMatrixsOrder) {
    using C = std::complex<float>;
    // Orthogonal rows whose lengths are 1 within the relative tolerance; the columns are off being
    // orthogonal by more than the absolute one.
    const Grid<C> a(2, 2, [](Size i, Size j) {
        const float rotation[2][2] = {{0.6F, 0.8F}, {-0.8F, 0.6F}};
        return C(rotation[i][j] * (i == 0 ? 1.0000025F : 0.9999975F), 0);
    });
    for (const auto order : orders_of<C>()) {
        const auto result = Operand<int>::scalar(Grid<int>(1, 1, [](Size, Size) { return 7; }));
        const auto matrix = Operand<C>::matrix(a, order);
        auto bindings = Testing::bindings_of({matrix.read()}, result.written());
        run_floating_kernel<C>(FloatingOperation::is_unitary, bindings);
        EXPECT_EQ(result.grid()(0), order == DataMatrixLayout::row_major ? 1 : 0);
    }
}

} // namespace
} // namespace Tessaline
