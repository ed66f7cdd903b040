// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_affinity.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <numeric>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace Tessaline {

namespace {

// Beyond this many CPUs no larger set is tried.
constexpr std::size_t most_cpus = 1048576;

// The C library reads files for this number, so it is asked once, or once for each thread that
// comes first. The guard of a static object would be held for ever in a child forked meanwhile.
std::size_t configured_cpu_count() {
    static constinit std::atomic<std::size_t> known{0};
    std::size_t count = known.load(std::memory_order_relaxed);
    if (count == 0) {
        const long configured = sysconf(_SC_NPROCESSORS_CONF);
        count = configured > 0 ? static_cast<std::size_t>(configured) : std::size_t{1};
        known.store(count, std::memory_order_relaxed);
    }
    return count;
}

thread_local const CpuThreadPin* innermost_pin = nullptr;

} // namespace

CpuAffinityMask::CpuAffinityMask(std::size_t cpu_count)
    : word_count_((cpu_count + word_bits - 1) / word_bits) {
    if (word_count_ > narrow_.size()) {
        wide_.resize(word_count_);
    }
}

template <typename Read>
std::optional<CpuAffinityMask> CpuAffinityMask::ask_kernel(const Read& read) {
    for (std::size_t count = configured_cpu_count(); count <= most_cpus; count *= 2) {
        CpuAffinityMask mask(count);
        const int error =
            read(mask.word_count_ * sizeof(Word), reinterpret_cast<cpu_set_t*>(mask.words()));
        if (error == 0) {
            return mask;
        }
        if (error != EINVAL) {
            break;
        }
    }
    return std::nullopt;
}

std::optional<CpuAffinityMask> CpuAffinityMask::of_process() {
    return ask_kernel([](std::size_t bytes, cpu_set_t* set) {
        return sched_getaffinity(getpid(), bytes, set) == 0 ? 0 : errno;
    });
}

std::optional<CpuAffinityMask> CpuAffinityMask::of_current_thread() {
    return ask_kernel([](std::size_t bytes, cpu_set_t* set) {
        return pthread_getaffinity_np(pthread_self(), bytes, set);
    });
}

void CpuAffinityMask::add(std::size_t cpu) {
    words()[cpu / word_bits] |= Word{1} << cpu % word_bits;
}

bool CpuAffinityMask::is_exactly(std::size_t cpu) const {
    for (std::size_t word = 0; word < word_count_; ++word) {
        const Word wanted = word == cpu / word_bits ? Word{1} << cpu % word_bits : Word{0};
        if (words()[word] != wanted) {
            return false;
        }
    }
    return cpu / word_bits < word_count_;
}

std::vector<std::size_t> CpuAffinityMask::logical_cpus() const {
    std::vector<std::size_t> cpus;
    for (std::size_t cpu = 0; cpu < word_count_ * word_bits; ++cpu) {
        if ((words()[cpu / word_bits] >> cpu % word_bits & 1) != 0) {
            cpus.push_back(cpu);
        }
    }
    return cpus;
}

bool CpuAffinityMask::apply_to_current_thread() const {
    return pthread_setaffinity_np(pthread_self(), word_count_ * sizeof(Word),
                                  reinterpret_cast<const cpu_set_t*>(words())) == 0;
}

bool bind_current_thread_to_logical_cpu(std::size_t cpu) noexcept {
    if (cpu >= most_cpus) {
        return false;
    }
    try {
        CpuAffinityMask mask(std::max(cpu + 1, configured_cpu_count()));
        mask.add(cpu);
        return mask.apply_to_current_thread();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

std::vector<std::size_t> allowed_logical_cpus() {
    if (const auto mask = CpuAffinityMask::of_process()) {
        std::vector<std::size_t> cpus = mask->logical_cpus();
        if (!cpus.empty()) {
            return cpus;
        }
    }
    std::vector<std::size_t> cpus(std::max(std::thread::hardware_concurrency(), 1U));
    std::iota(cpus.begin(), cpus.end(), std::size_t{0});
    return cpus;
}

CpuThreadPin::Outcome CpuThreadPin::pin(std::size_t cpu) {
    if (innermost_pin != nullptr && innermost_pin->cpu_ == cpu) {
        return Outcome::pinned;
    }
    before_ = CpuAffinityMask::of_current_thread();
    if (!before_) {
        return Outcome::mask_unreadable;
    }
    changed_mask_ = !before_->is_exactly(cpu);
    if (changed_mask_ && !bind_current_thread_to_logical_cpu(cpu)) {
        before_.reset();
        return Outcome::refused;
    }
    cpu_ = cpu;
    outer_ = innermost_pin;
    innermost_pin = this;
    return Outcome::pinned;
}

void CpuThreadPin::release() {
    innermost_pin = outer_;
    if (changed_mask_) {
        before_->apply_to_current_thread();
    }
}

std::optional<CpuAffinityMask> CpuThreadPin::mask_before_pins() {
    const CpuThreadPin* pin = innermost_pin;
    while (pin != nullptr && pin->outer_ != nullptr) {
        pin = pin->outer_;
    }
    return pin != nullptr ? pin->before_ : std::nullopt;
}

} // namespace Tessaline
