// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"
#include "support/key_storage.h"
#include "support/key_text.h"
#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/catalogue/builtin_operations.h"
#include "tessaline/frontend/tessaline_context.h"

#include <gtest/gtest.h>

namespace Tessaline {
namespace {

TEST(EngineRows, KernelsTakeStorageOfTheirKeys) {
    for_each_numeric_policy([]<typename Policy>(Policy) {
        if constexpr (requires { CpuCapabilities<Policy>::legacy_records(); }) {
            for (const auto& row : CpuCapabilities<Policy>::legacy_records()) {
                EXPECT_NO_THROW(Testing::run_on_ones(row.key, row.entry))
                    << Testing::key_text(row.key);
            }
        }
    });
}

TEST(RegisterCpuBackends, EveryRowBearsTheProvenanceGiven) {
    BackendRegistry registry;
    const auto provenance = RegistrationProvenance::builtin("9.9");
    register_cpu_backends(registry, provenance);
    for (const auto& [key, backend] : registry.registrations()) {
        EXPECT_EQ(backend.provenance(), provenance) << Testing::key_text(key);
    }
}

TEST(RegisterCpuBackends, InterleavedOperandsReachEveryOperationInEveryPolicy) {
    OperationRegistry operations;
    register_builtin_operations(operations, RegistrationProvenance::builtin("9.9"));
    operations.seal();
    BackendRegistry registry;
    register_cpu_backends(registry, RegistrationProvenance::builtin("9.9"));
    registry.seal(operations);
    BackendAdaptationRegistry adaptations;
    register_cpu_adaptations(adaptations);
    for_each_numeric_policy([&]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer) {
            for (const auto& [key, entry, numerics] : cpu_floating_capabilities(Policy::type())) {
                const auto match =
                    registry.find(operations.operation(key.op()).handle(), BackendKind::cpu_simd,
                                  key.inputs(), key.outputs(), adaptations);
                ASSERT_TRUE(match.has_value()) << Testing::key_text(key);
                EXPECT_EQ(match->exact(), registry.registrations().contains(key));
            }
        }
    });
}

TEST(DefaultContext, DescribesItselfEveryTimeAlike) {
    const TessalineContext context;
    const TessalineContext other;
    for (const OperationId& id : context.operations()) {
        EXPECT_EQ(context.describe(id), other.describe(id)) << id.name();
    }
}

} // namespace
} // namespace Tessaline
