// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the machine offers this process: the logical CPUs it may run on, grouped by NUMA node. Read
// from the kernel's text files and the process's affinity mask; nothing here fails, and what cannot
// be read ends as one node 0.

#include "tessaline/export.h"

#include <cstddef>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace Tessaline {

struct CpuNumaNode {
    int id = 0;                            ///< the kernel's node number
    std::vector<std::size_t> logical_cpus; ///< ascending, each once

    friend bool operator==(const CpuNumaNode&, const CpuNumaNode&) = default;
};

/// The NUMA nodes with the logical CPUs of each, immutable. Nodes ascend by id and none is empty.
class TESSALINE_API CpuTopology {
  public:
    /// One node 0 with the logical CPU 0.
    CpuTopology();
    /// Sorts the nodes and their CPUs, drops repeated CPUs and empty nodes.
    explicit CpuTopology(std::vector<CpuNumaNode> nodes);

    const std::vector<CpuNumaNode>& nodes() const { return nodes_; }
    /// A CPU that two nodes list counts twice.
    std::size_t logical_cpu_count() const;
    /// Null for an unknown id; valid while the topology lives.
    const CpuNumaNode* node(int id) const;
    /// The id of the first node that lists `cpu`, or -1.
    int numa_node_for_logical_cpu(std::size_t cpu) const;
    /// The CPUs of the named nodes, ascending, each once. Unknown ids add nothing; no ids at all
    /// mean every node.
    std::vector<std::size_t> logical_cpus_for_nodes(std::span<const int> ids) const;

    friend bool operator==(const CpuTopology&, const CpuTopology&) = default;

  private:
    std::vector<CpuNumaNode> nodes_;
};

/// Reads the machine as it is now.
TESSALINE_API CpuTopology discover_cpu_topology();

/// Reads a directory laid out like /sys/devices/system/node for a process that may use the CPUs
/// `allowed`, in any order. CPUs that no listed node holds are left out; when no node with an
/// allowed CPU can be read, the result is one node 0 with all of `allowed`.
TESSALINE_API CpuTopology discover_cpu_topology(const std::filesystem::path& node_directory,
                                                std::vector<std::size_t> allowed);

/// The machine as it was at the first call. Later changes of affinity are not seen.
TESSALINE_API const CpuTopology& system_cpu_topology();

/// The numbers of a list in the kernel's form, as in "0-3,8,10-11": ascending, each once. Reading
/// ends at the first entry that is not a number or does not fit, and keeps what came before it;
/// a descending range adds nothing, and characters between an entry and the next comma are ignored.
TESSALINE_API std::vector<std::size_t> parse_cpu_list(std::string_view text);

} // namespace Tessaline
