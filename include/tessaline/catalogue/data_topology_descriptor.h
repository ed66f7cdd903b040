// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where the data of an operand lie: which kind of memory, on which NUMA node or device.

#include "tessaline/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Tessaline {

enum class DataLocation : std::int32_t { pageable_host = 0, pinned_host = 1, cuda_device = 2 };

/// The enumerator's name, and "unknown" for any other value.
TESSALINE_API const char* data_location_name(DataLocation location);

/// Placement of host memory. The default is the empty form, which says nothing.
struct HostPlacement {
    std::int32_t requested_numa_id = -1;     ///< the node asked for, -1 for none
    std::int32_t effective_numa_id = -1;     ///< the node where the memory is known to lie, or -1
    bool placement_guaranteed = false;       ///< whether the effective node is a guarantee
    std::int32_t host_allocation_policy = 0; ///< policy value of the request's HostMemoryOptions

    friend bool operator==(const HostPlacement&, const HostPlacement&) = default;
};

/// Placement of device memory. The default is the empty form, which says nothing.
struct GpuPlacement {
    std::int32_t gpu_id = -1;            ///< CUDA ordinal
    std::int32_t gpu_local_numa_id = -1; ///< host NUMA node nearest to the device, -1 unknown
    std::string gpu_pci_bus_id;          ///< empty when unknown

    friend bool operator==(const GpuPlacement&, const GpuPlacement&) = default;
};

/// Location and both placements, of which the one that does not apply is empty. A plain value: no
/// constructor checks anything.
class TESSALINE_API DataTopologyDescriptor {
  public:
    DataTopologyDescriptor(DataLocation location, HostPlacement host, GpuPlacement gpu);

    static DataTopologyDescriptor pageable_host(HostPlacement placement);
    static DataTopologyDescriptor pageable_host(int requested, int effective, bool guaranteed);
    /// Requested and effective node `numa`, guaranteed when it is not negative.
    static DataTopologyDescriptor pageable_host(int numa);

    static DataTopologyDescriptor pinned_host(HostPlacement placement);
    static DataTopologyDescriptor pinned_host(int requested, int effective, bool guaranteed);
    /// Requested and effective node `numa`, guaranteed when it is not negative.
    static DataTopologyDescriptor pinned_host(int numa);

    static DataTopologyDescriptor gpu(GpuPlacement placement);
    static DataTopologyDescriptor gpu(int id);
    static DataTopologyDescriptor gpu(int id, int local_numa);

    DataLocation location() const { return location_; }
    const HostPlacement& host_placement() const { return host_; }
    const GpuPlacement& gpu_placement() const { return gpu_ ? *gpu_ : empty_gpu_placement(); }

    /// The effective NUMA node, as effective_numa_id().
    std::int32_t numa_id() const { return host_.effective_numa_id; }
    std::int32_t effective_numa_id() const { return host_.effective_numa_id; }
    std::int32_t requested_numa_id() const { return host_.requested_numa_id; }
    bool has_effective_numa_id() const { return host_.effective_numa_id >= 0; }
    bool placement_guaranteed() const { return host_.placement_guaranteed; }
    std::int32_t host_allocation_policy() const { return host_.host_allocation_policy; }

    std::int32_t gpu_id() const { return gpu_placement().gpu_id; }
    std::int32_t gpu_local_numa_id() const { return gpu_placement().gpu_local_numa_id; }
    bool has_gpu_local_numa_id() const { return gpu_placement().gpu_local_numa_id >= 0; }
    const std::string& gpu_pci_bus_id() const { return gpu_placement().gpu_pci_bus_id; }

    bool is_pageable_host() const { return location_ == DataLocation::pageable_host; }
    bool is_pinned_host() const { return location_ == DataLocation::pinned_host; }
    bool is_gpu() const { return location_ == DataLocation::cuda_device; }

    friend bool operator==(const DataTopologyDescriptor& a, const DataTopologyDescriptor& b) {
        return a.location_ == b.location_ && a.host_ == b.host_ &&
               a.gpu_placement() == b.gpu_placement();
    }

  private:
    static const GpuPlacement& empty_gpu_placement();

    DataLocation location_;
    HostPlacement host_;
    /// Null for the empty form: a request copies many descriptors, nearly all of them on the host.
    std::shared_ptr<const GpuPlacement> gpu_;
};

} // namespace Tessaline
