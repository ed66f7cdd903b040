// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_complex_division.h"
#include "backend/cpu/floating_test_support.h"

namespace Tessaline {
namespace {

using Testing::expect_result;
using Testing::Grid;
using Testing::Operand;
using Testing::orders_of;
using Testing::random_grid;

using Size = std::uint64_t;

/// The ordinary formula in two roundings a part, with the library's recovery where it gives NaN.
template <typename Value>
Value times(Value x, Value y) {
    if constexpr (is_complex_element<Value>) {
        const Value product(x.real() * y.real() - x.imag() * y.imag(),
                            x.real() * y.imag() + x.imag() * y.real());
        return std::isnan(product.real()) && std::isnan(product.imag()) ? x * y : product;
    } else {
        return x * y;
    }
}

template <typename Value>
Value over(Value x, Value y) {
    if constexpr (is_complex_element<Value>) {
        return careful_quotient(x, y);
    } else {
        return x / y;
    }
}

template <typename Value>
Value conjugate_of(Value x) {
    if constexpr (is_complex_element<Value>) {
        return {x.real(), -x.imag()};
    } else {
        return x;
    }
}

/// The one NaN of all results of arithmetic.
template <typename Value>
Value result_of(Value x) {
    if constexpr (is_complex_element<Value>) {
        return {result_of(x.real()), result_of(x.imag())};
    } else {
        return std::isnan(x) ? std::numeric_limits<Value>::quiet_NaN() : x;
    }
}

template <typename T>
class FloatingKernels : public ::testing::Test {
  protected:
    using C = ComputeOf<T>;
    using Make = std::function<C(Size, Size)>;

    Grid<T> random(Size rows, Size cols, bool with_specials = true) {
        return random_grid<T>(rows, cols, random_, with_specials);
    }

    /// Expects a kernel to give the elements of `make` in a vector.
    static void expect_vector(FloatingOperation operation,
                              const std::vector<OperandBinding>& inputs, Size size,
                              const Make& make) {
        const Grid<T> expected(size, 1, make);
        expect_result<T>(operation, inputs, Operand<T>::vector(expected), expected);
    }
    static void expect_scalar(FloatingOperation operation,
                              const std::vector<OperandBinding>& inputs, C value) {
        const Grid<T> expected(1, 1, [value](Size, Size) { return value; });
        expect_result<T>(operation, inputs, Operand<T>::scalar(expected), expected);
    }

    /// Expects a kernel to give the elements of `make` in a matrix, for every order of every
    /// operand.
    static void expect_matrix(FloatingOperation operation, const std::vector<Grid<T>>& inputs,
                              Size rows, Size cols, const Make& make) {
        const Grid<T> expected(rows, cols, make);
        const auto orders = orders_of<T>();
        const std::size_t operands = inputs.size() + 1;
        const std::size_t combinations = orders.size() == 1 ? 1 : std::size_t{1} << operands;
        for (std::size_t combination = 0; combination < combinations; ++combination) {
            std::vector<Operand<T>> stored;
            std::vector<OperandBinding> bound;
            for (std::size_t index = 0; index < inputs.size(); ++index) {
                stored.push_back(
                    Operand<T>::matrix(inputs[index], orders[combination >> index & 1U]));
                bound.push_back(stored.back().read());
            }
            const auto order = orders[combination >> inputs.size() & 1U];
            expect_result<T>(operation, bound, Operand<T>::matrix(expected, order), expected);
        }
    }

    /// The sum of term(k) over k below `count`, in order.
    template <typename Term>
    static C sum(Size count, const Term& term) {
        C total{};
        for (Size k = 0; k < count; ++k) {
            total += term(k);
        }
        return result_of(total);
    }

    Testing::CounterRandom random_{20};
};

TYPED_TEST_SUITE(FloatingKernels, Testing::FloatingTypes);

TYPED_TEST(FloatingKernels, ElementwiseKernelsMatchPlainLoops) {
    using T = TypeParam;
    using Value = ComputeOf<T>;
    struct Binary {
        FloatingOperation operation;
        Value (*function)(Value, Value);
    };
    const Binary of_vectors[] = {
        {FloatingOperation::multiply, [](Value x, Value y) { return times(x, y); }},
        {FloatingOperation::add, [](Value x, Value y) { return x + y; }},
        {FloatingOperation::subtract, [](Value x, Value y) { return x - y; }}};
    const Binary by_scalar[] = {
        {FloatingOperation::scale, [](Value x, Value y) { return times(x, y); }},
        {FloatingOperation::divide, [](Value x, Value y) { return over(x, y); }}};
    for (const Size n : {0, 1, 2, 7, 16, 37, 211}) {
        const Grid<T> a = this->random(n, 1);
        const Grid<T> b = this->random(n, 1);
        const Grid<T> factor = this->random(1, 1);
        const auto in0 = Operand<T>::vector(a);
        const auto in1 = Operand<T>::vector(b);
        const auto scalar = Operand<T>::scalar(factor);
        for (const Binary& each : of_vectors) {
            this->expect_vector(each.operation, {in0.read(), in1.read()}, n,
                                [&](Size i, Size) { return result_of(each.function(a(i), b(i))); });
        }
        for (const Binary& each : by_scalar) {
            this->expect_vector(each.operation, {in0.read(), scalar.read()}, n, [&](Size i, Size) {
                return result_of(each.function(a(i), factor(0)));
            });
        }
        this->expect_vector(FloatingOperation::sqrt, {in0.read()}, n,
                            [&](Size i, Size) { return result_of(std::sqrt(a(i))); });
        const Grid<T> conjugated(n, 1, [&](Size i, Size) { return conjugate_of(a(i)); });
        auto in_place = Operand<T>::vector(a);
        expect_result<T>(FloatingOperation::conjugate, {}, in_place, a,
                         is_complex_element<T> ? conjugated : a);
    }
}

TYPED_TEST(FloatingKernels, ReductionsAddInOrder) {
    using T = TypeParam;
    for (const Size n : {0, 1, 2, 7, 16, 301}) {
        for (const bool with_specials : {false, true}) {
            const Grid<T> a = this->random(n, 1, with_specials);
            const Grid<T> b = this->random(n, 1, with_specials);
            const auto in0 = Operand<T>::vector(a);
            const auto in1 = Operand<T>::vector(b);
            this->expect_scalar(FloatingOperation::sum, {in0.read()},
                                this->sum(n, [&](Size i) { return a(i); }));
            this->expect_scalar(
                FloatingOperation::inner, {in0.read(), in1.read()},
                this->sum(n, [&](Size i) { return times(conjugate_of(a(i)), b(i)); }));
            Component<ComputeOf<T>> norm = 0;
            for (Size i = 0; i < n; ++i) {
                norm = std::hypot(norm, std::abs(a(i)));
            }
            this->expect_scalar(FloatingOperation::norm, {in0.read()}, result_of(norm));
        }
    }
    for (const auto& [rows, cols] : {std::pair<Size, Size>{0, 3}, {5, 5}, {3, 7}, {7, 3}}) {
        const Grid<T> a = this->random(rows, cols, false);
        for (const auto order : orders_of<T>()) {
            const auto in0 = Operand<T>::matrix(a, order);
            this->expect_scalar(FloatingOperation::trace, {in0.read()},
                                this->sum(std::min(rows, cols), [&](Size i) { return a(i, i); }));
        }
    }
}

TYPED_TEST(FloatingKernels, TheNormOverflowsOnlyWhereItsValueDoes) {
    using T = TypeParam;
    using Real = Component<ComputeOf<T>>;
    const auto [largest, normal, subnormal] = Testing::range_of<Component<T>>();
    for (const Real part : {static_cast<Real>(largest) / 8, static_cast<Real>(normal) * 8}) {
        const auto in = Operand<T>::vector(Grid<T>(4, 1, [=](Size, Size) { return part; }));
        this->expect_scalar(FloatingOperation::norm, {in.read()}, 2 * part);
    }
}

TYPED_TEST(FloatingKernels, MatrixProductsAddByIncreasingInnerIndex) {
    using T = TypeParam;
    struct Shape {
        Size m, k, n;
    };
    for (const auto& [m, k, n] : {Shape{0, 3, 2},
                                  {2, 0, 3},
                                  {3, 2, 0},
                                  {1, 1, 1},
                                  {2, 3, 5},
                                  {11, 7, 13},
                                  {17, 31, 8},
                                  {3, 5, 259}}) {
        for (const bool with_specials : {false, true}) {
            const Grid<T> a = this->random(m, k, with_specials);
            const Grid<T> b = this->random(k, n, with_specials);
            const auto element = [&, inner = k](Size i, Size j) {
                return this->sum(inner, [&](Size t) { return times(a(i, t), b(t, j)); });
            };
            this->expect_matrix(FloatingOperation::matmul, {a, b}, m, n, element);
            if (n == 0) {
                continue;
            }
            const auto in1 =
                Operand<T>::vector(Grid<T>(k, 1, [&](Size i, Size) { return b(i, 0); }));
            for (const auto order : orders_of<T>()) {
                const auto in0 = Operand<T>::matrix(a, order);
                this->expect_vector(FloatingOperation::matvec, {in0.read(), in1.read()}, m,
                                    [&](Size i, Size) { return element(i, 0); });
            }
        }
    }
}

TYPED_TEST(FloatingKernels, TransposesAndTensorProductsPlaceEveryElement) {
    using T = TypeParam;
    for (const auto& [rows, cols] :
         {std::pair<Size, Size>{0, 3}, {3, 0}, {1, 1}, {3, 5}, {13, 7}}) {
        const Grid<T> a = this->random(rows, cols);
        this->expect_matrix(FloatingOperation::transpose, {a}, cols, rows,
                            [&](Size i, Size j) { return a(j, i); });
        this->expect_matrix(FloatingOperation::adjoint, {a}, cols, rows,
                            [&](Size i, Size j) { return conjugate_of(a(j, i)); });
        for (const auto& [r, c] : {std::pair<Size, Size>{2, 0}, {0, 2}, {1, 1}, {2, 3}, {5, 4}}) {
            const Grid<T> b = this->random(r, c);
            const auto element = [&, r = r, c = c](Size i, Size j) {
                return result_of(times(a(i / r, j / c), b(i % r, j % c)));
            };
            this->expect_matrix(FloatingOperation::kron, {a, b}, rows * r, cols * c, element);
        }
        const Grid<T> x = this->random(rows, 1);
        const Grid<T> y = this->random(cols, 1);
        const auto in0 = Operand<T>::vector(x);
        const auto in1 = Operand<T>::vector(y);
        const Grid<T> outer(rows, cols,
                            [&](Size i, Size j) { return result_of(times(x(i), y(j))); });
        for (const auto order : orders_of<T>()) {
            expect_result<T>(FloatingOperation::outer, {in0.read(), in1.read()},
                             Operand<T>::matrix(outer, order), outer);
        }
    }
}

TYPED_TEST(FloatingKernels, PartialTracesSumOverOneSubsystem) {
    using T = TypeParam;
    for (const auto& [m, traced] :
         {std::pair<Size, Size>{0, 1}, {1, 1}, {1, 6}, {6, 1}, {2, 3}, {5, 3}, {7, 4}}) {
        const Grid<T> a = this->random(m * traced, m * traced, false);
        const auto sum = [&, k = traced](const auto& term) { return this->sum(k, term); };
        this->expect_matrix(FloatingOperation::partial_trace_right, {a}, m, m,
                            [&, k = traced](Size i, Size j) {
                                return sum([&](Size t) { return a(i * k + t, j * k + t); });
                            });
        this->expect_matrix(FloatingOperation::partial_trace_left, {a}, m, m,
                            [&, m = m](Size i, Size j) {
                                return sum([&](Size t) { return a(t * m + i, t * m + j); });
                            });
    }
}

TYPED_TEST(FloatingKernels, EyeWritesOnesOnTheDiagonalOnly) {
    for (const Size n : {0, 1, 2, 7, 12}) {
        this->expect_matrix(FloatingOperation::eye, {}, n, n,
                            [](Size i, Size j) { return ComputeOf<TypeParam>(i == j ? 1 : 0); });
    }
}

/// Bounds each element of a product by the rounding errors of its sum: every term is rounded at
/// most three times before it is added, and takes part in at most k additions.
TYPED_TEST(FloatingKernels, MatrixProductsStayWithinTheirRoundingErrors) {
    using T = TypeParam;
    using Real = Component<ComputeOf<T>>;
    constexpr Size order = 29;
    const Grid<T> a = this->random(order, order, false);
    const Grid<T> b = this->random(order, order, false);
    const auto in0 = Operand<T>::matrix(a, DataMatrixLayout::row_major);
    const auto in1 = Operand<T>::matrix(b, DataMatrixLayout::row_major);
    const auto out = Operand<T>::matrix(a, DataMatrixLayout::row_major);
    auto bindings = Testing::bindings_of({in0.read(), in1.read()}, out.written());
    run_floating_kernel<T>(FloatingOperation::matmul, bindings);
    const Grid<T> found = out.grid();
    const auto range = Testing::range_of<Component<T>>();
    const long double store = static_cast<Real>(range[2]) / static_cast<Real>(range[1]) / 2;
    const long double compute = std::numeric_limits<Real>::epsilon() / 2;
    for (Size i = 0; i < order; ++i) {
        for (Size j = 0; j < order; ++j) {
            std::complex<long double> exact;
            long double terms = 0;
            for (Size k = 0; k < order; ++k) {
                const std::complex<long double> x(a(i, k)), y(b(k, j));
                exact += x * y;
                terms += std::abs(x) * std::abs(y);
            }
            const std::complex<long double> error = std::complex<long double>(found(i, j)) - exact;
            ASSERT_LE(std::abs(error), store * std::abs(exact) + (order + 3) * compute * 2 * terms);
        }
    }
}

TEST(FloatingKernelsOfComplexTypes, ProductsRecoverInfinities) {
    using C = std::complex<float>;
    constexpr float inf = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    for (const C value : {C(inf, nan), C(nan, inf), C(inf, inf), C(inf, 0)}) {
        const auto a = Operand<C>::vector(Grid<C>(1, 1, [=](Size, Size) { return value; }));
        const auto b = Operand<C>::vector(Grid<C>(1, 1, [](Size, Size) { return C(1, 1); }));
        const auto out = Operand<C>::vector(Grid<C>(1, 1, [](Size, Size) { return C(0, 0); }));
        auto bindings = Testing::bindings_of({a.read(), b.read()}, out.written());
        run_floating_kernel<C>(FloatingOperation::multiply, bindings);
        const C product = out.grid()(0);
        EXPECT_TRUE(std::isinf(product.real()) || std::isinf(product.imag())) << value;
    }
}

} // namespace
} // namespace Tessaline
