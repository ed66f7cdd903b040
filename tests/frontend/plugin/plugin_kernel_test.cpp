// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/marshal_operand.h"
#include "frontend/plugin/plugin_kernel.h"
#include "frontend/plugin/relay.h"
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/tessaline_executor.h"
#include "tessaline/storage/storage_factory.h"

#include <gmock/gmock.h>

#include <complex>

namespace Tessaline::PluginDetail::Internal {
namespace {

using namespace Testing;

constexpr std::uint64_t order = 3;

/// What a kernel was called with, copied while it is valid.
struct SeenCall {
    tessaline_kernel_invocation invocation;
    std::vector<tessaline_operand_view> operands;
    std::vector<std::vector<tessaline_buffer_view>> buffers;
    tessaline_status answer = TESSALINE_STATUS_OK;
    const char* message = nullptr;

    static tessaline_status take(void* user_data, const tessaline_kernel_invocation* invocation,
                                 const tessaline_error_sink* sink) {
        auto& seen = *static_cast<SeenCall*>(user_data);
        seen.invocation = *invocation;
        for (const auto& view : std::span(invocation->operands, invocation->operand_count)) {
            seen.operands.push_back(view);
            seen.buffers.emplace_back(view.buffers, view.buffers + view.buffer_count);
        }
        return seen.message != nullptr ? tessaline_fail(sink, seen.answer, seen.message)
                                       : seen.answer;
    }
};

template <typename Entity>
OperandBinding bound(Entity& entity, bool writable) {
    if (writable) {
        return std::reference_wrapper<Entity>(entity);
    }
    return ConstOperandEntityRef<Entity>(entity);
}

/// Storage of one operand kind that the runtime can make, and what a kernel is to see of it.
struct Operand {
    using Storage = std::variant<std::unique_ptr<ScalarEntity>, std::unique_ptr<VectorEntity>,
                                 std::unique_ptr<MatrixEntity>, std::unique_ptr<LuDecompEntity>,
                                 std::unique_ptr<EigenValsEntity>>;
    struct Buffer {
        std::uint32_t role;
        std::uint64_t count;
        std::uint64_t element_size;
        std::uint32_t element_type;
    };

    const char* name;
    Storage storage;
    std::uint32_t complex_layout;
    std::uint32_t matrix_layout;
    std::uint64_t rows;
    std::uint64_t cols;
    std::vector<Buffer> buffers;

    OperandBinding binding(bool writable) const {
        return std::visit([&](const auto& entity) { return bound(*entity, writable); }, storage);
    }
    std::uint32_t kind() const { return static_cast<std::uint32_t>(storage.index()) + 1; }
};

std::vector<Operand> operands_of_every_kind() {
    const auto float32 = DataTypeDescriptor::real_float();
    const auto float16 = DataTypeDescriptor::real_float16();
    const auto float64 = DataTypeDescriptor::real_double();
    const auto complex64 = DataTypeDescriptor::complex_float();
    constexpr auto none = DataComplexLayout::none;
    constexpr auto split = DataComplexLayout::split;
    constexpr auto interleaved = DataComplexLayout::interleaved;
    constexpr auto row_major = DataMatrixLayout::row_major;
    constexpr auto column_major = DataMatrixLayout::column_major;
    constexpr std::uint64_t square = order * order;
    using namespace StorageFactory;
    std::vector<Operand> operands;
    operands.push_back({"real scalar", host_scalar(float16), 1, 0, 1, 1, {{1, 1, 2, 10}}});
    operands.push_back(
        {"complex scalar", host_scalar(complex64), 1, 0, 1, 1, {{2, 1, 4, 1}, {3, 1, 4, 1}}});
    operands.push_back({"vector", host_vector(float32, 5, none), 1, 0, 5, 1, {{1, 5, 4, 1}}});
    operands.push_back({"empty vector", host_vector(float32, 0, none), 1, 0, 0, 1, {{1, 0, 4, 1}}});
    operands.push_back(
        {"interleaved vector", host_vector(complex64, 5, interleaved), 3, 0, 5, 1, {{1, 5, 8, 5}}});
    operands.push_back({"split vector",
                        host_vector(complex64, 5, split),
                        2,
                        0,
                        5,
                        1,
                        {{2, 5, 4, 1}, {3, 5, 4, 1}}});
    operands.push_back(
        {"matrix", host_matrix(float64, 2, 7, row_major, none), 1, 1, 2, 7, {{1, 14, 8, 2}}});
    operands.push_back({"interleaved matrix",
                        host_matrix(complex64, 2, 7, column_major, interleaved),
                        3,
                        2,
                        2,
                        7,
                        {{1, 14, 8, 5}}});
    operands.push_back({"split matrix",
                        host_matrix(complex64, 2, 7, row_major, split),
                        2,
                        1,
                        2,
                        7,
                        {{2, 14, 4, 1}, {3, 14, 4, 1}}});
    operands.push_back({"LU",
                        host_lu(float64, order),
                        1,
                        2,
                        order,
                        order,
                        {{4, order, 8, 4}, {5, square, 8, 2}, {6, 1, 8, 12}}});
    operands.push_back({"eigenvalues",
                        host_eigen(complex64, order, column_major),
                        3,
                        2,
                        order,
                        order,
                        {{7, order, 8, 5}, {8, square, 8, 5}}});
    return operands;
}

class PluginKernelTest : public ::testing::Test {
  protected:
    /// Runs a kernel of one operand, its output.
    void run(const StagedOperand& operand, const OperandBinding& binding,
             BackendKind backend = BackendKind::cpu_simd) {
        run(std::vector{operand}, {{operand.role, binding}}, backend);
    }

    void run(std::vector<StagedOperand> operands,
             const std::vector<std::pair<OperandRole, OperandBinding>>& bound,
             BackendKind backend = BackendKind::cpu_simd) {
        BackendExecutionBindings bindings;
        for (const auto& [role, binding] : bound) {
            bindings.operands.insert(role, binding);
            bindings.roles.push_back(role);
        }
        const auto kernel = make_kernel(
            {OperationId("acme.f", 1), backend, std::move(operands), &SeenCall::take, &seen_}, {});
        BackendExecutionSession session;
        kernel.entry.materialise().execute(session, bindings);
    }

    SeenCall seen_;
};

StagedOperand staged(OperandRole role, OperandAccess access, OperandKind kind) {
    return {role, access, kind, {}};
}

void expect_view(const Operand& operand, const tessaline_operand_view& view,
                 const std::vector<tessaline_buffer_view>& buffers, std::uint32_t access) {
    EXPECT_EQ(view.struct_size, 72U);
    EXPECT_EQ(view.buffer_view_stride_hint, 36U);
    EXPECT_EQ(view.access, access);
    EXPECT_EQ(view.kind, operand.kind());
    EXPECT_EQ(view.location, 1U);
    EXPECT_EQ(view.complex_layout, operand.complex_layout);
    EXPECT_EQ(view.matrix_layout, operand.matrix_layout);
    EXPECT_EQ(view.rows, operand.rows);
    EXPECT_EQ(view.cols, operand.cols);
    ASSERT_EQ(buffers.size(), operand.buffers.size());
    for (std::size_t index = 0; index < buffers.size(); ++index) {
        const tessaline_buffer_view& buffer = buffers[index];
        const Operand::Buffer& expected = operand.buffers[index];
        EXPECT_EQ(buffer.struct_size, 48U);
        EXPECT_EQ(buffer.role, expected.role);
        EXPECT_EQ(buffer.count, expected.count);
        EXPECT_EQ(buffer.element_size, expected.element_size);
        EXPECT_EQ(buffer.element_type, expected.element_type);
        EXPECT_TRUE(buffer.data != nullptr || buffer.count == 0);
        EXPECT_EQ(buffer.mutable_data, access == TESSALINE_ACCESS_READ ? nullptr : buffer.data);
    }
}

TEST_F(PluginKernelTest, OperandsOfEveryKindAreDescribed) {
    for (const Operand& operand : operands_of_every_kind()) {
        SCOPED_TRACE(operand.name);
        const auto kind = static_cast<OperandKind>(operand.storage.index());
        seen_ = {};
        run({staged(input_role(0), OperandAccess::read, kind),
             staged(output_role(0), OperandAccess::read_write, kind)},
            {{output_role(0), operand.binding(true)}, {input_role(0), operand.binding(false)}});
        EXPECT_EQ(seen_.invocation.struct_size, 40U);
        EXPECT_EQ(seen_.invocation.backend, 2U);
        EXPECT_EQ(seen_.invocation.cuda_device, -1);
        EXPECT_EQ(seen_.invocation.cuda_stream, nullptr);
        ASSERT_EQ(seen_.operands.size(), 2U);
        EXPECT_EQ(seen_.operands[0].role, 0U);
        EXPECT_EQ(seen_.operands[1].role, TESSALINE_ROLE_OUTPUT(0));
        expect_view(operand, seen_.operands[0], seen_.buffers[0], TESSALINE_ACCESS_READ);
        expect_view(operand, seen_.operands[1], seen_.buffers[1], TESSALINE_ACCESS_READ_WRITE);
    }
}

TEST_F(PluginKernelTest, StorageAndComputeTypeOfAnOperandAreThoseOfItsPolicy) {
    const auto half = StorageFactory::host_scalar(DataTypeDescriptor::real_float16());
    run(staged(output_role(0), OperandAccess::write, OperandKind::Scalar), bound(*half, true));
    EXPECT_EQ(seen_.operands[0].storage, std::uint32_t{TESSALINE_SCALAR_FLOAT16});
    EXPECT_EQ(seen_.operands[0].compute, std::uint32_t{TESSALINE_SCALAR_FLOAT32});
}

TEST_F(PluginKernelTest, BindingsThatDoNotFitAreRefused) {
    const auto operand = staged(output_role(0), OperandAccess::write, OperandKind::Vector);
    const auto vector =
        StorageFactory::host_vector(DataTypeDescriptor::real_float(), 1, DataComplexLayout::none);
    const auto scalar = StorageFactory::host_scalar(DataTypeDescriptor::real_float());
    expect_error<std::invalid_argument>(
        [&] { run(operand, bound(*scalar, true)); },
        "native kernel binding family differs from its sealed signature");
    expect_error<std::invalid_argument>(
        [&] { run(operand, bound(*vector, true), BackendKind::cuda); },
        "CpuProcessStepDetail::with_cpu_context - CPU backend required");
    EXPECT_THROW(run(operand, bound(*vector, false)), std::bad_variant_access);
    EXPECT_THROW(run({operand}, {{input_role(0), bound(*vector, true)}}), std::out_of_range);
    expect_error<std::invalid_argument>(
        [&] {
            make_kernel({OperationId("acme.f", 1),
                         BackendKind::cpu_simd,
                         {staged(output_role(0), OperandAccess::read, OperandKind::Vector)},
                         &SeenCall::take,
                         nullptr},
                        {});
        },
        "native kernel must have at least one write or read-write operand");
    EXPECT_TRUE(seen_.operands.empty());
}

/// A real vector of two elements whose buffers say whatever a test wants.
class FaultyVector final : public VectorEntity, public ErasedBufferAccess {
  public:
    const VectorDescriptor& descriptor() const override { return descriptor_; }
    std::size_t buffer_count() const override { return count; }
    ConstBufferView buffer(std::size_t) const override { return view; }
    MutableBufferView buffer(std::size_t) override {
        MutableBufferView result = make_buffer_view(view.role, contents, view.count);
        result.scalar_type = view.scalar_type;
        (*change_mutable)(result);
        return result;
    }

    float contents[2] = {1, 2};
    std::size_t count = 1;
    ConstBufferView view = make_buffer_view(BufferRole::data, std::as_const(contents)[0], 2);
    void (*change_mutable)(MutableBufferView&) = [](MutableBufferView&) {};

  private:
    static ConstBufferView make_buffer_view(BufferRole role, const float& first,
                                            std::uint64_t count) {
        return Tessaline::make_buffer_view(role, &first, count);
    }
    static MutableBufferView make_buffer_view(BufferRole role, float* first, std::uint64_t count) {
        return Tessaline::make_buffer_view(role, first, count);
    }

    VectorDescriptor descriptor_{2, DataTopologyDescriptor::pageable_host(-1),
                                 DataTypeDescriptor::real_float(), DataVectorFormat::dense,
                                 DataComplexLayout::none};
};

TEST_F(PluginKernelTest, StorageThatContradictsItselfIsRefused) {
    struct Row {
        void (*spoil)(FaultyVector&);
        const char* message;
    };
    const Row rows[] = {
        {[](FaultyVector& vector) { vector.count = 2; }, "descriptor buffer count mismatch"},
        {[](FaultyVector& vector) { vector.count = 4; }, "descriptor buffer count mismatch"},
        {[](FaultyVector& vector) { vector.view.data = nullptr; }, "data buffer is null"},
        {[](FaultyVector& vector) { vector.view.count = 1; },
         "descriptor disagrees with data buffer"},
        {[](FaultyVector& vector) { vector.view.role = BufferRole::real; },
         "descriptor disagrees with real buffer"},
        {[](FaultyVector& vector) { vector.view.role = BufferRole::lu_factors; },
         "descriptor disagrees with LU factors buffer"},
        {[](FaultyVector& vector) { vector.view.scalar_type = ScalarType::Int32; },
         "descriptor disagrees with data buffer"},
        {[](FaultyVector& vector) {
             vector.change_mutable = [](MutableBufferView& view) { view.count = 1; };
         },
         "buffer layout mismatch at index 0"},
        {[](FaultyVector& vector) {
             vector.change_mutable = [](MutableBufferView& view) { view.element_size = 8; };
         },
         "buffer layout mismatch at index 0"},
        {[](FaultyVector& vector) {
             vector.change_mutable = [](MutableBufferView& view) { view.role = BufferRole::real; };
         },
         "buffer layout mismatch at index 0"},
        {[](FaultyVector& vector) {
             vector.change_mutable = [](MutableBufferView& view) { view.type = &typeid(int); };
         },
         "buffer layout mismatch at index 0"},
    };
    const auto operand = staged(output_role(0), OperandAccess::write, OperandKind::Vector);
    for (const Row& row : rows) {
        FaultyVector vector;
        row.spoil(vector);
        expect_error<std::invalid_argument>(
            [&] { run(operand, bound<VectorEntity>(vector, true)); },
            std::string("native kernel operand marshalling - ") + row.message);
    }
    for (const int role : {-1, 8}) {
        FaultyVector vector;
        vector.view.role = BufferRole{role};
        expect_error<std::invalid_argument>(
            [&] { run(operand, bound<VectorEntity>(vector, true)); },
            "native operand has an unknown storage buffer role");
    }
    EXPECT_TRUE(seen_.operands.empty());
    FaultyVector sound;
    run(operand, bound<VectorEntity>(sound, true));
    EXPECT_EQ(seen_.buffers.at(0).at(0).mutable_data, sound.contents);
}

TEST_F(PluginKernelTest, AFailedKernelTellsWhereAndWhy) {
    struct Row {
        tessaline_status answer;
        const char* message;
        BackendKind backend;
        const char* text;
        const char* status_name;
    };
    const Row rows[] = {
        {TESSALINE_STATUS_RUNTIME_ERROR, "no luck", BackendKind::cpu_simd,
         "native kernel callback on the CPU SIMD backend failed with plugin status 3: no luck",
         "TESSALINE_STATUS_RUNTIME_ERROR"},
        {77, nullptr, BackendKind::cpu_scalar,
         "native kernel callback on the CPU scalar backend failed with plugin status 77",
         "TESSALINE_STATUS_UNKNOWN"},
        // A report alone is no failure.
        {TESSALINE_STATUS_OK, "just saying", BackendKind::cpu_simd, nullptr, nullptr},
    };
    const auto vector =
        StorageFactory::host_vector(DataTypeDescriptor::real_float(), 1, DataComplexLayout::none);
    for (const Row& row : rows) {
        seen_ = {};
        seen_.answer = row.answer;
        seen_.message = row.message;
        const char* text = nullptr;
        try {
            run(staged(output_role(0), OperandAccess::write, OperandKind::Vector),
                bound(*vector, true), row.backend);
        } catch (const BackendLibraryError& error) {
            text = row.text;
            EXPECT_STREQ(error.what(), row.text);
            EXPECT_EQ(error.status(), row.answer);
            EXPECT_EQ(error.status_name(), row.status_name);
        }
        EXPECT_EQ(text, row.text);
    }
}

TEST(PluginDispatch, OperandsReachAKernelAdapted) {
    // The kernel takes column-major matrices; the operands are row major.
    SeenCall seen;
    Relay relay;
    auto builder = TessalineContextBuilder::custom_only();
    const auto matrix = [](std::uint32_t role, std::uint32_t access) {
        return declared_operand(role, access, TESSALINE_OPERAND_MATRIX, TESSALINE_SCALAR_COMPLEX64,
                                TESSALINE_COMPLEX_LAYOUT_INTERLEAVED,
                                TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR);
    };
    relay.load_kernel(builder,
                      {matrix(TESSALINE_ROLE_INPUT(0), TESSALINE_ACCESS_READ),
                       matrix(TESSALINE_ROLE_OUTPUT(0), TESSALINE_ACCESS_WRITE)},
                      &SeenCall::take, &seen);
    const TessalineContext context = std::move(builder).build();
    const TessalineExecutor executor(context, BackendExecutor::cpu_only());
    const auto zeros = [] {
        return StorageFactory::host_matrix(DataTypeDescriptor::complex_float(), 2, 3,
                                           DataMatrixLayout::row_major,
                                           DataComplexLayout::interleaved);
    };
    const auto from = zeros();
    const auto to = zeros();
    OperationBindings bindings;
    bindings.insert(input_role(0), bound(*from, false)).insert(output_role(0), bound(*to, true));
    executor.execute(OperationId("acme.f", 1), bindings);
    ASSERT_EQ(seen.operands.size(), 2U);
    EXPECT_EQ(seen.operands[0].matrix_layout, std::uint32_t{TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR});
    EXPECT_EQ(seen.operands[1].rows, 2U);
}

} // namespace
} // namespace Tessaline::PluginDetail::Internal
