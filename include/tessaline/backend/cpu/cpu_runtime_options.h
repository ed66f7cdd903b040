// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a caller may choose about the CPU runtime.

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Tessaline {

/// How far a request for NUMA nodes binds.
enum class CpuNumaPolicy : std::int32_t {
    disabled = 0,  ///< nodes are ignored
    automatic = 1, ///< nodes are preferred; where they cannot be had, the runtime goes on without
    strict = 2,    ///< a node that cannot be had is an error
};

/// How far the binding of threads to logical CPUs binds.
enum class CpuPinningPolicy : std::int32_t {
    disabled = 0,  ///< threads are left alone
    automatic = 1, ///< threads are pinned; where the kernel refuses, they go on unpinned
    strict = 2,    ///< a refusal is an error
};

/// The spellings of both policies, indexed by value.
inline constexpr std::array<std::string_view, 3> cpu_policy_words{"disabled", "auto", "strict"};

/// The policy that `word` spells; empty for any other word.
template <typename Policy>
requires std::same_as<Policy, CpuNumaPolicy> || std::same_as<Policy, CpuPinningPolicy>
constexpr std::optional<Policy> parse_cpu_policy(std::string_view word) {
    for (std::size_t value = 0; value < cpu_policy_words.size(); ++value) {
        if (cpu_policy_words[value] == word) {
            return static_cast<Policy>(value);
        }
    }
    return std::nullopt;
}

/// 0: as many workers as the selected CPUs carry.
constexpr std::size_t default_cpu_thread_count() {
    return 0;
}

/// Scalar operations below which waking workers costs more than it saves.
constexpr std::size_t default_cpu_min_parallel_work() {
    return 32768;
}

struct CpuRuntimeOptions {
    std::size_t thread_count = default_cpu_thread_count(); ///< workers; 0 for automatic
    std::size_t min_parallel_work = default_cpu_min_parallel_work();
    CpuNumaPolicy numa_policy = CpuNumaPolicy::automatic;
    CpuPinningPolicy pinning_policy = CpuPinningPolicy::automatic;
    std::vector<int> numa_nodes;           ///< nodes asked for; empty for all
    std::vector<std::size_t> logical_cpus; ///< CPUs asked for, in order of use; empty for all

    friend bool operator==(const CpuRuntimeOptions&, const CpuRuntimeOptions&) = default;
};

} // namespace Tessaline
