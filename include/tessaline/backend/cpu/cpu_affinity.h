// SPDX-License-Identifier: Apache-2.0
#pragma once

// Affinity of the calling thread: sets of logical CPUs as the kernel takes them, and pinning to one
// CPU for a while. No function here changes another thread.

#include "tessaline/export.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Tessaline {

/// Whether threads of this platform can be bound to a logical CPU.
constexpr bool cpu_thread_pinning_supported() {
    return true;
}

/// Lets the calling thread run on `cpu` alone. False when the kernel refuses, as for a CPU that the
/// machine lacks or the process may not use.
TESSALINE_API bool bind_current_thread_to_logical_cpu(std::size_t cpu) noexcept;

/// The logical CPUs that the process may use, ascending; where its mask cannot be read, as many
/// from 0 on as the hardware runs threads. Never empty.
TESSALINE_API std::vector<std::size_t> allowed_logical_cpus();

/// A set of logical CPUs in the kernel's form. Up to 1024 CPUs it needs no allocation.
class CpuAffinityMask {
  public:
    /// The set of the process or of the calling thread; empty when the kernel does not tell.
    static std::optional<CpuAffinityMask> of_process();
    static std::optional<CpuAffinityMask> of_current_thread();

    /// An empty set with room for the CPUs below `cpu_count`.
    explicit CpuAffinityMask(std::size_t cpu_count);

    /// `cpu` must be below the room that the set was made with.
    void add(std::size_t cpu);
    bool is_exactly(std::size_t cpu) const;
    std::vector<std::size_t> logical_cpus() const;
    /// False when the kernel refuses.
    bool apply_to_current_thread() const;

  private:
    using Word = unsigned long;
    static constexpr std::size_t word_bits = sizeof(Word) * CHAR_BIT;

    /// `read(bytes, words)` gives an errno value; it is asked again with more room while the kernel
    /// finds the set too small.
    template <typename Read>
    static std::optional<CpuAffinityMask> ask_kernel(const Read& read);

    const Word* words() const { return wide_.empty() ? narrow_.data() : wide_.data(); }
    Word* words() { return wide_.empty() ? narrow_.data() : wide_.data(); }

    std::size_t word_count_;
    std::array<Word, 16> narrow_{};
    std::vector<Word> wide_; ///< used instead when more words are needed
};

/// Keeps the calling thread on one logical CPU from `pin` to the end of its own life, then restores
/// the mask found before. Pins of one thread nest and end in reverse order; one inside another
/// of the same CPU asks the kernel for nothing, since nobody else changes a pinned thread's mask.
class TESSALINE_API CpuThreadPin {
  public:
    enum class Outcome : std::int32_t {
        pinned,
        mask_unreadable, ///< the present mask cannot be captured; nothing was changed
        refused,         ///< the kernel refused the CPU; nothing was changed
    };

    CpuThreadPin() = default;
    CpuThreadPin(const CpuThreadPin&) = delete;
    CpuThreadPin& operator=(const CpuThreadPin&) = delete;
    ~CpuThreadPin() {
        if (before_) {
            release();
        }
    }

    /// Called once, on the thread that ends the object too.
    Outcome pin(std::size_t cpu);

    /// What the calling thread's mask was before its outermost pin; empty when it has none.
    static std::optional<CpuAffinityMask> mask_before_pins();

  private:
    void release();

    std::size_t cpu_ = 0;
    std::optional<CpuAffinityMask> before_; ///< set while this object is one of the thread's pins
    bool changed_mask_ = false;
    const CpuThreadPin* outer_ = nullptr;
};

} // namespace Tessaline
