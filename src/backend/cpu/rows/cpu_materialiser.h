// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes the steps of the typed kernels.

#include "backend/cpu/rows/engine_rows.h"
#include "tessaline/execution/backend_process.h"

#include <memory>

namespace Tessaline {

/// One function for each row of the engine, which makes its step. A name tells operation, location,
/// domain, complex layout, element and shape of the kernel's operands.
class CpuMaterialiser {
  public:
    using Step = std::unique_ptr<BackendProcessStep>;

    // NOLINTBEGIN(readability-identifier-naming): established names
#define TESSALINE_DECLARE_STEP(operation, kernel, name, ...) static Step name();
    TESSALINE_ENGINE_ROWS(TESSALINE_DECLARE_STEP, TESSALINE_DECLARE_STEP)
#undef TESSALINE_DECLARE_STEP
    // NOLINTEND(readability-identifier-naming)
};

} // namespace Tessaline
