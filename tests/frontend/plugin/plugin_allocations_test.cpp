// SPDX-License-Identifier: Apache-2.0
// What the call of a plugin's kernel allocates. This program replaces the allocator by one that
// counts.

#include "frontend/plugin/plugin_kernel.h"
#include "support/allocation_counter.h"
#include "tessaline/storage/storage_factory.h"

#include <gtest/gtest.h>

namespace Tessaline::PluginDetail::Internal {
namespace {

tessaline_status do_nothing(void*, const tessaline_kernel_invocation*,
                            const tessaline_error_sink*) {
    return TESSALINE_STATUS_OK;
}

TEST(PluginKernel, ACallAllocatesOneArrayOfOperandsAndOneOfBuffers) {
    const auto type = DataTypeDescriptor::complex_float();
    constexpr auto interleaved = DataComplexLayout::interleaved;
    constexpr auto column_major = DataMatrixLayout::column_major;
    const auto scalar = StorageFactory::host_scalar(type);
    const auto vector = StorageFactory::host_vector(type, 8, interleaved);
    const auto matrix = StorageFactory::host_matrix(type, 8, 8, column_major, interleaved);
    const auto lu = StorageFactory::host_lu(type, 8);
    const auto eigen = StorageFactory::host_eigen(type, 8, column_major);
    BackendExecutionBindings bindings;
    std::vector<StagedOperand> operands;
    const auto bind = [&](auto& entity) {
        const OperandRole role = output_role(operands.size());
        const OperandBinding binding = std::ref(entity);
        operands.push_back({role, OperandAccess::read_write, operand_kind(binding), {}});
        bindings.operands.insert(role, binding);
        bindings.roles.push_back(role);
    };
    bind(*scalar);
    bind(*vector);
    bind(*matrix);
    bind(*lu);
    bind(*eigen);
    const auto kernel = make_kernel(
        {OperationId("acme.f", 1), BackendKind::cpu_simd, operands, &do_nothing, nullptr}, nullptr);
    const BackendProcess process = kernel.entry.materialise();
    BackendExecutionSession session;
    process.execute(session, bindings); // the run's own tables get their room

    const std::uint64_t before = Testing::allocation_count();
    process.execute(session, bindings);
    EXPECT_EQ(Testing::allocation_count() - before, 2U);
}

} // namespace
} // namespace Tessaline::PluginDetail::Internal
