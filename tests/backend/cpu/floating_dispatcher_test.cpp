// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_test_support.h"
#include "support/expect_error.h"

namespace Tessaline {
namespace {

using Testing::bindings_of;
using Testing::expect_error;
using Testing::Grid;
using Testing::Operand;

using Size = std::uint64_t;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;

template <typename T>
Grid<T> ones(Size rows, Size cols) {
    return {rows, cols, [](Size, Size) { return ComputeOf<T>(1); }};
}

TEST(FloatingOperations, HaveTheIdsOfTheirIndices) {
    const std::pair<std::size_t, const char*> samples[] = {
        {0, "tessaline.sqrt@1"},   {9, "tessaline.matmul@1"},
        {14, "tessaline.outer@1"}, {19, "tessaline.norm@1"},
        {26, "tessaline.eye@1"},   {27, "tessaline.vector_equal@1"},
        {28, "tessaline.eigh@1"},  {31, "tessaline.logdet_positive_definite@1"}};
    for (const auto& [index, id] : samples) {
        EXPECT_EQ(BackendRegistration::floating_operations[index].get().canonical(), id);
    }
    EXPECT_EQ(static_cast<int>(FloatingOperation::logdet_positive_definite), 31);
}

template <typename T>
class FloatingDispatcher : public ::testing::Test {
  protected:
    using Out = OperandBinding;

    static void run(FloatingOperation operation, const std::vector<OperandBinding>& inputs,
                    const Out& output) {
        auto bindings = bindings_of(inputs, output);
        run_floating_kernel<T>(operation, bindings);
    }

    Operand<T> vector_ = Operand<T>::vector(ones<T>(3, 1));
    Operand<T> short_vector_ = Operand<T>::vector(ones<T>(2, 1));
    Operand<T> matrix_ = Operand<T>::matrix(ones<T>(3, 3), row_major);
    Operand<T> scalar_ = Operand<T>::scalar(ones<T>(1, 1));
    Operand<int> answer_ = Operand<int>::scalar(ones<int>(1, 1));
};

TYPED_TEST_SUITE(FloatingDispatcher, Testing::FloatingTypes);

TYPED_TEST(FloatingDispatcher, RefusesAnIndexOutsideTheList) {
    for (const int index : {-1, 32, 1 << 20}) {
        expect_error<std::logic_error>(
            [&] {
                this->run(static_cast<FloatingOperation>(index), {this->vector_.read()},
                          this->vector_.written());
            },
            "CPU floating kernel - unsupported operation");
    }
}

TYPED_TEST(FloatingDispatcher, DemandsAWritableOutput) {
    struct Case {
        FloatingOperation operation;
        std::vector<OperandBinding> inputs;
        OperandBinding output;
    };
    using Operation = FloatingOperation;
    const auto vector = this->vector_.read();
    const auto matrix = this->matrix_.read();
    const auto scalar = this->scalar_.read();
    std::vector<Case> cases{{Operation::sqrt, {vector}, vector},
                            {Operation::divide, {vector, scalar}, vector},
                            {Operation::sum, {vector}, scalar},
                            {Operation::matvec, {matrix, vector}, vector},
                            {Operation::matmul, {matrix, matrix}, matrix},
                            {Operation::partial_trace_left, {matrix}, matrix},
                            {Operation::eye, {}, matrix},
                            {Operation::is_unitary, {matrix}, this->answer_.read()}};
    if (is_complex_element<TypeParam>) {
        cases.push_back({Operation::conjugate, {}, vector});
    }
    for (const Case& each : cases) {
        expect_error<std::invalid_argument>(
            [&] { this->run(each.operation, each.inputs, each.output); },
            "CPU floating kernel - mutable operand required");
    }
}

TYPED_TEST(FloatingDispatcher, RefusesBuffersThatItsKernelsWereNotMadeFor) {
    using Operation = FloatingOperation;
    constexpr auto mismatch =
        "CPU floating kernel - storage buffer type, alignment or count mismatch";
    const auto vector = this->vector_.read();
    const auto other = Operand<int>::vector(ones<int>(3, 1));
    const auto refuse = [&](const char* message, Operation operation,
                            const std::vector<OperandBinding>& inputs, OperandBinding output) {
        expect_error<std::logic_error>([&] { this->run(operation, inputs, output); }, message);
    };
    refuse(mismatch, Operation::sqrt, {other.read()}, this->vector_.written());
    refuse(mismatch, Operation::add, {vector, this->short_vector_.read()}, this->vector_.written());
    refuse(mismatch, Operation::sqrt, {vector}, this->short_vector_.written());
    refuse(mismatch, Operation::matvec, {this->matrix_.read(), this->short_vector_.read()},
           this->vector_.written());
    refuse(mismatch, Operation::matmul, {this->matrix_.read(), this->matrix_.read()},
           Operand<TypeParam>::matrix(ones<TypeParam>(3, 4), row_major).written());
    // A complex scalar lies in two buffers, a real one in one.
    if constexpr (is_complex_element<TypeParam>) {
        refuse("CPU floating kernel - required real buffer is unavailable", Operation::sum,
               {vector}, this->answer_.written());
    } else {
        const auto complex = Operand<Complex32>::scalar(ones<Complex32>(1, 1));
        refuse("CPU floating kernel - required data buffer is unavailable", Operation::sum,
               {vector}, complex.written());
    }
    EXPECT_THROW(this->run(Operation::sqrt, {this->matrix_.read()}, this->vector_.written()),
                 std::bad_variant_access);
    BackendExecutionBindings unbound;
    expect_error<std::out_of_range>(
        [&] { run_floating_kernel<TypeParam>(Operation::sqrt, unbound); }, "unordered_map::at");
}

} // namespace
} // namespace Tessaline
