// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes the steps of the typed kernels.

#include "tessaline/execution/backend_process.h"

#include <memory>

namespace Tessaline {

/// Each function makes one step. A name tells operation, location, domain, complex layout, element
/// and shape of the kernel's operands.
class CpuMaterialiser {
  public:
    static std::unique_ptr<BackendProcessStep> add_host_dense_real_float_vect();
};

} // namespace Tessaline
