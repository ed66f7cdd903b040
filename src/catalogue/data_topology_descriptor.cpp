// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/data_topology_descriptor.h"

#include "catalogue/enumeration_words.h"

#include <utility>

namespace Tessaline {

namespace {

// Before any initialiser of a static object runs, for one of them may be a context.
constinit const GpuPlacement no_gpu{};

HostPlacement host_placement_on(int numa) {
    return {numa, numa, numa >= 0, 0};
}

} // namespace

const char* data_location_name(DataLocation location) {
    static constexpr std::array words{"pageable_host", "pinned_host", "cuda_device"};
    return enumeration_word(words, location);
}

DataTopologyDescriptor::DataTopologyDescriptor(DataLocation location, HostPlacement host,
                                               GpuPlacement gpu)
    : location_(location),
      host_(host),
      gpu_(gpu == GpuPlacement{} ? nullptr : std::make_shared<const GpuPlacement>(std::move(gpu))) {
}

const GpuPlacement& DataTopologyDescriptor::empty_gpu_placement() {
    return no_gpu;
}

DataTopologyDescriptor DataTopologyDescriptor::pageable_host(HostPlacement placement) {
    return {DataLocation::pageable_host, placement, GpuPlacement{}};
}

DataTopologyDescriptor DataTopologyDescriptor::pageable_host(int requested, int effective,
                                                             bool guaranteed) {
    return pageable_host(HostPlacement{requested, effective, guaranteed, 0});
}

DataTopologyDescriptor DataTopologyDescriptor::pageable_host(int numa) {
    return pageable_host(host_placement_on(numa));
}

DataTopologyDescriptor DataTopologyDescriptor::pinned_host(HostPlacement placement) {
    return {DataLocation::pinned_host, placement, GpuPlacement{}};
}

DataTopologyDescriptor DataTopologyDescriptor::pinned_host(int requested, int effective,
                                                           bool guaranteed) {
    return pinned_host(HostPlacement{requested, effective, guaranteed, 0});
}

DataTopologyDescriptor DataTopologyDescriptor::pinned_host(int numa) {
    return pinned_host(host_placement_on(numa));
}

DataTopologyDescriptor DataTopologyDescriptor::gpu(GpuPlacement placement) {
    return {DataLocation::cuda_device, HostPlacement{}, std::move(placement)};
}

DataTopologyDescriptor DataTopologyDescriptor::gpu(int id) {
    return gpu(GpuPlacement{id, -1, {}});
}

DataTopologyDescriptor DataTopologyDescriptor::gpu(int id, int local_numa) {
    return gpu(GpuPlacement{id, local_numa, {}});
}

} // namespace Tessaline
