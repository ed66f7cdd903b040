// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_topology.h"

#include "execution/default_floating_environment.h"
#include "tessaline/backend/cpu/cpu_affinity.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <optional>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

void sort_unique(std::vector<std::size_t>& values) {
    std::ranges::sort(values);
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

// The first line without surrounding white space; empty when there is none.
std::string read_line(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    constexpr const char* white_space = " \t\n\v\f\r";
    const std::size_t begin = line.find_first_not_of(white_space);
    if (begin == std::string::npos) {
        return {};
    }
    return line.substr(begin, line.find_last_not_of(white_space) - begin + 1);
}

// Takes a number off the front of `text`, with the separators before it.
std::optional<std::size_t> take_number(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of("\t\n ,"), text.size()));
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{}) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

void append_range(std::vector<std::size_t>& values, std::size_t first, std::size_t last) {
    if (last < first) {
        return;
    }
    if (last - first >= values.max_size() - values.size()) {
        throw std::bad_alloc();
    }
    const std::size_t old_size = values.size();
    values.resize(old_size + (last - first) + 1);
    std::iota(values.begin() + static_cast<std::ptrdiff_t>(old_size), values.end(), first);
}

std::vector<int> online_node_ids(const std::filesystem::path& node_directory) {
    std::vector<int> ids;
    for (const std::size_t id : parse_cpu_list(read_line(node_directory / "online"))) {
        if (!std::in_range<int>(id)) {
            return {};
        }
        ids.push_back(static_cast<int>(id));
    }
    return ids;
}

} // namespace

CpuTopology::CpuTopology() : CpuTopology({CpuNumaNode{0, {0}}}) {}

CpuTopology::CpuTopology(std::vector<CpuNumaNode> nodes) : nodes_(std::move(nodes)) {
    for (CpuNumaNode& node : nodes_) {
        sort_unique(node.logical_cpus);
    }
    std::erase_if(nodes_, [](const CpuNumaNode& node) { return node.logical_cpus.empty(); });
    std::ranges::stable_sort(nodes_, {}, &CpuNumaNode::id);
}

std::size_t CpuTopology::logical_cpu_count() const {
    std::size_t count = 0;
    for (const CpuNumaNode& node : nodes_) {
        count += node.logical_cpus.size();
    }
    return count;
}

const CpuNumaNode* CpuTopology::node(int id) const {
    const auto found = std::ranges::find(nodes_, id, &CpuNumaNode::id);
    return found != nodes_.end() ? &*found : nullptr;
}

int CpuTopology::numa_node_for_logical_cpu(std::size_t cpu) const {
    const auto found = std::ranges::find_if(nodes_, [cpu](const CpuNumaNode& node) {
        return std::ranges::binary_search(node.logical_cpus, cpu);
    });
    return found != nodes_.end() ? found->id : -1;
}

std::vector<std::size_t> CpuTopology::logical_cpus_for_nodes(std::span<const int> ids) const {
    std::vector<std::size_t> cpus;
    for (const CpuNumaNode& node : nodes_) {
        if (ids.empty() || std::ranges::find(ids, node.id) != ids.end()) {
            cpus.insert(cpus.end(), node.logical_cpus.begin(), node.logical_cpus.end());
        }
    }
    sort_unique(cpus);
    return cpus;
}

std::vector<std::size_t> parse_cpu_list(std::string_view text) {
    std::vector<std::size_t> values;
    while (const auto first = take_number(text)) {
        std::optional<std::size_t> last = first;
        if (text.starts_with('-')) {
            text.remove_prefix(1);
            last = take_number(text);
        }
        if (!last) {
            break;
        }
        append_range(values, *first, *last);
        text.remove_prefix(std::min(text.find(','), text.size()));
    }
    sort_unique(values);
    return values;
}

CpuTopology discover_cpu_topology(const std::filesystem::path& node_directory,
                                  std::vector<std::size_t> allowed) {
    sort_unique(allowed);
    std::vector<CpuNumaNode> nodes;
    for (const int id : online_node_ids(node_directory)) {
        const std::string directory = "node" + std::to_string(id);
        CpuNumaNode node{id, {}};
        std::ranges::set_intersection(
            parse_cpu_list(read_line(node_directory / directory / "cpulist")), allowed,
            std::back_inserter(node.logical_cpus));
        if (!node.logical_cpus.empty()) {
            nodes.push_back(std::move(node));
        }
    }
    if (nodes.empty()) {
        nodes.push_back({0, std::move(allowed)});
    }
    return CpuTopology(std::move(nodes));
}

CpuTopology discover_cpu_topology() {
    // The library grows its paths by floating arithmetic, which a caller may have set to trap.
    const DefaultFloatingEnvironment environment;
    return discover_cpu_topology("/sys/devices/system/node", allowed_logical_cpus());
}

const CpuTopology& system_cpu_topology() {
    // Threads that come first together may both discover it. The guard of a static object would be
    // held for ever in a child that is forked meanwhile.
    static constinit std::atomic<const CpuTopology*> known{nullptr};
    const CpuTopology* topology = known.load(std::memory_order_acquire);
    if (topology == nullptr) {
        auto discovered = std::make_unique<const CpuTopology>(discover_cpu_topology());
        if (known.compare_exchange_strong(topology, discovered.get(), std::memory_order_acq_rel)) {
            topology = discovered.release(); // lives as long as the process
        }
    }
    return *topology;
}

} // namespace Tessaline
