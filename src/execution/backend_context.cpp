// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/backend_context.h"

namespace Tessaline {

// Out of line, so that each interface has one virtual table across shared objects.
BackendRuntimeContext::~BackendRuntimeContext() = default;
BackendExecutionContext::~BackendExecutionContext() = default;

} // namespace Tessaline
