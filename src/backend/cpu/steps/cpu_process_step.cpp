// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessaline {

constinit thread_local CpuExecutionContext* CpuExecutionContextDetail::current = nullptr;

namespace CpuProcessStepDetail {

namespace {

constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();

std::uint64_t saturating_sum(std::uint64_t a, std::uint64_t b) {
    return a > most - b ? most : a + b;
}

std::uint64_t saturating_product(std::uint64_t a, std::uint64_t b) {
    return b != 0 && a > most / b ? most : a * b;
}

/// The number of elements of an operand.
struct ElementCount {
    std::uint64_t operator()(const ScalarDescriptor&) const { return 1; }
    std::uint64_t operator()(const VectorDescriptor& vector) const { return vector.size(); }
    std::uint64_t operator()(const MatrixDescriptor& matrix) const {
        return saturating_product(matrix.rows(), matrix.cols());
    }
    std::uint64_t operator()(const LuDecompDescriptor& lu) const {
        return saturating_product(lu.size(), lu.size());
    }
    std::uint64_t operator()(const EigenValsDescriptor& eigen) const {
        return saturating_sum(saturating_product(eigen.size(), eigen.size()), eigen.size());
    }
};

std::uint64_t element_count(const OperandBinding& binding) {
    return std::visit([](const auto& bound) { return ElementCount{}(bound.get().descriptor()); },
                      binding);
}

std::optional<int> known_node(const OperandBinding& binding) {
    const DataTopologyDescriptor& topology = operand_topology(binding);
    return !topology.is_gpu() && topology.has_effective_numa_id()
               ? std::optional(topology.numa_id())
               : std::nullopt;
}

/// What the operands on one node amount to.
struct NodeWeight {
    int node;
    std::uint64_t weight;
    bool holds_output;
    std::uint64_t lowest_ordinal;
};

bool preferred_over(const NodeWeight& a, const NodeWeight& b) {
    if (a.weight != b.weight) {
        return a.weight > b.weight;
    }
    if (a.holds_output != b.holds_output) {
        return a.holds_output;
    }
    return std::pair(a.lowest_ordinal, a.node) < std::pair(b.lowest_ordinal, b.node);
}

NodeWeight weigh(const BackendExecutionBindings& bindings, OperandRole role, int node) {
    const bool* preserved = bindings.outputs.find(role);
    const bool output = bindings.outputs.empty() ? is_output_role(role) : preserved != nullptr;
    const std::uint64_t once = element_count(bindings.operands.at(role));
    const std::uint64_t weight =
        preserved != nullptr && *preserved ? saturating_sum(once, once) : once;
    // Outputs rank before inputs.
    const std::uint64_t ordinal =
        output ? output_index(role) : std::uint64_t{operand_role_limit} + input_index(role);
    return {node, weight, output, ordinal};
}

[[noreturn]] void refuse_node(const char* what, int node) {
    throw std::invalid_argument(std::string("CpuProcessStep - operand NUMA node ") + what + ": " +
                                std::to_string(node));
}

std::size_t count_selected(const CpuRuntimeContext& runtime, const CpuNumaNode& node) {
    const auto& selected = runtime.selected_logical_cpus();
    if (selected.empty()) {
        return node.logical_cpus.size();
    }
    return static_cast<std::size_t>(
        std::ranges::count_if(node.logical_cpus, [&selected](std::size_t cpu) {
            return std::ranges::find(selected, cpu) != selected.end();
        }));
}

} // namespace

std::optional<int> preferred_numa_node_for_role(const BackendExecutionBindings& bindings,
                                                OperandRole role) {
    const OperandBinding* binding = bindings.operands.find(role);
    return binding == nullptr ? std::nullopt : known_node(*binding);
}

std::optional<int> preferred_numa_node_for_operation(const BackendExecutionBindings& bindings) {
    std::vector<NodeWeight> nodes; // in order of first appearance; stays empty on most machines
    for (const OperandRole role : bindings.roles) {
        const auto node = preferred_numa_node_for_role(bindings, role);
        if (!node) {
            continue;
        }
        const NodeWeight operand = weigh(bindings, role, *node);
        const auto known = std::ranges::find(nodes, *node, &NodeWeight::node);
        if (known == nodes.end()) {
            nodes.push_back(operand);
        } else {
            known->weight = saturating_sum(known->weight, operand.weight);
            known->holds_output = known->holds_output || operand.holds_output;
            known->lowest_ordinal = std::min(known->lowest_ordinal, operand.lowest_ordinal);
        }
    }
    if (nodes.empty()) {
        return std::nullopt;
    }
    return std::ranges::min_element(nodes, preferred_over)->node;
}

std::shared_ptr<CpuRuntimeContext> runtime_for_numa_node(const CpuExecutionContext& context,
                                                         int node) {
    const std::shared_ptr<CpuRuntimeContext>& runtime = context.runtime();
    if (!runtime || node < 0 || runtime->options().numa_policy == CpuNumaPolicy::disabled) {
        return runtime;
    }
    const bool strict = runtime->options().numa_policy == CpuNumaPolicy::strict;
    const CpuNumaNode* known = runtime->topology().node(node);
    if (known == nullptr || known->logical_cpus.empty()) {
        if (strict) {
            throw std::invalid_argument(
                "CpuProcessStep - requested operand NUMA node is unavailable: " +
                std::to_string(node));
        }
        return runtime;
    }
    const std::vector<int>& nodes = runtime->options().numa_nodes;
    if (!nodes.empty() && std::ranges::find(nodes, node) == nodes.end()) {
        if (strict) {
            refuse_node("is outside the strict runtime node set", node);
        }
        return runtime;
    }
    if (nodes == std::vector{node}) {
        return runtime;
    }
    const std::size_t cpus = count_selected(*runtime, *known);
    if (cpus == 0) {
        if (strict) {
            refuse_node("has no selected logical CPUs", node);
        }
        return runtime;
    }
    CpuRuntimeOptions options = runtime->options();
    options.numa_nodes = {node};
    options.thread_count = std::max<std::size_t>(
        std::min(options.thread_count, std::max<std::size_t>(cpus, 2) - 1), 1);
    return runtime->local_runtime_for_numa_node(node, std::move(options), context.backend());
}

void require_cpu_backend(BackendKind backend) {
    if (backend != BackendKind::cpu_scalar && backend != BackendKind::cpu_simd) {
        throw std::invalid_argument(
            "CpuProcessStepDetail::with_cpu_context - CPU backend required");
    }
}

CurrentCpuContextScope::CurrentContext::CurrentContext(CpuExecutionContext& context)
    : outer(std::exchange(CpuExecutionContextDetail::current, &context)) {}

CurrentCpuContextScope::CurrentContext::~CurrentContext() {
    CpuExecutionContextDetail::current = outer;
}

CurrentCpuContextScope::CurrentCpuContextScope(CpuExecutionContext& context)
    : current_(context),
      runtime_(context.runtime()) {
    if (runtime_) {
        affinity_.emplace(*runtime_);
    }
}

CurrentCpuContextScope::~CurrentCpuContextScope() = default;

} // namespace CpuProcessStepDetail

} // namespace Tessaline
