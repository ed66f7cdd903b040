// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/numbers/complex_division.h"

namespace Tessaline {
namespace {

using namespace Testing;

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

/// Of a stored or a compute value: a move, which changes one sign bit.
template <typename Value>
Value conjugate_of(Value x) {
    auto bits = std::bit_cast<Parts<Value>>(x);
    if constexpr (is_complex_element<Value>) {
        using Part = Component<Value>;
        bits[1] = std::bit_cast<Part>(
            static_cast<PartBits<Part>>(std::bit_cast<PartBits<Part>>(bits[1]) ^ sign_bit<Part>));
    }
    return std::bit_cast<Value>(bits);
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

constexpr OperandKind scalar = OperandKind::Scalar;
constexpr OperandKind vector = OperandKind::Vector;
constexpr OperandKind matrix = OperandKind::Matrix;

template <typename T>
class FloatingKernels : public ::testing::Test {
  protected:
    using C = ComputeOf<T>;
    using Inputs = std::vector<std::pair<OperandKind, Grid<T>>>;

    Grid<T> random(Size rows, Size cols, bool with_specials = true) {
        return random_grid<T>(rows, cols, random_, with_specials);
    }

    /// Expects a kernel to give the elements of `make(i, j)`, for every order of every matrix, by
    /// the kernels of every instruction set.
    template <typename Make>
    static void expect(FloatingOperation operation, const Inputs& inputs, OperandKind kind,
                       Size rows, Size cols, const Make& make) {
        const Grid<T> expected(rows, cols, make);
        std::vector<std::vector<OperandBinding>> choices{{}};
        std::vector<Operand<T>> stored;
        for (const auto& [input_kind, grid] : inputs) {
            std::vector<std::vector<OperandBinding>> longer;
            for (const auto order : orders_of<T>(input_kind)) {
                stored.emplace_back(input_kind, grid, order);
                for (auto bindings : choices) {
                    bindings.push_back(stored.back().read());
                    longer.push_back(bindings);
                }
            }
            choices = longer;
        }
        for (const auto order : orders_of<T>(kind)) {
            for (const auto& bindings : choices) {
                for_each_unfused_table([&](const SimdKernels::UnfusedTable& table) {
                    expect_result<T>(operation, bindings, Operand<T>(kind, expected, order),
                                     unwritten<T>(rows, cols), expected, table);
                });
            }
        }
    }

    /// The result of adding term(k) for each k below `count`, in order.
    template <typename Term>
    static C sum(Size count, const Term& term) {
        C total{};
        for (Size k = 0; k < count; ++k) {
            total += term(k);
        }
        return result_of(total);
    }

  private:
    CounterRandom random_{20};
};

TYPED_TEST_SUITE(FloatingKernels, FloatingTypes);

TYPED_TEST(FloatingKernels, ElementwiseKernelsMatchPlainLoops) {
    using T = TypeParam;
    using Value = ComputeOf<T>;
    using Function = Value (*)(Value, Value);
    struct Binary {
        FloatingOperation operation;
        bool by_scalar;
        Function function;
    };
    const Binary binaries[] = {
        {FloatingOperation::multiply, false, [](Value x, Value y) { return times(x, y); }},
        {FloatingOperation::add, false, [](Value x, Value y) { return x + y; }},
        {FloatingOperation::subtract, false, [](Value x, Value y) { return x - y; }},
        {FloatingOperation::scale, true, [](Value x, Value y) { return times(x, y); }},
        {FloatingOperation::divide, true, [](Value x, Value y) { return over(x, y); }}};
    for (const Size n : {0, 1, 2, 7, 16, 37, 211}) {
        const Grid<T> a = this->random(n, 1);
        for (const Binary& each : binaries) {
            const Grid<T> b = this->random(each.by_scalar ? 1 : n, 1);
            this->expect(each.operation, {{vector, a}, {each.by_scalar ? scalar : vector, b}},
                         vector, n, 1, [&](Size i, Size) {
                             return result_of(each.function(a(i), b(each.by_scalar ? 0 : i)));
                         });
        }
        this->expect(FloatingOperation::sqrt, {{vector, a}}, vector, n, 1,
                     [&](Size i, Size) { return result_of(std::sqrt(a(i))); });
        const Grid<T> conjugated(n, 1, [&](Size i, Size) { return conjugate_of(a.elements[i]); });
        expect_result<T>(FloatingOperation::conjugate, {}, Operand<T>(vector, a), a, conjugated);
    }
}

TYPED_TEST(FloatingKernels, ReductionsAddInOrder) {
    using T = TypeParam;
    const auto expect = [this](FloatingOperation operation,
                               const typename TestFixture::Inputs& inputs, ComputeOf<T> value) {
        this->expect(operation, inputs, scalar, 1, 1, [value](Size, Size) { return value; });
    };
    const auto expect_norm = [&](const Grid<T>& a) {
        Component<ComputeOf<T>> norm = 0;
        for (Size i = 0; i < a.rows; ++i) {
            norm = std::hypot(norm, std::abs(a(i)));
        }
        expect(FloatingOperation::norm, {{vector, a}}, result_of(norm));
    };
    for (const Size n : {0, 1, 2, 7, 16, 301}) {
        for (const bool with_specials : {false, true}) {
            const Grid<T> a = this->random(n, 1, with_specials);
            const Grid<T> b = this->random(n, 1, with_specials);
            expect(FloatingOperation::sum, {{vector, a}},
                   this->sum(n, [&](Size i) { return a(i); }));
            expect(FloatingOperation::inner, {{vector, a}, {vector, b}},
                   this->sum(n, [&](Size i) { return times(conjugate_of(a(i)), b(i)); }));
            expect_norm(a);
        }
    }
    for (const auto& [rows, cols] : {std::pair<Size, Size>{0, 3}, {5, 5}, {3, 7}, {7, 3}}) {
        const Grid<T> a = this->random(rows, cols, false);
        expect(FloatingOperation::trace, {{matrix, a}},
               this->sum(std::min(rows, cols), [&](Size i) { return a(i, i); }));
    }
    // Squares that leave the range, terms that are alike, and such that outgrow all before them.
    using Real = Component<ComputeOf<T>>;
    const auto range = range_of<Component<T>>();
    const std::pair<Real, Real> progressions[] = {{static_cast<Real>(range[0]) / 64, 1},
                                                  {static_cast<Real>(range[1]) * 8, 1},
                                                  {static_cast<Real>(range[2]), 1},
                                                  {1, 1},
                                                  {1, 1.25},
                                                  {1, 1.5}};
    for (const auto& [first, factor] : progressions) {
        for (const Size n : {17, 64}) {
            expect_norm({n, 1, [r = first, f = factor](Size i, Size) {
                             return ComputeOf<T>(r * std::pow(f, static_cast<Real>(i)));
                         }});
        }
    }
}

TYPED_TEST(FloatingKernels, MatrixProductsAddByIncreasingInnerIndex) {
    using T = TypeParam;
    const Size shapes[][3] = {{0, 3, 2},   {2, 0, 3},   {3, 2, 0},   {1, 1, 1},    {2, 3, 5},
                              {11, 7, 13}, {17, 31, 8}, {3, 5, 259}, {13, 400, 67}};
    for (const auto& [m, k, n] : shapes) {
        for (const bool with_specials : {false, true}) {
            const Grid<T> a = this->random(m, k, with_specials);
            const Grid<T> b = this->random(k, n, with_specials);
            const Grid<T> x = this->random(k, 1, with_specials);
            const auto product = [&, inner = k](const Grid<T>& right, Size i, Size j) {
                return this->sum(inner, [&](Size t) { return times(a(i, t), right(t, j)); });
            };
            this->expect(FloatingOperation::matmul, {{matrix, a}, {matrix, b}}, matrix, m, n,
                         [&](Size i, Size j) { return product(b, i, j); });
            this->expect(FloatingOperation::matvec, {{matrix, a}, {vector, x}}, vector, m, 1,
                         [&](Size i, Size) { return product(x, i, 0); });
        }
    }
}

TYPED_TEST(FloatingKernels, TransposesAndTensorProductsPlaceEveryElement) {
    using T = TypeParam;
    for (const auto& [rows, cols] :
         {std::pair<Size, Size>{0, 3}, {3, 0}, {1, 1}, {3, 5}, {13, 7}}) {
        const Grid<T> a = this->random(rows, cols);
        this->expect(FloatingOperation::transpose, {{matrix, a}}, matrix, cols, rows,
                     [&](Size i, Size j) { return a.elements[j * a.cols + i]; });
        this->expect(FloatingOperation::adjoint, {{matrix, a}}, matrix, cols, rows,
                     [&](Size i, Size j) { return conjugate_of(a.elements[j * a.cols + i]); });
        const Grid<T> x = this->random(rows, 1);
        const Grid<T> y = this->random(cols, 1);
        this->expect(FloatingOperation::outer, {{vector, x}, {vector, y}}, matrix, rows, cols,
                     [&](Size i, Size j) { return result_of(times(x(i), y(j))); });
        for (const auto& [r, c] :
             {std::pair<Size, Size>{2, 0}, {0, 2}, {1, 1}, {2, 3}, {5, 4}, {2, 37}}) {
            const Grid<T> b = this->random(r, c);
            this->expect(FloatingOperation::kron, {{matrix, a}, {matrix, b}}, matrix, rows * r,
                         cols * c, [&, r = r, c = c](Size i, Size j) {
                             return result_of(times(a(i / r, j / c), b(i % r, j % c)));
                         });
        }
    }
}

TYPED_TEST(FloatingKernels, PartialTracesSumOverOneSubsystem) {
    using T = TypeParam;
    const Size shapes[][2] = {{0, 1}, {1, 1}, {1, 6}, {6, 1}, {2, 3},
                              {5, 3}, {7, 4}, {3, 9}, {33, 2}};
    for (const auto& [order, traced] : shapes) {
        const Size m = order;
        const Size k = traced;
        const Grid<T> a = this->random(m * k, m * k, false);
        this->expect(FloatingOperation::partial_trace_right, {{matrix, a}}, matrix, m, m,
                     [&](Size i, Size j) {
                         return this->sum(k, [&](Size t) { return a(i * k + t, j * k + t); });
                     });
        this->expect(FloatingOperation::partial_trace_left, {{matrix, a}}, matrix, m, m,
                     [&](Size i, Size j) {
                         return this->sum(k, [&](Size t) { return a(t * m + i, t * m + j); });
                     });
    }
}

TYPED_TEST(FloatingKernels, EyeWritesOnesOnTheDiagonalOnly) {
    for (const Size n : {0, 1, 2, 7, 12}) {
        this->expect(FloatingOperation::eye, {}, matrix, n, n,
                     [](Size i, Size j) { return ComputeOf<TypeParam>(i == j ? 1 : 0); });
    }
}

} // namespace
} // namespace Tessaline
