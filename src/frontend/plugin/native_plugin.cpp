// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/native_plugin.h"

#include "catalogue/require.h"
#include "frontend/plugin/cuda_requirements.h"
#include "frontend/plugin/plugin_abi.h"
#include "frontend/plugin/plugin_failure.h"

#include <algorithm>

namespace Tessaline::PluginDetail {

using namespace Internal;

namespace {

/// Runs the one function that a plugin exports. From then on a failure shuts the plugin down, as
/// long as its record is long enough to hold a shutdown function.
tessaline_plugin_metadata initialise(NativeLibrary& library, RegistrationContext& registration) {
    const auto run =
        reinterpret_cast<tessaline_plugin_init_fn>(library.symbol("tessaline_plugin_init"));
    const tessaline_host host{sizeof(tessaline_host), TESSALINE_PLUGIN_ABI_REVISION, &registration,
                              &register_kernel};
    tessaline_plugin_metadata metadata{};
    metadata.struct_size = sizeof(metadata);
    ErrorCapture capture;
    const tessaline_error_sink sink = capture.sink();
    const tessaline_status status = call_plugin(capture, run, &host, &metadata, &sink);
    const bool readable = metadata.struct_size >= sizeof(metadata);
    if (readable) {
        library.set_shutdown(metadata.shutdown_user_data, metadata.shutdown);
    }
    if (status != TESSALINE_STATUS_OK) {
        throw_plugin_error("native plugin initialisation", capture.message(), status, std::nullopt);
    }
    require(readable, "tessaline_plugin_metadata has an invalid struct_size");
    return metadata;
}

bool has_cuda_kernels(const RegistrationContext& registration) {
    return std::ranges::find(registration.kernels, BackendKind::cuda, &StagedKernel::backend) !=
           registration.kernels.end();
}

void check_namespace(const std::string& id, const RegistrationContext& registration) {
    static_cast<void>(OperationId(id + ".probe", 1));
    require(id != "tessaline" && !id.starts_with("tessaline."),
            "native plugin may not use the reserved 'tessaline' namespace");
    const std::string prefix = id + ".";
    require(!registration.kernels.empty(), "native plugin must register at least one kernel");
    for (const StagedOperation& staged : registration.operations) {
        // A name cannot end in a dot, so it goes on behind the prefix.
        if (!staged.operation.name().starts_with(prefix)) {
            throw std::invalid_argument("native kernel operation '" + staged.operation.canonical() +
                                        "' is outside plugin namespace '" + id + "'");
        }
    }
}

} // namespace

LoadedPlugin load_native_plugin(const std::filesystem::path& path) {
    require(!path.empty(), "TessalineContextBuilder::load_plugin - path must not be empty");
    LoadedPlugin plugin;
    plugin.library = NativeLibrary::open(path);
    RegistrationContext registration;
    const tessaline_plugin_metadata metadata = initialise(*plugin.library, registration);
    if (registration.failure) {
        throw std::invalid_argument("native plugin ignored a failed host registration: " +
                                    *registration.failure);
    }
    if (metadata.abi_revision != TESSALINE_PLUGIN_ABI_REVISION) {
        throw std::invalid_argument("native plugin ABI revision mismatch: expected " +
                                    std::to_string(TESSALINE_PLUGIN_ABI_REVISION) + ", received " +
                                    std::to_string(metadata.abi_revision));
    }
    plugin.id = copy_string(metadata.plugin_id, "plugin ID");
    plugin.version = copy_string(metadata.version, "plugin version");
    require(!plugin.version.empty(), "native plugin version must not be empty");
    check_cuda_requirements(metadata, has_cuda_kernels(registration), &query_cuda_runtime);
    check_namespace(plugin.id, registration);
    for (StagedOperation& staged : registration.operations) {
        plugin.operations.emplace_back(std::move(staged.operation), std::move(staged.operands),
                                       OperationValidator(), std::nullopt);
    }
    for (StagedKernel& staged : registration.kernels) {
        plugin.kernels.push_back(make_kernel(std::move(staged), plugin.library));
    }
    return plugin;
}

} // namespace Tessaline::PluginDetail
