// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which logical CPUs and how many workers a runtime's options come to on a topology.

#include "tessaline/backend/cpu/cpu_runtime_options.h"
#include "tessaline/backend/cpu/cpu_topology.h"

namespace Tessaline {

/// The CPUs to run on, in order of use; never empty. Raises std::invalid_argument for a CPU or,
/// under a strict policy, a node that the topology cannot give.
std::vector<std::size_t> select_logical_cpus(const CpuRuntimeOptions& options,
                                             const CpuTopology& topology);

/// The workers on `selected_count` CPUs, one of which stays with the caller. Raises
/// std::invalid_argument when more are asked for.
std::size_t resolve_thread_count(std::size_t requested, std::size_t selected_count);

/// Where worker `worker` runs. One CPU alone is shared by the caller and the workers.
std::size_t worker_logical_cpu(const std::vector<std::size_t>& selected, std::size_t worker);

} // namespace Tessaline
