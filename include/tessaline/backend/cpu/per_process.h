// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a forked child must not take over from its parent: threads, which it does not have, and
// mutexes, condition variables and lists that another thread of the parent may have been using at
// the moment of the fork.

#include "tessaline/export.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace Tessaline {

namespace PerProcessDetail {
/// Counted up in each child before fork() returns there.
extern TESSALINE_API std::atomic<std::uint32_t> forks;
} // namespace PerProcessDetail

/// A number that tells a process from every one that it descends from by fork().
inline std::uint32_t process_generation() {
    return PerProcessDetail::forks.load(std::memory_order_relaxed);
}

/// A T that is made at first use, and made anew at first use in a forked child. A child neither
/// reads nor ends its parent's, and keeps that memory. Thread safe without a lock.
template <typename T>
class PerProcess {
  public:
    PerProcess() = default;
    PerProcess(const PerProcess&) = delete;
    PerProcess& operator=(const PerProcess&) = delete;
    ~PerProcess() {
        Slot* const slot = slot_.load(std::memory_order_acquire);
        if (is_own(slot)) {
            delete slot;
        }
    }

    T& get() {
        Slot* const slot = slot_.load(std::memory_order_acquire);
        return is_own(slot) ? slot->value : replace(slot);
    }

  private:
    struct Slot {
        T value;
        std::uint32_t generation = process_generation();
    };

    static bool is_own(const Slot* slot) {
        return slot != nullptr && slot->generation == process_generation();
    }

    T& replace(Slot* found) {
        auto fresh = std::make_unique<Slot>();
        if (slot_.compare_exchange_strong(found, fresh.get(), std::memory_order_acq_rel)) {
            return fresh.release()->value;
        }
        return found->value; // another thread of this process was first
    }

    std::atomic<Slot*> slot_{nullptr};
};

} // namespace Tessaline
