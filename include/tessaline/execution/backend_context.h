// SPDX-License-Identifier: Apache-2.0
#pragma once

// The abstract faces of a backend: its long-lived runtime, and its part in one run.

#include "tessaline/catalogue/execution_policy.h"

namespace Tessaline {

/// What a backend keeps between runs: threads, pools, allocators.
class TESSALINE_API BackendRuntimeContext {
  public:
    virtual ~BackendRuntimeContext();
    virtual BackendKind backend() const = 0;

  protected:
    BackendRuntimeContext() = default;
    BackendRuntimeContext(const BackendRuntimeContext&) = default;
    BackendRuntimeContext& operator=(const BackendRuntimeContext&) = default;
};

/// What a step of one run works in.
class TESSALINE_API BackendExecutionContext {
  public:
    virtual ~BackendExecutionContext();
    virtual BackendKind backend() const = 0;

  protected:
    BackendExecutionContext() = default;
    BackendExecutionContext(const BackendExecutionContext&) = default;
    BackendExecutionContext& operator=(const BackendExecutionContext&) = default;
};

} // namespace Tessaline
