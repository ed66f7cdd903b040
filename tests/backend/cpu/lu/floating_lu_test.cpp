// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/lu/factor.h"
#include "backend/cpu/lu/logdet.h"
#include "backend/cpu/lu/lu_problems.h"
#include "backend/cpu/lu/solve.h"
#include "support/expect_error.h"

namespace Tessaline {

namespace {

using namespace Testing;
using Operation = FloatingOperation;

/// The factors, pivots and swap count of an LU operand stored as T.
template <typename T>
class LuOperand {
  public:
    explicit LuOperand(const LuStorage<T>& contents)
        : order(contents.order),
          entity_(StorageFactory::host_lu(PolicyOf<T>::type(), order)) {
        std::ranges::copy(contents.factors, data<T>(BufferRole::lu_factors, order * order));
    }

    OperandBinding written() { return std::ref(*entity_); }
    OperandBinding read() const { return ConstOperandEntityRef<LuDecompEntity>(*entity_); }

    LuStorage<T> contents() const {
        LuStorage<T> result({order, std::vector<T>(order * order)}, DataMatrixLayout::column_major);
        std::copy_n(data<T>(BufferRole::lu_factors, order * order), order * order,
                    result.factors.begin());
        std::copy_n(data<long>(BufferRole::lu_pivots, order), order, result.pivots.begin());
        result.swaps = *data<std::uint64_t>(BufferRole::lu_swap_count, 1);
        return result;
    }

    const std::size_t order;

  private:
    template <typename Element>
    Element* data(BufferRole role, std::size_t count) const {
        return require_buffer_data<Element>(*entity_, role, count, "test");
    }

    std::unique_ptr<LuDecompEntity> entity_;
};

template <typename T>
class FloatingLuKernels : public ::testing::Test {
  protected:
    static void run(Operation operation, const std::vector<OperandBinding>& inputs,
                    const std::vector<OperandBinding>& outputs) {
        auto bindings = bindings_of(inputs, outputs[0]);
        for (std::size_t index = 1; index < outputs.size(); ++index) {
            bindings.operands.insert(output_role(index), outputs[index]);
        }
        run_floating_kernel<T>(operation, bindings);
    }
    template <typename Error = std::invalid_argument>
    static void refuses(const char* message, Operation operation,
                        const std::vector<OperandBinding>& inputs, OperandBinding output) {
        expect_error<Error>([&] { run(operation, inputs, {output}); }, message);
    }

    static Grid<T> grid(std::size_t rows, const std::vector<double>& elements) {
        const std::size_t cols = rows == 0 ? 0 : elements.size() / rows;
        return {rows, cols, [&](std::size_t i, std::size_t j) {
                    return static_cast<Component<ComputeOf<T>>>(elements[i * cols + j]);
                }};
    }
    template <typename Scalar>
    static Operand<Scalar> unwritten() {
        return Operand<Scalar>(OperandKind::Scalar, Grid<Scalar>(1, 1, [](auto, auto) {
                                   return ComputeOf<Scalar>(-7);
                               }));
    }
    template <typename Scalar>
    static Scalar value(const Operand<Scalar>& scalar) {
        return scalar.grid().elements[0];
    }
    /// Of the matrix of order 2 with these rows.
    static Component<ComputeOf<T>> positive_definite_logdet(const std::vector<double>& rows) {
        const auto matrix =
            Operand<T>(OperandKind::Matrix, grid(2, rows), DataMatrixLayout::row_major);
        const auto logarithm = unwritten<Component<ComputeOf<T>>>();
        run(Operation::logdet_positive_definite, {matrix.read()}, {logarithm.written()});
        return value(logarithm);
    }
};

TYPED_TEST_SUITE(FloatingLuKernels, FloatingTypes);

TYPED_TEST(FloatingLuKernels, FactorSolveAndLogdetWorkOnFactorsInComputeType) {
    using Compute = ComputeOf<TypeParam>;
    using Logarithm = std::complex<Component<Compute>>;
    CounterRandom random(41);
    for (const std::size_t order : lu_orders) {
        SCOPED_TRACE(order);
        LuStorage<Compute> expected(
            {order, random_elements<Compute>(order * order, [&] { return uniform(random); })},
            DataMatrixLayout::column_major);
        LuOperand<Compute> lu(expected);
        this->run(Operation::lu_factor, {}, {lu.written()});
        CpuFallback::lu_factor(expected.view(), expected.layout);
        EXPECT_TRUE(same_bits(lu.contents().factors, expected.factors));
        EXPECT_EQ(lu.contents().pivots, expected.pivots);
        EXPECT_EQ(lu.contents().swaps, expected.swaps);

        const auto b = random_grid<TypeParam>(order, 1, random, false);
        const auto x = Operand<TypeParam>(OperandKind::Vector, b);
        this->run(Operation::solve, {lu.read()}, {x.written()});
        std::vector<Compute> wide;
        std::ranges::transform(b.elements, std::back_inserter(wide), widened<TypeParam>);
        CpuFallback::solve(expected.input(), expected.layout, wide.data());
        for (std::size_t i = 0; i < order; ++i) {
            const TypeParam rounded = stored_as<TypeParam>(wide[i]);
            EXPECT_EQ(std::memcmp(&x.grid().elements[i], &rounded, sizeof rounded), 0) << i;
        }

        const auto logarithm = this->template unwritten<Logarithm>();
        this->run(Operation::logdet, {lu.read()}, {logarithm.written()});
        EXPECT_EQ(this->value(logarithm), CpuFallback::logdet(expected.input()));
    }
}

TYPED_TEST(FloatingLuKernels, FactorsOfAnotherTypeAreRefused) {
    using Compute = ComputeOf<TypeParam>;
    using Other = std::conditional_t<std::is_same_v<Compute, float>, double, float>;
    using Stored = std::conditional_t<std::is_same_v<TypeParam, Compute>, Other, TypeParam>;
    LuOperand<Stored> lu(LuStorage<Stored>({1, {Stored{}}}, DataMatrixLayout::column_major));
    const auto vector = Operand<TypeParam>(OperandKind::Vector, this->grid(1, {1}));
    const auto scalar = this->template unwritten<std::complex<Component<Compute>>>();
    constexpr auto message = "CPU LU - factors must use their compute dtype";
    this->refuses(message, Operation::lu_factor, {}, lu.written());
    this->refuses(message, Operation::solve, {lu.read()}, vector.written());
    this->refuses(message, Operation::logdet, {lu.read()}, scalar.written());
}

TYPED_TEST(FloatingLuKernels, OutputsMustBeWritableAndMatch) {
    using Compute = ComputeOf<TypeParam>;
    const LuOperand<Compute> lu(
        LuStorage<Compute>({2, {1, 0, 0, 1}}, DataMatrixLayout::column_major));
    const auto vector = Operand<TypeParam>(OperandKind::Vector, this->grid(2, {1, 1}));
    const auto longer = Operand<TypeParam>(OperandKind::Vector, this->grid(3, {1, 1, 1}));
    const auto scalar = this->template unwritten<std::complex<Component<Compute>>>();
    const auto matrix = Operand<TypeParam>(OperandKind::Matrix, this->grid(2, {1, 0, 0, 1}),
                                           DataMatrixLayout::row_major);
    constexpr auto read_only = "CPU floating kernel - mutable operand required";
    this->refuses(read_only, Operation::lu_factor, {}, lu.read());
    this->refuses(read_only, Operation::solve, {lu.read()}, vector.read());
    this->refuses(read_only, Operation::logdet, {lu.read()}, scalar.read());
    this->refuses(read_only, Operation::slogdet, {matrix.read()}, scalar.read());
    this->refuses(read_only, Operation::logdet_positive_definite, {matrix.read()}, scalar.read());
    constexpr auto mismatch =
        "CPU floating kernel - storage buffer type, alignment or count mismatch";
    this->template refuses<std::logic_error>(mismatch, Operation::solve, {lu.read()},
                                             longer.written());
    const auto wide = Operand<TypeParam>(OperandKind::Matrix, this->grid(2, {1, 0, 0, 0, 1, 0}),
                                         DataMatrixLayout::row_major);
    this->template refuses<std::logic_error>(mismatch, Operation::slogdet, {wide.read()},
                                             scalar.written());
}

TYPED_TEST(FloatingLuKernels, SlogdetGivesSignAndLogarithmInComputePrecision) {
    using Compute = ComputeOf<TypeParam>;
    using Real = Component<Compute>;
    struct Case {
        std::size_t order;
        std::vector<double> rows;
        double sign;
        double logarithm;
    };
    const Case cases[] = {
        {0, {}, 1, 0},
        {1, {-0.25}, -1, std::log(0.25)},
        {3, {0, 2, 0, 1, 0, 0, 3, 0, 4}, -1, std::log(8.0)},
        {2, {1, 2, 2, 4}, 0, -std::numeric_limits<double>::infinity()},
    };
    for (const Case& row : cases) {
        for (const DataMatrixLayout layout : orders_of<TypeParam>()) {
            const auto matrix =
                Operand<TypeParam>(OperandKind::Matrix, this->grid(row.order, row.rows), layout);
            const auto sign = this->template unwritten<Compute>();
            const auto logarithm = this->template unwritten<Real>();
            this->run(Operation::slogdet, {matrix.read()}, {sign.written(), logarithm.written()});
            EXPECT_EQ(this->value(sign), Compute(static_cast<Real>(row.sign)));
            EXPECT_FLOAT_EQ(static_cast<float>(this->value(logarithm)),
                            static_cast<float>(row.logarithm));
        }
    }
}

TYPED_TEST(FloatingLuKernels, FailedDeterminantsWriteNothing) {
    using Compute = ComputeOf<TypeParam>;
    using Real = Component<Compute>;
    const auto sign = this->template unwritten<Compute>();
    const auto logarithm = this->template unwritten<Real>();
    const auto fails = [&](Operation operation, const std::vector<double>& rows,
                           const std::string& message) {
        const auto matrix = Operand<TypeParam>(OperandKind::Matrix, this->grid(2, rows),
                                               DataMatrixLayout::row_major);
        const bool two = operation == Operation::slogdet;
        const std::vector<OperandBinding> outputs =
            two ? std::vector{sign.written(), logarithm.written()}
                : std::vector{logarithm.written()};
        try {
            this->run(operation, {matrix.read()}, outputs);
            ADD_FAILURE() << "nothing raised, expected: " << message;
        } catch (const std::exception& error) {
            EXPECT_EQ(error.what(), message);
        }
        EXPECT_EQ(this->value(sign), Compute(-7));
        EXPECT_EQ(this->value(logarithm), Real(-7));
    };
    const double infinity = std::numeric_limits<double>::infinity();
    fails(Operation::slogdet, {1, infinity, 0, 1},
          "tessaline.slogdet - input must contain only finite entries");
    fails(Operation::logdet_positive_definite, {1, infinity, infinity, 1},
          "tessaline.logdet_positive_definite - input must contain only finite entries");
    fails(Operation::logdet_positive_definite, {1, 0.25, 0.5, 1},
          "tessaline.logdet_positive_definite - input must be symmetric/Hermitian at (1, 0)");
    fails(Operation::logdet_positive_definite, {1, 1, 1, 1},
          "logdet_positive_definite - matrix is not positive definite at pivot 1");
    fails(Operation::logdet_positive_definite, {1, 2, 2, 1},
          "logdet_positive_definite - matrix is not positive definite at pivot 1");
}

TYPED_TEST(FloatingLuKernels, LogdetPositiveDefiniteReloadsItsInputForTheUnrootedWay) {
    // Narrower entries cannot bring a pivot within rounding of zero but to zero itself.
    if constexpr (std::is_same_v<Component<TypeParam>, double>) {
        constexpr double epsilon = std::numeric_limits<double>::epsilon();
        EXPECT_EQ(this->positive_definite_logdet({4, 2, 2, 1 + epsilon}),
                  std::log(4.0) + std::log(epsilon));
    }
}

TYPED_TEST(FloatingLuKernels, SymmetryIsJudgedInComputePrecision) {
    using Compute = ComputeOf<TypeParam>;
    using Real = Component<Compute>;
    if constexpr (std::is_same_v<TypeParam, Compute>) {
        constexpr double epsilon = std::numeric_limits<Real>::epsilon();
        this->positive_definite_logdet({2, 1, 1 - 2 * epsilon, 2});
        expect_error<std::invalid_argument>(
            [&] {
                this->positive_definite_logdet({2, 1, 1 - 3 * epsilon, 2});
            },
            "tessaline.logdet_positive_definite - input must be symmetric/Hermitian at (1, 0)");
    }
}

} // namespace

} // namespace Tessaline
