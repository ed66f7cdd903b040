// SPDX-License-Identifier: Apache-2.0
#pragma once

// Opens a native plugin and validates all that it declares.

#include "frontend/plugin/plugin_kernel.h"
#include "tessaline/catalogue/operation_spec.h"

#include <filesystem>

namespace Tessaline::PluginDetail {

/// A plugin that passed every check, not yet in any catalogue.
struct LoadedPlugin {
    std::string id; ///< also the namespace of its operations
    std::string version;
    std::vector<OperationSpec> operations; ///< in order of declaration
    std::vector<Internal::PluginKernel> kernels;
    std::shared_ptr<Internal::NativeLibrary> library;
};

/// Runs the plugin's initialisation on this thread. Raises std::runtime_error for a library that
/// cannot be opened or has no initialisation, BackendLibraryError when that fails, and
/// std::invalid_argument for what the plugin declares. After a failure the plugin was shut down and
/// its library closed.
LoadedPlugin load_native_plugin(const std::filesystem::path& path);

} // namespace Tessaline::PluginDetail
