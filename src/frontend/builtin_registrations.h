// SPDX-License-Identifier: Apache-2.0
#pragma once

// What comes with the runtime, under its own provenance: the one place that names the families of
// backends, for every way to a context.

#include "tessaline/catalogue/operation_registry.h"
#include "tessaline/dispatch/backend_registry.h"

namespace Tessaline {

OperationRegistry builtin_operations();
BackendRegistry builtin_backends();
BackendAdaptationRegistry builtin_adaptations();

} // namespace Tessaline
