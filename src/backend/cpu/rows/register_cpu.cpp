// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/register_cpu.h"

#include "backend/cpu/rows/cpu_capabilities.h"
#include "backend/cpu/steps/cpu_layout_adaptation.h"
#include "tessaline/backend/cpu/cpu_simd.h"

#include <algorithm>

namespace Tessaline {

namespace {

using Capabilities = std::vector<BackendRegistration::BuiltinCapability>;

/// The engine's rows of a policy, where it has any, and floating rows for all other operations.
template <typename Policy>
Capabilities capabilities() {
    Capabilities rows;
    if constexpr (requires { CpuCapabilities<Policy>::legacy_records(); }) {
        rows = CpuCapabilities<Policy>::legacy_records();
    }
    const auto engine_end = static_cast<std::ptrdiff_t>(rows.size());
    for (auto& row : cpu_floating_capabilities(Policy::type())) {
        const auto serves = [&row](const auto& engine) { return engine.key.op() == row.key.op(); };
        if (std::none_of(rows.begin(), rows.begin() + engine_end, serves)) {
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

} // namespace

void register_cpu_backends(BackendRegistry& registry, const RegistrationProvenance& provenance) {
    // A choice of engine that cannot be served fails here and not at the first kernel.
    static_cast<void>(cpu_simd_implementation());
    for_each_numeric_policy([&]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer) {
            for (auto& row : capabilities<Policy>()) {
                registry.register_backend(std::move(row.key), std::move(row.entry), provenance,
                                          std::move(row.numerics));
            }
        }
    });
}

void register_cpu_adaptations(BackendAdaptationRegistry& adaptations) {
    adaptations.inputs.push_back(
        {supports_cpu_layout_adaptation,
         [](OperandRole role, const BackendOperandKey&, const BackendOperandKey& registered) {
             BackendAdaptationRegistry::StepSequence steps;
             steps.push_back(adapt_cpu_layout(role, registered, true, false));
             return steps;
         }});
    adaptations.outputs.push_back(
        {supports_cpu_layout_adaptation, [](OperandRole role, const BackendOperandKey&,
                                            const BackendOperandKey& registered, bool preserve) {
             return BackendAdaptationRegistry::StepPair(
                 adapt_cpu_layout(role, registered, preserve, false),
                 adapt_cpu_layout(role, registered, true, true));
         }});
}

} // namespace Tessaline
