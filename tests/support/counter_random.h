// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random numbers for tests: the n-th number of a seed is a function of both, so a failure is
// reproduced from the seed that it prints.

#include <cstdint>
#include <vector>

namespace Tessaline::Testing {

class CounterRandom {
  public:
    explicit CounterRandom(std::uint64_t seed) : seed_(mixed(seed)) {}

    std::uint64_t next() { return mixed(seed_ + ++counter_); }
    /// A number below `bound`, which must not be 0. The bias is bound / 2^64.
    std::uint64_t below(std::uint64_t bound) { return next() % bound; }

    template <typename Item>
    void shuffle(std::vector<Item>& items) {
        for (std::size_t i = items.size(); i > 1; --i) {
            std::swap(items[i - 1], items[below(i)]);
        }
    }

  private:
    /// The finaliser of SplitMix64 (Steele, Lea, Flood, OOPSLA 2014).
    static constexpr std::uint64_t mixed(std::uint64_t z) {
        z += 0x9e3779b97f4a7c15U;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }

    std::uint64_t seed_;
    std::uint64_t counter_ = 0;
};

} // namespace Tessaline::Testing
