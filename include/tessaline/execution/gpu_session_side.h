// SPDX-License-Identifier: Apache-2.0
#pragma once

// The device half of a session: what a process needs of it. A CPU session has none.

#include "tessaline/execution/backend_context.h"

#include <exception>
#include <optional>
#include <span>

namespace Tessaline {

class TESSALINE_API GpuSessionSide {
  public:
    GpuSessionSide() = default;
    GpuSessionSide(const GpuSessionSide&) = delete;
    GpuSessionSide& operator=(const GpuSessionSide&) = delete;
    virtual ~GpuSessionSide();

    /// The device of the operation.
    virtual std::optional<std::int32_t> selected_device() const = 0;
    /// The runtime of a device, null when there is none.
    virtual BackendRuntimeContext* runtime(std::int32_t device) const = 0;
    virtual CrossDevicePolicy cross_device_policy() const = 0;

    /// Acquires the contexts of these devices: ascending, each once, all known to have a runtime.
    virtual void acquire_contexts(std::span<const std::int32_t> devices) = 0;
    /// Forgets the submissions of the last process and makes room for those of the next.
    virtual void begin_submission() = 0;
    virtual void end_submission() noexcept = 0;
    /// Waits for the submissions of the last process. Returns the first error of a run that surely
    /// ended, null when all went well; raises when completion could not be confirmed.
    virtual std::exception_ptr synchronise_submission() = 0;
};

} // namespace Tessaline
