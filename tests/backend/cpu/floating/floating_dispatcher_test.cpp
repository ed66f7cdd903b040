// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/floating_test_support.h"
#include "support/expect_error.h"

namespace Tessaline {
namespace {

using namespace Testing;
using Operation = FloatingOperation;

template <typename T>
class FloatingDispatcher : public ::testing::Test {
  protected:
    static Grid<T> zeros(Size rows, Size cols) {
        return {rows, cols, [](Size, Size) { return T{}; }};
    }

    template <typename Error>
    static void expect_refusal(const std::string& message, Operation operation,
                               const std::vector<OperandBinding>& inputs, OperandBinding output) {
        auto bindings = bindings_of(inputs, output);
        expect_error<Error>([&] { run_floating_kernel<T>(operation, bindings); },
                            "CPU floating kernel - " + message);
    }

    Operand<T> vector_ = Operand<T>(OperandKind::Vector, zeros(3, 1));
    Operand<T> pair_ = Operand<T>(OperandKind::Vector, zeros(2, 1));
    Operand<T> matrix_ = Operand<T>(OperandKind::Matrix, zeros(3, 3), DataMatrixLayout::row_major);
    Operand<T> scalar_ = Operand<T>(OperandKind::Scalar, zeros(1, 1));
    Operand<int> integers_ =
        Operand<int>(OperandKind::Vector, Grid<int>(3, 1, [](Size, Size) { return 0; }));
};

TYPED_TEST_SUITE(FloatingDispatcher, FloatingTypes);

TYPED_TEST(FloatingDispatcher, RefusesAnIndexOutsideTheList) {
    for (const int index : {-1, 32, 1 << 20}) {
        this->template expect_refusal<std::logic_error>(
            "unsupported operation", static_cast<Operation>(index), {this->vector_.read()},
            this->vector_.written());
    }
}

TYPED_TEST(FloatingDispatcher, DemandsAWritableOutput) {
    const auto vector = this->vector_.read();
    const auto matrix = this->matrix_.read();
    const auto scalar = this->scalar_.read();
    std::vector<std::tuple<Operation, std::vector<OperandBinding>, OperandBinding>> cases{
        {Operation::sqrt, {vector}, vector},
        {Operation::divide, {vector, scalar}, vector},
        {Operation::sum, {vector}, scalar},
        {Operation::matvec, {matrix, vector}, vector},
        {Operation::matmul, {matrix, matrix}, matrix},
        {Operation::partial_trace_left, {matrix}, matrix},
        {Operation::eye, {}, matrix},
        {Operation::is_unitary, {matrix}, scalar}};
    if (is_complex_element<TypeParam>) {
        cases.emplace_back(Operation::conjugate, std::vector<OperandBinding>{}, vector);
    }
    for (const auto& [operation, inputs, output] : cases) {
        this->template expect_refusal<std::invalid_argument>("mutable operand required", operation,
                                                             inputs, output);
    }
}

TYPED_TEST(FloatingDispatcher, RefusesBuffersThatItsKernelsWereNotMadeFor) {
    using Case = std::tuple<Operation, std::vector<OperandBinding>, OperandBinding>;
    const auto vector = this->vector_.read();
    const auto pair = this->pair_.read();
    const auto matrix = this->matrix_.read();
    const auto wide =
        Operand<TypeParam>(OperandKind::Matrix, this->zeros(3, 4), DataMatrixLayout::row_major);
    for (const auto& [operation, inputs, output] :
         {Case{Operation::sqrt, {this->integers_.read()}, this->vector_.written()},
          Case{Operation::sqrt, {vector}, this->pair_.written()},
          Case{Operation::add, {vector, pair}, this->vector_.written()},
          Case{Operation::matvec, {matrix, pair}, this->vector_.written()},
          Case{Operation::matmul, {matrix, matrix}, wide.written()}}) {
        this->template expect_refusal<std::logic_error>(
            "storage buffer type, alignment or count mismatch", operation, inputs, output);
    }
    // A complex scalar lies in two buffers, any other operand in one.
    if constexpr (is_complex_element<TypeParam>) {
        const auto whole =
            Operand<int>(OperandKind::Scalar, Grid<int>(1, 1, [](Size, Size) { return 0; }));
        this->template expect_refusal<std::logic_error>("required real buffer is unavailable",
                                                        Operation::sum, {vector}, whole.written());
    }
}

} // namespace
} // namespace Tessaline
