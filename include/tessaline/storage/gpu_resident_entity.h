// SPDX-License-Identifier: Apache-2.0
#pragma once

// The side of an entity that lies in device memory. Streams order work on it through its readiness:
// a step awaits each operand on its stream, launches, and marks each operand ready on that stream.

#include "tessaline/export.h"

struct CUstream_st;

namespace Tessaline {

class TESSALINE_API GpuResidentEntity {
  public:
    virtual ~GpuResidentEntity();

    /// Work that awaits this entity from now on comes after all that `stream` has queued so far.
    virtual void mark_ready(CUstream_st* stream) const = 0;
    /// What is queued on `stream` from now on comes after the work that marked this entity ready.
    virtual void await(CUstream_st* stream) const = 0;
    /// Blocks the calling thread until the work that marked this entity ready has ended.
    virtual void synchronise() const = 0;

  protected:
    GpuResidentEntity() = default;
    GpuResidentEntity(const GpuResidentEntity&) = default;
    GpuResidentEntity& operator=(const GpuResidentEntity&) = default;
};

} // namespace Tessaline
