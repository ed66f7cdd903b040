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

#include <sstream>

namespace Tessaline::PluginDetail::Internal {
namespace {

using namespace Testing;

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

using Storage = std::variant<std::unique_ptr<ScalarEntity>, std::unique_ptr<VectorEntity>,
                             std::unique_ptr<MatrixEntity>, std::unique_ptr<LuDecompEntity>,
                             std::unique_ptr<EigenValsEntity>>;

/// "kind, complex layout, matrix layout, rows x columns", and for each buffer "; role: count x
/// bytes, type".
std::string text_of(const tessaline_operand_view& view,
                    const std::vector<tessaline_buffer_view>& buffers) {
    std::ostringstream text;
    text << view.kind << " " << view.complex_layout << " " << view.matrix_layout << " " << view.rows
         << "x" << view.cols;
    for (const tessaline_buffer_view& buffer : buffers) {
        text << "; " << buffer.role << ": " << buffer.count << "x" << buffer.element_size << " "
             << buffer.element_type;
    }
    return text.str();
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

void expect_view(const SeenCall& seen, std::size_t index, std::uint32_t access, const char* text) {
    const tessaline_operand_view& view = seen.operands.at(index);
    EXPECT_EQ(text_of(view, seen.buffers[index]), text);
    EXPECT_EQ(view.struct_size, 72U);
    EXPECT_EQ(view.buffer_view_stride_hint, 36U);
    EXPECT_EQ(view.access, access);
    EXPECT_EQ(view.location, 1U);
    for (const tessaline_buffer_view& buffer : seen.buffers[index]) {
        EXPECT_EQ(buffer.struct_size, 48U);
        EXPECT_TRUE(buffer.data != nullptr || buffer.count == 0);
        EXPECT_EQ(buffer.mutable_data, access == TESSALINE_ACCESS_READ ? nullptr : buffer.data);
    }
}

TEST_F(PluginKernelTest, OperandsOfEveryKindAreDescribed) {
    const auto float32 = DataTypeDescriptor::real_float();
    const auto float64 = DataTypeDescriptor::real_double();
    const auto complex64 = DataTypeDescriptor::complex_float();
    constexpr auto none = DataComplexLayout::none;
    constexpr auto split = DataComplexLayout::split;
    constexpr auto interleaved = DataComplexLayout::interleaved;
    constexpr auto row_major = DataMatrixLayout::row_major;
    constexpr auto column_major = DataMatrixLayout::column_major;
    using namespace StorageFactory;
    const std::pair<Storage, const char*> rows[] = {
        {host_scalar(DataTypeDescriptor::real_float16()), "1 1 0 1x1; 1: 1x2 10"},
        {host_scalar(complex64), "1 1 0 1x1; 2: 1x4 1; 3: 1x4 1"},
        {host_vector(float32, 5, none), "2 1 0 5x1; 1: 5x4 1"},
        {host_vector(float32, 0, none), "2 1 0 0x1; 1: 0x4 1"},
        {host_vector(complex64, 5, interleaved), "2 3 0 5x1; 1: 5x8 5"},
        {host_vector(complex64, 5, split), "2 2 0 5x1; 2: 5x4 1; 3: 5x4 1"},
        {host_matrix(float64, 2, 7, row_major, none), "3 1 1 2x7; 1: 14x8 2"},
        {host_matrix(complex64, 2, 7, column_major, interleaved), "3 3 2 2x7; 1: 14x8 5"},
        {host_matrix(complex64, 2, 7, row_major, split), "3 2 1 2x7; 2: 14x4 1; 3: 14x4 1"},
        {host_lu(float64, 3), "4 1 2 3x3; 4: 3x8 4; 5: 9x8 2; 6: 1x8 12"},
        {host_eigen(complex64, 3, column_major), "5 3 2 3x3; 7: 3x8 5; 8: 9x8 5"},
    };
    for (const auto& [storage, text] : rows) {
        const auto kind = static_cast<OperandKind>(storage.index());
        const auto binding = [&storage = storage](bool writable) {
            return std::visit([&](const auto& entity) { return bound(*entity, writable); },
                              storage);
        };
        seen_ = {};
        run({staged(input_role(0), OperandAccess::read, kind),
             staged(output_role(0), OperandAccess::read_write, kind)},
            {{output_role(0), binding(true)}, {input_role(0), binding(false)}});
        EXPECT_EQ(seen_.invocation.struct_size, 40U);
        EXPECT_EQ(seen_.invocation.backend, 2U);
        EXPECT_EQ(seen_.invocation.cuda_device, -1);
        EXPECT_EQ(seen_.invocation.cuda_stream, nullptr);
        expect_view(seen_, 0, TESSALINE_ACCESS_READ, text);
        expect_view(seen_, 1, TESSALINE_ACCESS_READ_WRITE, text);
        EXPECT_EQ(seen_.operands[0].role, 0U);
        EXPECT_EQ(seen_.operands[1].role, TESSALINE_ROLE_OUTPUT(0));
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
        MutableBufferView result{view.role,         contents,         view.count,
                                 view.element_size, view.scalar_type, view.type};
        change_mutable(result);
        return result;
    }

    float contents[2] = {1, 2};
    std::size_t count = 1;
    ConstBufferView view = make_buffer_view(BufferRole::data, contents, 2);
    void (*change_mutable)(MutableBufferView&) = [](MutableBufferView&) {};

  private:
    VectorDescriptor descriptor_{2, DataTopologyDescriptor::pageable_host(-1),
                                 DataTypeDescriptor::real_float(), DataVectorFormat::dense,
                                 DataComplexLayout::none};
};

TEST_F(PluginKernelTest, StorageThatContradictsItselfIsRefused) {
    struct Row {
        std::function<void(FaultyVector&)> spoil;
        const char* message;
    };
    const auto mismatch = [](void (*change)(MutableBufferView&)) {
        return Row{[change](FaultyVector& vector) { vector.change_mutable = change; },
                   "buffer layout mismatch at index 0"};
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
        mismatch([](MutableBufferView& view) { view.count = 1; }),
        mismatch([](MutableBufferView& view) { view.element_size = 8; }),
        mismatch([](MutableBufferView& view) { view.role = BufferRole::real; }),
        mismatch([](MutableBufferView& view) { view.type = &typeid(int); }),
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
    const auto vector =
        StorageFactory::host_vector(DataTypeDescriptor::real_float(), 1, DataComplexLayout::none);
    const auto run_on = [&](BackendKind backend) {
        run(staged(output_role(0), OperandAccess::write, OperandKind::Vector), bound(*vector, true),
            backend);
    };
    seen_.message = "no luck";
    run_on(BackendKind::cpu_simd); // a report alone is no failure
    seen_.answer = TESSALINE_STATUS_RUNTIME_ERROR;
    expect_error<BackendLibraryError>(
        [&] { run_on(BackendKind::cpu_simd); },
        "native kernel callback on the CPU SIMD backend failed with plugin status 3: no luck");
    seen_.message = nullptr;
    seen_.answer = 77;
    expect_error<BackendLibraryError>(
        [&] { run_on(BackendKind::cpu_scalar); },
        "native kernel callback on the CPU scalar backend failed with plugin status 77");
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
