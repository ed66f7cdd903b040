// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/steps/cpu_layout_adaptation.h"

#include "backend/cpu/steps/cpu_layout_copy.h"
#include "support/expect_error.h"
#include "tessaline/backend/cpu/adapt_operand_step.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_factory.h"

#include <gtest/gtest.h>

#include <cstring>

namespace Tessaline {
namespace {

using Testing::expect_error;

/// How a matrix may lie.
struct Form {
    DataComplexLayout complex;
    DataMatrixLayout layout;
};

constexpr Form split_rows{DataComplexLayout::split, DataMatrixLayout::row_major};
constexpr Form rows{DataComplexLayout::interleaved, DataMatrixLayout::row_major};
constexpr Form columns{DataComplexLayout::interleaved, DataMatrixLayout::column_major};
constexpr Form forms[] = {split_rows, rows, columns};

/// Where the parts of a matrix lie.
template <typename T>
class PartsOf {
  public:
    explicit PartsOf(MatrixEntity& matrix)
        : rows(matrix.descriptor().rows()),
          cols(matrix.descriptor().cols()),
          row_major_(matrix.descriptor().layout() == DataMatrixLayout::row_major),
          split_(matrix.descriptor().complex_layout() == DataComplexLayout::split) {
        auto& buffers = dynamic_cast<ErasedBufferAccess&>(matrix);
        real_ = static_cast<unsigned char*>(buffers.buffer(0).data);
        imag_ = split_ ? static_cast<unsigned char*>(buffers.buffer(1).data) : real_ + sizeof(T);
    }

    unsigned char* operator()(bool imaginary, std::uint64_t i, std::uint64_t j) const {
        const std::uint64_t index = row_major_ ? i * cols + j : j * rows + i;
        return (imaginary ? imag_ : real_) + sizeof(T) * (split_ ? index : 2 * index);
    }

    const std::uint64_t rows;
    const std::uint64_t cols;

  private:
    bool row_major_;
    bool split_;
    unsigned char* real_;
    unsigned char* imag_;
};

/// Gives every part of every element bytes of its own, NaN patterns among them.
template <typename T>
void number_parts(MatrixEntity& matrix) {
    const PartsOf<T> parts(matrix);
    for (std::uint64_t i = 0; i < parts.rows; ++i) {
        for (std::uint64_t j = 0; j < parts.cols; ++j) {
            for (const bool imaginary : {false, true}) {
                const std::uint64_t tag =
                    0xffc0a5a500000001U * (2 * (i * 2003 + j) + (imaginary ? 1 : 0) + 1);
                std::memcpy(parts(imaginary, i, j), &tag, sizeof(T));
            }
        }
    }
}

template <typename T>
void expect_same_elements(MatrixEntity& a, MatrixEntity& b) {
    const PartsOf<T> parts_a(a);
    const PartsOf<T> parts_b(b);
    for (std::uint64_t i = 0; i < parts_a.rows; ++i) {
        for (std::uint64_t j = 0; j < parts_a.cols; ++j) {
            for (const bool imaginary : {false, true}) {
                if (std::memcmp(parts_a(imaginary, i, j), parts_b(imaginary, i, j), sizeof(T)) !=
                    0) {
                    FAIL() << "element " << i << ", " << j << (imaginary ? " imaginary" : " real");
                }
            }
        }
    }
}

template <typename Policy>
class LayoutCopyTest : public ::testing::Test {
  protected:
    using Part = Component<typename Policy::Stored>;

    static std::unique_ptr<MatrixEntity> matrix(std::uint64_t row_count, std::uint64_t col_count,
                                                Form form) {
        return StorageFactory::host_matrix(Policy::type(), row_count, col_count, form.layout,
                                           form.complex);
    }
};

using ComplexPolicies = ::testing::Types<NumericPolicy<Complex32, std::complex<float>>,
                                         NumericPolicy<std::complex<float>, std::complex<float>>,
                                         NumericPolicy<std::complex<double>, std::complex<double>>>;
TYPED_TEST_SUITE(LayoutCopyTest, ComplexPolicies);

TYPED_TEST(LayoutCopyTest, MovesEveryPartBetweenAnyTwoForms) {
    using P = typename TestFixture::Part;
    const std::pair<std::uint64_t, std::uint64_t> shapes[] = {
        {0, 0}, {0, 3}, {1, 1}, {1, 70}, {31, 33}, {32, 64}, {67, 5}, {1025, 1031}};
    for (const auto& [row_count, col_count] : shapes) {
        for (const Form from : forms) {
            for (const Form to : forms) {
                const auto source = this->matrix(row_count, col_count, from);
                const auto target = this->matrix(row_count, col_count, to);
                number_parts<P>(*source);
                copy_complex_layout<P>(*source, *target);
                expect_same_elements<P>(*source, *target);
            }
        }
    }
}

BackendExecutionBindings bindings_of(MatrixEntity& matrix) {
    BackendExecutionBindings bindings;
    bindings.operands.insert(output_role(0), std::ref(matrix));
    bindings.roles = {output_role(0)};
    return bindings;
}

BackendOperandKey key_of(const MatrixEntity& matrix) {
    return operand_key_for({output_role(0), matrix.descriptor()});
}

TYPED_TEST(LayoutCopyTest, AdaptedOperandsComeBack) {
    using P = typename TestFixture::Part;
    const OperandRole role = output_role(0);
    for (const Form to : {split_rows, columns}) {
        for (const bool preserve : {false, true}) {
            const auto mine = this->matrix(3, 4, rows);
            const auto expected = this->matrix(3, 4, rows);
            number_parts<P>(*expected);
            copy_complex_layout<P>(*expected, *mine);
            const auto target = key_of(*this->matrix(3, 4, to));
            ASSERT_TRUE(supports_cpu_layout_adaptation(key_of(*mine), target));
            auto bindings = bindings_of(*mine);
            BackendExecutionSession session;
            const auto adapt = adapt_cpu_layout(role, target, preserve, false);
            adapt->execute(session, bindings);

            auto& temporary = writable_entity<MatrixEntity>(bindings.operands.at(role));
            ASSERT_NE(&temporary, mine.get());
            EXPECT_EQ(key_of(temporary), target);
            if (preserve) {
                expect_same_elements<P>(temporary, *expected);
            } else {
                expect_same_elements<P>(temporary, *this->matrix(3, 4, rows));
            }
            number_parts<P>(temporary);
            adapt_cpu_layout(role, target, true, true)->execute(session, bindings);
            EXPECT_EQ(&writable_entity<MatrixEntity>(bindings.operands.at(role)), mine.get());
            EXPECT_TRUE(bindings.adapted.empty());
            expect_same_elements<P>(*mine, *expected);
        }
    }
}

TEST(LayoutAdaptation, BridgesInterleavedTowardsSplitAndBetweenOrders) {
    struct Case {
        OperandKind kind;
        ScalarType storage;
        Form from;
        Form to;
        bool supported;
    };
    constexpr auto matrix = OperandKind::Matrix;
    constexpr auto c64 = ScalarType::Complex64;
    constexpr Form split_columns{DataComplexLayout::split, DataMatrixLayout::column_major};
    const Case cases[] = {
        {matrix, c64, rows, split_rows, true},
        {matrix, c64, rows, columns, true},
        {matrix, c64, columns, rows, true},
        {matrix, c64, columns, split_rows, false},
        {matrix, c64, rows, split_columns, false},
        {matrix, c64, split_rows, rows, false},
        {matrix, c64, rows, rows, false},
        {matrix, c64, split_rows, split_rows, false},
        {OperandKind::EigenVals, c64, rows, columns, false},
        {matrix, ScalarType::Float32, rows, columns, false},
        {matrix, ScalarType::ComplexInt32, rows, columns, false},
    };
    const auto key = [](const Case& each, Form form) {
        BackendOperandKey made;
        made.kind = each.kind;
        made.format = OperandFormat::of(DataMatrixFormat::dense);
        made.storage = made.compute = each.storage;
        made.complex = form.complex;
        made.layout = form.layout;
        return made;
    };
    for (const Case& each : cases) {
        const auto from = key(each, each.from);
        auto to = key(each, each.to);
        EXPECT_EQ(supports_cpu_layout_adaptation(from, to), each.supported)
            << describe_operand_key(from) << " to " << describe_operand_key(to);
        to.location = DataLocation::pinned_host;
        EXPECT_FALSE(supports_cpu_layout_adaptation(from, to));
    }
    auto interleaved = key(cases[0], rows);
    interleaved.kind = OperandKind::Vector;
    interleaved.format = OperandFormat::of(DataVectorFormat::dense);
    interleaved.layout.reset();
    auto split = interleaved;
    split.complex = DataComplexLayout::split;
    EXPECT_TRUE(supports_cpu_layout_adaptation(interleaved, split));
    EXPECT_FALSE(supports_cpu_layout_adaptation(split, interleaved));
    split.format = OperandFormat::of(DataVectorFormat::sparse);
    EXPECT_FALSE(supports_cpu_layout_adaptation(interleaved, split));
    split = interleaved;
    split.compute = ScalarType::Complex128;
    EXPECT_FALSE(supports_cpu_layout_adaptation(interleaved, split));
}

TEST(LayoutAdaptation, RefusesOperandsWithoutLayouts) {
    BackendOperandKey key;
    key.kind = OperandKind::Vector;
    const std::string unsupported = "CPU layout adaptation - unsupported policy or operand kind";
    const auto refuse = [&key](const std::string& message) {
        for (const bool restore : {false, true}) {
            expect_error<std::invalid_argument>(
                [&] { adapt_cpu_layout(output_role(0), key, true, restore); }, message);
        }
    };
    refuse(unsupported);
    key.storage = key.compute = ScalarType::Complex64;
    key.kind = OperandKind::Scalar;
    refuse(unsupported);
    key.storage = ScalarType::Complex32;
    key.compute = ScalarType::Complex128;
    refuse("numeric policy is not compiled: complex32 / complex128");
    const auto wide = StorageFactory::host_vector(DataTypeDescriptor::complex_double(), 2,
                                                  DataComplexLayout::split);
    const auto narrow = StorageFactory::host_vector(DataTypeDescriptor::complex_float(), 2,
                                                    DataComplexLayout::split);
    const auto shorter = StorageFactory::host_vector(DataTypeDescriptor::complex_float(), 1,
                                                     DataComplexLayout::split);
    for (VectorEntity* target : {wide.get(), shorter.get()}) {
        expect_error<std::invalid_argument>(
            [&] { copy_complex_layout<float>(*narrow, *target); },
            "CPU layout adaptation - shape or numerical policy mismatch");
    }
}

TEST(AdaptOperandStep, NeedsItsFunctionsAndItsOperand) {
    using Step = AdaptOperandStep<std::unique_ptr<VectorEntity>>;
    BackendExecutionSession session;
    BackendExecutionBindings bindings;
    const Step::Construct construct = [](const auto&, const auto&) {
        return StorageFactory::host_vector(DataTypeDescriptor::real_float(), 1,
                                           DataComplexLayout::none);
    };
    const auto run = [&](BackendProcessStep&& step) { step.execute(session, bindings); };
    expect_error<std::logic_error>([&] { run(Step(output_role(0), {}, {})); },
                                   "AdaptOperandStep::execute - construct not set");
    expect_error<std::logic_error>([&] { run(Step(output_role(0), construct, {})); },
                                   "AdaptOperandStep::execute - adapt not set");
    expect_error<std::out_of_range>(
        [&] { run(Step(output_role(0), construct, [](const auto&, auto&) {})); },
        "unordered_map::at");
    expect_error<std::logic_error>([&] { run(RestoreAdaptedStep(output_role(0), {})); },
                                   "RestoreAdaptedStep::execute - restore not set");
    expect_error<std::out_of_range>(
        [&] { run(RestoreAdaptedStep(output_role(0), [](const auto&, const auto&) {})); },
        "unordered_map::at");
}

} // namespace
} // namespace Tessaline
