// SPDX-License-Identifier: Apache-2.0
#pragma once

// From a request to the process that serves it.

#include "tessaline/dispatch/backend_registry.h"

namespace Tessaline {

class TESSALINE_API BackendDispatcher {
  public:
    /// Both registries must outlive the dispatcher at their addresses. Raises std::invalid_argument
    /// for an open registry.
    BackendDispatcher(const BackendRegistry& registry,
                      const BackendAdaptationRegistry& adaptations);

    /// Searches every family, takes the cheapest, and wraps its process in the adaptation of every
    /// operand that needs it. Raises DispatchError when no implementation can be reached, when one
    /// family has two equally cheap ones, and when rules contradict themselves. May run on any
    /// number of threads.
    BackendProcess dispatch(const OperationDescriptor& descriptor) const;

  private:
    const BackendRegistry& registry_;
    const BackendAdaptationRegistry& adaptations_;
};

} // namespace Tessaline
