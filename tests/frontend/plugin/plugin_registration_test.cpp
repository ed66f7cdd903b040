// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/cuda_requirements.h"
#include "frontend/plugin/plugin_abi.h"
#include "frontend/plugin/plugin_failure.h"
#include "frontend/plugin/plugin_registration.h"
#include "frontend/plugin/relay.h"
#include "support/expect_error.h"
#include "tessaline/catalogue/errors.h"

#include <limits>

namespace Tessaline::PluginDetail::Internal {
namespace {

using namespace Testing;

/// What a host reports: the last status and text, and how often.
struct Reports {
    tessaline_error_sink sink() {
        return {sizeof(tessaline_error_sink), this,
                [](void* user_data, tessaline_status reported, tessaline_string message) {
                    auto& self = *static_cast<Reports*>(user_data);
                    self.status = reported;
                    self.text.assign(message.data, message.size);
                    ++self.count;
                }};
    }

    tessaline_status status = TESSALINE_STATUS_OK;
    std::string text;
    int count = 0;
};

class PluginRegistrationTest : public ::testing::Test {
  protected:
    using Change =
        std::function<void(tessaline_kernel_spec&, std::vector<tessaline_backend_operand>&)>;

    /// Registers a good kernel with one change; the operands are handed over after the change.
    tessaline_status register_changed(const Change& change) {
        operands_ = vector_to_vector();
        auto spec = declared_kernel(operands_);
        change(spec, operands_);
        if (spec.operands != nullptr) {
            spec.operands = operands_.data();
            spec.operand_count = operands_.size();
        }
        const tessaline_error_sink sink = reports_.sink();
        return register_kernel(&context_, &spec, &sink);
    }

    void expect_refused(const Change& change, const std::string& message) {
        SCOPED_TRACE(message);
        const std::size_t kernels = context_.kernels.size();
        context_.failure.reset();
        reports_ = {};
        EXPECT_EQ(register_changed(change), TESSALINE_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(reports_.text, message);
        EXPECT_EQ(reports_.status, TESSALINE_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(reports_.count, 1);
        EXPECT_EQ(context_.failure, message);
        EXPECT_EQ(context_.kernels.size(), kernels);
    }

    RegistrationContext context_;
    Reports reports_;
    std::vector<tessaline_backend_operand> operands_;
};

TEST_F(PluginRegistrationTest, FaultyKernelsAreRefusedWithTheirReason) {
    using Operands = std::vector<tessaline_backend_operand>;
    using Spec = tessaline_kernel_spec;
    using Operand = tessaline_backend_operand;
    const auto spec = [](auto field, auto value) {
        return [=](Spec& changed, Operands&) { changed.*field = value; };
    };
    const auto id = [](auto field, auto value) {
        return [=](Spec& changed, Operands&) { changed.operation.*field = value; };
    };
    const auto input = [](auto field, std::uint32_t value) {
        return [=](Spec&, Operands& operands) { operands[0].*field = value; };
    };
    const auto output = [](auto field, std::uint32_t value) {
        return [=](Spec&, Operands& operands) { operands[1].*field = value; };
    };
    const auto as_matrix = [](std::uint32_t layout) {
        return [layout](Spec&, Operands& operands) {
            operands[1].kind = TESSALINE_OPERAND_MATRIX;
            operands[1].matrix_layout = layout;
        };
    };
    const auto remove_all = [](Spec&, Operands& operands) { operands.clear(); };
    const auto remove_output = [](Spec&, Operands& operands) { operands.pop_back(); };
    const auto exchange = [](Spec&, Operands& operands) { std::swap(operands[0], operands[1]); };
    const auto split_scalar = [](Spec&, Operands& operands) {
        operands[0] = declared_operand(0, TESSALINE_ACCESS_READ, TESSALINE_OPERAND_SCALAR,
                                       TESSALINE_SCALAR_COMPLEX64, TESSALINE_COMPLEX_LAYOUT_SPLIT);
    };
    const std::pair<const char*, std::vector<Change>> rows[] = {
        {"tessaline_kernel_spec has an invalid struct_size", {spec(&Spec::struct_size, 79)}},
        {"native kernel callback must not be null", {spec(&Spec::callback, nullptr)}},
        {"native kernel operand array is malformed", {spec(&Spec::operands, nullptr), remove_all}},
        {"tessaline_operation_id has an invalid struct_size",
         {id(&tessaline_operation_id::struct_size, 31)}},
        {"operation name is malformed",
         {id(&tessaline_operation_id::name, tessaline_string{nullptr, 3})}},
        {"OperationId - major version must be non-zero", {id(&tessaline_operation_id::major, 0)}},
        {"OperationId - names must use lower-case ASCII identifier segments",
         {id(&tessaline_operation_id::name, tessaline_string_from("acme.F"))}},
        {"native plugin declared an invalid backend",
         {spec(&Spec::backend, 0), spec(&Spec::backend, 4)}},
        {"tessaline_backend_operand has an invalid struct_size",
         {input(&Operand::struct_size, 35)}},
        {"native plugin declared an invalid operand kind",
         {input(&Operand::kind, 0), input(&Operand::kind, 6)}},
        {"native plugin declared an invalid location", {input(&Operand::location, 4)}},
        {"native plugin declared an invalid scalar type",
         {input(&Operand::storage, 0), input(&Operand::storage, 7), input(&Operand::compute, 15)}},
        {"DataTypeDescriptor - storage and compute categories differ",
         {input(&Operand::compute, TESSALINE_SCALAR_COMPLEX64)}},
        {"native plugin declared an invalid complex layout",
         {input(&Operand::complex_layout, 0), input(&Operand::complex_layout, 4)}},
        {"native plugin operand complex layout disagrees with its logical dtype",
         {input(&Operand::complex_layout, TESSALINE_COMPLEX_LAYOUT_SPLIT), split_scalar}},
        {"native plugin declared an invalid matrix layout", {as_matrix(3)}},
        {"native plugin matrix kernels require row-major or column-major layout",
         {as_matrix(TESSALINE_MATRIX_LAYOUT_NONE)}},
        {"native plugin scalar and vector kernels require TESSALINE_MATRIX_LAYOUT_NONE",
         {input(&Operand::matrix_layout, TESSALINE_MATRIX_LAYOUT_ROW_MAJOR)}},
        {"native plugin declared an invalid access",
         {input(&Operand::access, 0), input(&Operand::access, 4)}},
        {"native kernel must declare at least one output", {remove_output}},
        {"native kernel input roles must be contiguous reads",
         {input(&Operand::access, TESSALINE_ACCESS_READ_WRITE), input(&Operand::role, 1),
          exchange}},
        {"native kernel output roles must be contiguous writes",
         {output(&Operand::access, TESSALINE_ACCESS_READ),
          output(&Operand::role, TESSALINE_ROLE_OUTPUT(1))}},
    };
    for (const auto& [message, changes] : rows) {
        for (const Change& change : changes) {
            expect_refused(change, message);
        }
    }
    EXPECT_TRUE(context_.operations.empty());

    const tessaline_error_sink sink = reports_.sink();
    EXPECT_EQ(register_kernel(&context_, nullptr, &sink), TESSALINE_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(reports_.text, "native plugin supplied a null kernel registration");
}

TEST_F(PluginRegistrationTest, KernelsOfOneOperationAgreeInTheirContract) {
    const auto unchanged = [](auto&, auto&) {};
    ASSERT_EQ(register_changed(unchanged), TESSALINE_STATUS_OK);
    expect_refused([](auto&, auto& operands) { operands[1].access = TESSALINE_ACCESS_READ_WRITE; },
                   "native kernel role/access/family does not match operation 'acme.f@1'");
    expect_refused([](auto&, auto& operands) { operands[0].kind = TESSALINE_OPERAND_SCALAR; },
                   "native kernel role/access/family does not match operation 'acme.f@1'");
    expect_refused(
        [](auto&, auto& operands) {
            operands.push_back(declared_operand(TESSALINE_ROLE_OUTPUT(1), TESSALINE_ACCESS_WRITE));
        },
        "native kernel arity does not match operation 'acme.f@1'");
    // Type, location and backend may differ, and so may everything under another major version.
    EXPECT_EQ(register_changed([](auto& spec, auto& operands) {
                  operands[0].storage = operands[0].compute = TESSALINE_SCALAR_FLOAT64;
                  operands[0].location = TESSALINE_LOCATION_PINNED_HOST;
                  spec.backend = TESSALINE_BACKEND_CUDA;
              }),
              TESSALINE_STATUS_OK);
    EXPECT_EQ(register_changed([](auto& spec, auto& operands) {
                  operands[1].access = TESSALINE_ACCESS_READ_WRITE;
                  spec.operation.major = 2;
              }),
              TESSALINE_STATUS_OK);
    EXPECT_EQ(context_.operations.size(), 2U);
    EXPECT_EQ(context_.kernels.size(), 3U);
}

TEST_F(PluginRegistrationTest, LongerRecordsAreReadAsFarAsTheyAreKnown) {
    EXPECT_EQ(register_changed([](auto& spec, auto& operands) {
                  spec.struct_size = 4096;
                  spec.operation.struct_size = 64;
                  operands[0].struct_size = 40;
                  operands[1].struct_size = std::numeric_limits<std::uint32_t>::max();
              }),
              TESSALINE_STATUS_OK);
    const StagedKernel& kernel = context_.kernels.at(0);
    EXPECT_EQ(kernel.operation, OperationId("acme.f", 1));
    EXPECT_EQ(kernel.operands.at(1).role, output_role(0));
}

TEST_F(PluginRegistrationTest, ReportsGoOnlyToUsableSinksAndTheFirstFailureIsKept) {
    tessaline_error_sink unusable = reports_.sink();
    unusable.struct_size = 23;
    tessaline_error_sink silent = reports_.sink();
    silent.report = nullptr;
    operands_ = vector_to_vector();
    auto spec = declared_kernel(operands_, nullptr);
    const tessaline_error_sink* const sinks[] = {nullptr, &unusable, &silent};
    for (const tessaline_error_sink* sink : sinks) {
        EXPECT_EQ(register_kernel(&context_, &spec, sink), TESSALINE_STATUS_INVALID_ARGUMENT);
    }
    spec.struct_size = 0;
    const tessaline_error_sink sink = reports_.sink();
    EXPECT_EQ(register_kernel(&context_, &spec, &sink), TESSALINE_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(reports_.text, "tessaline_kernel_spec has an invalid struct_size");
    EXPECT_EQ(reports_.count, 1);
    EXPECT_EQ(context_.failure, "native kernel callback must not be null");
}

TEST(PluginAbi, KeysAreThoseOfTheRuntime) {
    struct Row {
        tessaline_backend_operand record;
        const char* key;
    };
    const Row rows[] = {
        {declared_operand(0, 1, TESSALINE_OPERAND_SCALAR, TESSALINE_SCALAR_COMPLEX64),
         "kind=0,location=0,storage=7,compute=7,complex=0,format=0,layout=-"},
        {declared_operand(0, 1, TESSALINE_OPERAND_VECTOR, TESSALINE_SCALAR_INT32),
         "kind=1,location=0,storage=3,compute=3,complex=0,format=1,layout=-"},
        {declared_operand(0, 1, TESSALINE_OPERAND_MATRIX, TESSALINE_SCALAR_COMPLEX32,
                          TESSALINE_COMPLEX_LAYOUT_SPLIT, TESSALINE_MATRIX_LAYOUT_ROW_MAJOR),
         "kind=2,location=0,storage=12,compute=12,complex=1,format=2,layout=0"},
        {declared_operand(0, 1, TESSALINE_OPERAND_LU, TESSALINE_SCALAR_FLOAT64,
                          TESSALINE_COMPLEX_LAYOUT_NONE, TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR),
         "kind=3,location=0,storage=1,compute=1,complex=0,format=2,layout=1"},
        {declared_operand(0, 1, TESSALINE_OPERAND_EIGEN, TESSALINE_SCALAR_COMPLEX128,
                          TESSALINE_COMPLEX_LAYOUT_INTERLEAVED,
                          TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR),
         "kind=4,location=0,storage=8,compute=8,complex=2,format=2,layout=1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(describe_operand_key(backend_operand_key(row.record)), row.key);
    }
}

TEST(PluginAbi, ValuesCrossTheInterfaceAndBack) {
    EXPECT_EQ(abi_backend(BackendKind::cuda), 3U);
    EXPECT_EQ(abi_backend(BackendKind{3}), 0U);
    EXPECT_EQ(abi_backend(BackendKind{-1}), 0U);
    constexpr std::pair<ScalarType, std::uint32_t> types[] = {
        {ScalarType::Float32, 1},      {ScalarType::Float64, 2},      {ScalarType::Int32, 3},
        {ScalarType::Int64, 4},        {ScalarType::Complex64, 5},    {ScalarType::Complex128, 6},
        {ScalarType::ComplexInt32, 8}, {ScalarType::ComplexInt64, 9}, {ScalarType::Float16, 10},
        {ScalarType::UInt32, 11},      {ScalarType::UInt64, 12},      {ScalarType::BFloat16, 13},
        {ScalarType::Complex32, 14},
    };
    static_assert(std::size(types) == scalar_types.size());
    for (const auto& [type, value] : types) {
        EXPECT_EQ(abi_buffer_element_type(type), value);
        EXPECT_EQ(scalar_type(value), type);
    }
    EXPECT_EQ(abi_buffer_element_type(ScalarType{13}), 0U);
    const auto sparse = OperandDescriptor(
        input_role(0), VectorDescriptor(1, DataTopologyDescriptor::pageable_host(-1),
                                        DataTypeDescriptor::real_float(), DataVectorFormat::sparse,
                                        DataComplexLayout::none));
    expect_error<std::invalid_argument>([&] { abi_operand_view(sparse, OperandAccess::read); },
                                        "native kernel invocation requires dense storage");
}

TEST(PluginFailure, TextNamesCallBackendStatusAndMessage) {
    struct Row {
        tessaline_status status;
        std::optional<BackendKind> backend;
        const char* message;
        const char* text;
        const char* status_name;
    };
    const Row rows[] = {
        {1, std::nullopt, "why", "call failed with plugin status 1: why",
         "TESSALINE_STATUS_INVALID_ARGUMENT"},
        {2, BackendKind::cpu_simd, "", "call on the CPU SIMD backend failed with plugin status 2",
         "TESSALINE_STATUS_UNSUPPORTED"},
        {4, BackendKind::cpu_scalar, "",
         "call on the CPU scalar backend failed with plugin status 4",
         "TESSALINE_STATUS_INTERNAL_ERROR"},
        {9, BackendKind{9}, "", "call on the unknown backend failed with plugin status 9",
         "TESSALINE_STATUS_UNKNOWN"},
        {-1, BackendKind::cuda, "", "call on the CUDA backend failed with plugin status -1",
         "TESSALINE_STATUS_UNKNOWN"},
    };
    for (const Row& row : rows) {
        try {
            throw_plugin_error("call", row.message, row.status, row.backend);
        } catch (const BackendLibraryError& error) {
            EXPECT_STREQ(error.what(), row.text);
            EXPECT_EQ(error.library(), "native plugin");
            EXPECT_EQ(error.status(), row.status);
            EXPECT_EQ(error.status_name(), row.status_name);
            EXPECT_EQ(error.reason(), ErrorReason::library_failure);
        }
    }
}

TEST(PluginFailure, TheLastReportCountsAndMayBeMalformed) {
    ErrorCapture capture;
    const tessaline_error_sink sink = capture.sink();
    EXPECT_EQ(sink.struct_size, 24U);
    sink.report(sink.user_data, 3, tessaline_string_from("first"));
    sink.report(sink.user_data, 3, {"second, not terminated", 6});
    EXPECT_EQ(capture.message(), "second");
    EXPECT_EQ(capture.status(), 3);
    sink.report(sink.user_data, 3, {nullptr, 3});
    EXPECT_EQ(capture.message(), "plugin supplied a malformed error message");
    sink.report(sink.user_data, 3, {nullptr, 0});
    EXPECT_EQ(capture.message(), "");
    sink.report(sink.user_data, 3, {"x", std::numeric_limits<std::uint64_t>::max()});
    EXPECT_EQ(capture.message(), "plugin supplied a malformed error message");
}

TEST(CudaRequirements, RangeMustHoldTheRuntime) {
    struct Row {
        std::int32_t lowest;
        std::int32_t highest;
        const char* failure; ///< null where the plugin is served
    };
    constexpr const char* incompatible = "native plugin requires an incompatible CUDA runtime";
    const Row rows[] = {
        {0, 0, nullptr},          {12000, 0, nullptr},
        {13000, 13000, nullptr},  {0, 12999, incompatible},
        {13001, 0, incompatible}, {12000, 11000, "native plugin CUDA runtime range is malformed"},
    };
    const auto check = [](const Row& row, bool has_cuda_kernels, CudaRuntimeVersion (*query)()) {
        tessaline_plugin_metadata metadata{};
        metadata.cuda_runtime_min = row.lowest;
        metadata.cuda_runtime_max = row.highest;
        check_cuda_requirements(metadata, has_cuda_kernels, query);
    };
    const auto thirteen = [] { return CudaRuntimeVersion{0, 13000}; };
    for (const Row& row : rows) {
        if (row.failure == nullptr) {
            EXPECT_NO_THROW(check(row, true, thirteen)) << row.lowest;
        } else {
            expect_error<std::invalid_argument>([&] { check(row, true, thirteen); }, row.failure);
        }
        if (row.lowest != 0 || row.highest != 0) {
            expect_error<std::invalid_argument>(
                [&] { check(row, false, nullptr); },
                "native CPU plugin declared CUDA runtime requirements");
        }
    }
    EXPECT_NO_THROW(check(rows[0], false, nullptr));
    expect_error<std::runtime_error>(
        [&] { check(rows[0], true, [] {
                  return CudaRuntimeVersion{35, 13000};
              }); },
        "native plugin CUDA runtime query failed with status 35");
}

} // namespace
} // namespace Tessaline::PluginDetail::Internal
