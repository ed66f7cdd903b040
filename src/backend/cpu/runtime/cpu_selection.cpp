// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/runtime/cpu_selection.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Tessaline {

namespace {

[[noreturn]] void refuse(const char* reason) {
    throw std::invalid_argument(std::string("CpuRuntimeContext - ") + reason);
}

std::vector<std::size_t> select_nodes(const CpuRuntimeOptions& options, const CpuTopology& topology,
                                      const std::vector<std::size_t>& all) {
    const bool strict = options.numa_policy == CpuNumaPolicy::strict;
    if (strict && std::ranges::any_of(options.numa_nodes,
                                      [&](int id) { return topology.node(id) == nullptr; })) {
        refuse("requested NUMA node is unavailable");
    }
    if (options.numa_policy == CpuNumaPolicy::disabled || options.numa_nodes.empty()) {
        return all;
    }
    std::vector<std::size_t> selected = topology.logical_cpus_for_nodes(options.numa_nodes);
    if (selected.empty() && strict) {
        refuse("requested NUMA nodes contain no usable CPUs");
    }
    return selected.empty() ? all : selected;
}

} // namespace

std::vector<std::size_t> select_logical_cpus(const CpuRuntimeOptions& options,
                                             const CpuTopology& topology) {
    const std::vector<std::size_t> all = topology.logical_cpus_for_nodes({});
    std::vector<std::size_t> selected = select_nodes(options, topology, all);
    if (!options.logical_cpus.empty()) {
        std::vector<std::size_t> common;
        for (const std::size_t cpu : options.logical_cpus) {
            if (!std::ranges::binary_search(all, cpu)) {
                refuse("requested logical CPU is unavailable");
            }
            if (std::ranges::binary_search(selected, cpu)) {
                common.push_back(cpu);
            }
        }
        if (common.empty() && options.numa_policy == CpuNumaPolicy::strict) {
            refuse("requested logical CPUs do not intersect the selected NUMA nodes");
        }
        selected = common.empty() ? options.logical_cpus : common;
    }
    if (selected.empty()) {
        selected = {0}; // a topology without CPUs
    }
    return selected;
}

std::size_t resolve_thread_count(std::size_t requested, std::size_t selected_count) {
    const std::size_t capacity = std::max<std::size_t>(selected_count, 2) - 1;
    if (requested > capacity) {
        refuse("requested CPU thread count exceeds selected CPU capacity after reserving one "
               "logical CPU for the caller");
    }
    return requested == 0 ? capacity : requested;
}

std::size_t worker_logical_cpu(const std::vector<std::size_t>& selected, std::size_t worker) {
    const std::size_t reserve = selected.size() > 1 ? 1 : 0;
    return selected[reserve + worker % (selected.size() - reserve)];
}

} // namespace Tessaline
