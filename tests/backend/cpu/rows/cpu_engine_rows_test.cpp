// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"
#include "support/expect_error.h"
#include "support/key_storage.h"
#include "support/key_text.h"
#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/catalogue/builtin_operations.h"

#include <gtest/gtest.h>

namespace Tessaline {
namespace {

TEST(FloatingRows, RefuseAPolicyWithoutKernels) {
    for (const auto& [storage, compute, name] :
         {std::tuple{ScalarType::Int32, ScalarType::Int32, "int32 / int32"},
          std::tuple{ScalarType::Float32, ScalarType::Float64, "float32 / float64"}}) {
        const auto type = DataTypeDescriptor::from_scalar_types(storage, compute);
        Testing::expect_error<std::invalid_argument>(
            [&] { cpu_floating_capabilities(type); },
            std::string("numeric policy is not compiled: ") + name);
    }
}

TEST(EngineRows, KernelsRefuseStorageOfAnotherElement) {
    for_each_numeric_policy([]<typename Policy>(Policy) {
        if constexpr (requires { CpuCapabilities<Policy>::legacy_records(); }) {
            for (const auto& row : CpuCapabilities<Policy>::legacy_records()) {
                for (std::size_t wrong = 0; wrong <= row.key.inputs().size(); ++wrong) {
                    std::vector<BackendOperandKey> operands = row.key.inputs();
                    operands.push_back(row.key.output());
                    BackendOperandKey& operand = operands[wrong];
                    const bool is_complex = scalar_metadata(operand.storage).category ==
                                            ScalarCategory::complex_floating;
                    operand.storage = is_complex ? ScalarType::Complex128 : ScalarType::Float64;
                    operand.compute = operand.storage;
                    const BackendOperandKey output = operands.back();
                    operands.pop_back();
                    const BackendRegistryKey key(row.key.backend(), row.key.op(), operands, output);
                    Testing::OperandsOfKeys stored(key, 1, 1, [](auto, auto&) {});
                    BackendExecutionSession session;
                    EXPECT_THROW(row.entry.materialise().execute(session, stored.bindings()),
                                 std::bad_cast)
                        << Testing::key_text(key);
                }
            }
        }
    });
}

TEST(EngineRows, TheExponentIsReadAsUnsigned) {
    // 2^32 - 1 is odd, and only the sign of the eigenvalue -1 remembers that.
    const auto rows =
        CpuCapabilities<NumericPolicy<std::complex<float>, std::complex<float>>>::legacy_records();
    const auto row = std::ranges::find(rows, BuiltinOperations::matrix_power,
                                       [](const auto& each) { return each.key.op(); });
    Testing::OperandsOfKeys operands(row->key, 1, 1, [](OperandRole, ErasedBufferAccess& buffers) {
        const MutableBufferView view = buffers.buffer(0);
        if (view.scalar_type == ScalarType::Int32) {
            *static_cast<int*>(view.data) = -1;
        } else {
            *static_cast<float*>(view.data) = -1;
            *static_cast<float*>(buffers.buffer(1).data) = 0;
        }
    });
    BackendExecutionSession session;
    row->entry.materialise().execute(session, operands.bindings());
    operands.for_each_output([](const MutableBufferView& view) {
        EXPECT_EQ(*static_cast<const float*>(view.data),
                  view.role == BufferRole::imaginary ? 0 : -1);
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

} // namespace
} // namespace Tessaline
