// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_materialiser.h"

#include "backend/cpu/engine/x86_simd_engine.h"
#include "backend/cpu/rows/engine_operands.h"
#include "backend/cpu/steps/launch_in_either_form.h"

namespace Tessaline {

namespace {

using namespace EngineRows;

/// A function of the engine with the operands of these binders, by which it is picked among its
/// overloads.
template <typename... Binders>
using KernelOf = void (*)(
    std::unwrap_reference_t<decltype(Binders::get(std::declval<BackendExecutionBindings&>()))>...);

template <typename... Operands>
CpuMaterialiser::Step step_in_one_form(KernelOf<typename Operands::Binder...> kernel) {
    return launch_cpu_kernel<typename Operands::Binder...>(kernel);
}

template <typename... Operands>
CpuMaterialiser::Step
step_in_either_form(KernelOf<typename Operands::Binder...> split,
                    KernelOf<InterleavedBinder<typename Operands::Binder>...> interleaved) {
    return std::make_unique<LaunchInEitherFormStep<decltype(split), decltype(interleaved),
                                                   typename Operands::Binder...>>(split,
                                                                                  interleaved);
}

} // namespace

#define TESSALINE_STEP_IN_ONE_FORM(operation, kernel, name, ...)                                   \
    CpuMaterialiser::Step CpuMaterialiser::name() {                                                \
        return step_in_one_form<__VA_ARGS__>(&SimdEngine::kernel);                                 \
    }
#define TESSALINE_STEP_IN_EITHER_FORM(operation, kernel, name, ...)                                \
    CpuMaterialiser::Step CpuMaterialiser::name() {                                                \
        return step_in_either_form<__VA_ARGS__>(&SimdEngine::kernel, &SimdEngine::kernel);         \
    }
TESSALINE_ENGINE_ROWS(TESSALINE_STEP_IN_EITHER_FORM, TESSALINE_STEP_IN_ONE_FORM)
#undef TESSALINE_STEP_IN_ONE_FORM
#undef TESSALINE_STEP_IN_EITHER_FORM

} // namespace Tessaline
