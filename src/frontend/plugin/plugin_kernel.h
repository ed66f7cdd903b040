// SPDX-License-Identifier: Apache-2.0
#pragma once

// A plugin's kernel as an implementation like any other: a registry key, and an entry whose process
// calls the plugin.

#include "frontend/plugin/native_library.h"
#include "frontend/plugin/plugin_registration.h"
#include "tessaline/dispatch/backend_registry.h"

#include <memory>

namespace Tessaline::PluginDetail::Internal {

/// A kernel with the library that its code lies in. Immutable once it is shared.
struct NativeKernel {
    StagedKernel declaration;
    std::shared_ptr<NativeLibrary> library;
};

/// Describes the bound operands to the plugin and calls it.
class NativeKernelStep final : public BackendProcessStep {
  public:
    explicit NativeKernelStep(std::shared_ptr<const NativeKernel> kernel);
    ~NativeKernelStep() override;

    /// Raises what with_cpu_context does; std::invalid_argument for operands that are not what the
    /// kernel was registered for; BackendLibraryError when the plugin reports failure.
    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override;

  private:
    /// `cuda_device` is negative and `cuda_stream` null for a CPU kernel.
    void invoke(const BackendExecutionBindings& bindings, std::int32_t cuda_device,
                void* cuda_stream) const;

    std::shared_ptr<const NativeKernel> kernel_;
};

struct PluginKernel {
    BackendRegistryKey key;
    BackendEntry entry;
};

/// The entry and each process that it makes keep the library open. Raises std::invalid_argument
/// for a kernel that writes nothing.
PluginKernel make_kernel(StagedKernel staged, const std::shared_ptr<NativeLibrary>& library);

} // namespace Tessaline::PluginDetail::Internal
