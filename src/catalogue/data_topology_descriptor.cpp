// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/data_topology_descriptor.h"

#include "catalogue/enumeration_words.h"

#include <utility>

namespace Tessaline {

namespace {

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
      gpu_(std::move(gpu)) {}

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
