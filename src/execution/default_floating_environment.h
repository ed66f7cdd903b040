// SPDX-License-Identifier: Apache-2.0
#pragma once

// The floating-point environment in which all arithmetic runs, whatever the calling thread's is:
// rounding to nearest, subnormals kept, exceptions masked. A result's bits would depend on the
// caller's modes otherwise, and on which threads have inherited them.

#include <cstdint>
#include <xmmintrin.h>

namespace Tessaline {

/// Sets the thread's environment to the default one, and gives back, also on exceptions, what the
/// thread had. That includes the sticky flags of SSE: which ones work raises tells how it was cut
/// among threads and what was computed on trial.
class DefaultFloatingEnvironment {
  public:
    DefaultFloatingEnvironment();
    DefaultFloatingEnvironment(const DefaultFloatingEnvironment&) = delete;
    DefaultFloatingEnvironment& operator=(const DefaultFloatingEnvironment&) = delete;
    ~DefaultFloatingEnvironment();

    /// Sets it once more, against what work may have left behind. The scope that gives the thread's
    /// own environment back lies around this; a worker has none to give back.
    static void restore_default();

    /// Sets it once more if a scope of this thread keeps the caller's; tells whether one does.
    static bool restored_within_scope();

    /// Whether the thread's control words are the default ones. Sticky flags are no difference.
    /// Inline for parallel loops: the store of the SSE word alone takes 5 ns where nothing else is
    /// under way.
    static bool is_set() {
        return (_mm_getcsr() & ~sticky_flags) == default_mxcsr &&
               x87_control() == default_x87_control;
    }

  private:
    static constexpr std::uint32_t default_mxcsr = 0x1f80;
    static constexpr std::uint32_t sticky_flags = 0x3f;
    static constexpr std::uint16_t default_x87_control = 0x37f;

    static std::uint16_t x87_control() {
        std::uint16_t control = 0;
        asm volatile("fnstcw %0" : "=m"(control));
        return control;
    }

    /// As the instructions that save and load it expect.
    struct X87Environment {
        std::uint32_t words[7];
    };

    std::uint32_t mxcsr_;
    bool sets_x87_;
    X87Environment x87_; ///< where it is not the default one
};

} // namespace Tessaline
