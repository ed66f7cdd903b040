// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/common/floating_keys.h"
#include "backend/cpu/floating/floating_dispatcher.h"
#include "backend/cpu/rows/cpu_floating_numerics.h"
#include "backend/cpu/rows/cpu_operand_keys.h"

namespace Tessaline {

namespace {

BackendOperandKey operand_key(OperandKind kind, const DataTypeDescriptor& type) {
    return dense_host_key(kind, type, DataComplexLayout::interleaved);
}

template <typename T>
BackendRegistration::BuiltinCapability capability(FloatingOperation operation) {
    BackendRegistryKey key =
        floating_key(BackendKind::cpu_simd, operation, PolicyOf<T>::type(), operand_key);
    auto numerics = CpuNumerics::floating<T>(operation, key);
    return {std::move(key),
            BackendRegistration::backend_entry([=] { return floating_kernel_step<T>(operation); }),
            std::move(numerics)};
}

} // namespace

std::vector<BackendRegistration::BuiltinCapability>
cpu_floating_capabilities(const DataTypeDescriptor& policy) {
    std::vector<BackendRegistration::BuiltinCapability> rows;
    visit_numeric_policy(policy, [&rows]<typename Policy>(Policy) {
        if constexpr (Policy::is_integer) {
            NumericPolicyDetail::fail_not_compiled(Policy::storage_type, Policy::compute_type);
        } else {
            rows.reserve(floating_operation_count);
            for (std::size_t index = 0; index < floating_operation_count; ++index) {
                rows.push_back(
                    capability<typename Policy::Stored>(static_cast<FloatingOperation>(index)));
            }
        }
    });
    return rows;
}

} // namespace Tessaline
