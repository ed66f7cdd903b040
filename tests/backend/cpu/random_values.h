// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random numbers of a real or complex type.

#include "support/counter_random.h"

#include <cmath>
#include <complex>
#include <vector>

namespace Tessaline::Testing {

/// Uniform in [-1, 1), with as many random bits as a double holds.
inline double uniform(CounterRandom& random) {
    return static_cast<double>(static_cast<std::int64_t>(random.next()) >> 11) * 0x1p-52;
}

/// A mantissa of any sign times a power of two from `lowest` to `highest`.
inline double spread(CounterRandom& random, int lowest, int highest) {
    const auto range = static_cast<std::uint64_t>(highest - lowest + 1);
    return std::scalbn(uniform(random), lowest + static_cast<int>(random.below(range)));
}

/// An integer from -`bound` to `bound`.
inline double integer(CounterRandom& random, int bound) {
    return static_cast<double>(random.below(static_cast<std::uint64_t>(2 * bound + 1))) - bound;
}

/// Parts from `draw`.
template <typename C, typename Draw>
C random_element(Draw&& draw) {
    if constexpr (std::is_floating_point_v<C>) {
        return static_cast<C>(draw());
    } else {
        using Real = typename C::value_type;
        const auto real = static_cast<Real>(draw());
        return C(real, static_cast<Real>(draw()));
    }
}

template <typename C, typename Draw>
std::vector<C> random_elements(std::size_t count, Draw&& draw) {
    std::vector<C> result(count);
    for (C& element : result) {
        element = random_element<C>(draw);
    }
    return result;
}

} // namespace Tessaline::Testing
