// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/host_buffer.h"

#include <algorithm>

namespace Tessaline {

#define TESSALINE_DEFINE_HOST_BUFFER(category, Stored, Compute) template class HostBuffer<Stored>;
TESSALINE_COMPILED_POLICIES(TESSALINE_DEFINE_HOST_BUFFER)
#undef TESSALINE_DEFINE_HOST_BUFFER
template class HostBuffer<long>;

DataTopologyDescriptor HostBufferDetail::topology(DataLocation location, HostMemoryOptions options,
                                                  std::span<const Placement> placements) {
    const bool host =
        location == DataLocation::pageable_host || location == DataLocation::pinned_host;
    const std::int32_t node = placements.front().effective_numa_id;
    const bool placed = host && node >= 0 && std::ranges::all_of(placements, [&](Placement each) {
                            return each.effective_numa_id == node;
                        });
    HostPlacement placement;
    placement.requested_numa_id = options.numa_node;
    placement.effective_numa_id = placed ? node : -1;
    placement.placement_guaranteed =
        placed && std::ranges::all_of(placements, &Placement::guaranteed);
    placement.host_allocation_policy = static_cast<std::int32_t>(options.policy);
    return location == DataLocation::pinned_host ? DataTopologyDescriptor::pinned_host(placement)
                                                 : DataTopologyDescriptor::pageable_host(placement);
}

} // namespace Tessaline
