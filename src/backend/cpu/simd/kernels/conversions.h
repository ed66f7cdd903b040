// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elements of two bytes and floats, converted by whole vectors; see unfused_kernels.h.

#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// How a vector of elements of two bytes becomes one of floats, and is made of one.
template <typename Set>
struct Binary16 {
    static typename Set::Register load(const std::uint16_t* from) {
        return Set::load_binary16(from);
    }
    static void store(std::uint16_t* to, typename Set::Register value) {
        Set::store_binary16(to, value);
    }
};
template <typename Set>
struct UpperHalf {
    static typename Set::Register load(const std::uint16_t* from) {
        return Set::load_bfloat16(from);
    }
    static void store(std::uint16_t* to, typename Set::Register value) {
        Set::store_bfloat16(to, value);
    }
};

/// The first `count` elements of a vector, and zeros.
template <typename Set, typename Format>
typename Set::Register load_first(const std::uint16_t* from, Index count) {
    std::uint16_t padded[Set::lanes]{};
    for (Index i = 0; i < count; ++i) {
        padded[i] = from[i];
    }
    return Format::load(padded);
}

/// The sums of runs, as sum_of_runs() forms them, of elements that are widened on the way.
template <typename Set, typename Format>
void sum_of_stored_runs(const std::uint16_t* elements, Index step, Index terms, float* out,
                        Index count) {
    Index i = 0;
    for (; i + Set::lanes <= count; i += Set::lanes) {
        auto sum = Set::zero();
        for (Index t = 0; t < terms; ++t) {
            sum = sum + Format::load(elements + t * step + i);
        }
        Set::store(out + i, sum);
    }
    if (i < count) {
        auto sum = Set::zero();
        for (Index t = 0; t < terms; ++t) {
            sum = sum + load_first<Set, Format>(elements + t * step + i, count - i);
        }
        Set::store(out + i, sum, Set::first_lanes(count - i));
    }
}

template <typename Set, typename Format>
class Conversions {
    using Stored = std::uint16_t;
    static constexpr Index lanes = Set::lanes;

  public:
    static void widen(const Stored* from, float* to, Index count) {
        for_whole_vectors(from, to, count, [](const Stored* vector, float* result) {
            Set::store(result, Format::load(vector));
        });
    }
    static void round(const float* from, Stored* to, Index count) {
        for_whole_vectors(from, to, count, [](const float* vector, Stored* result) {
            Format::store(result, Set::with_one_nan(Set::load(vector)));
        });
    }

    static void add(const Stored* a, const Stored* b, Stored* out, Index count) {
        for (; count >= lanes; a += lanes, b += lanes, out += lanes, count -= lanes) {
            add_vector(a, b, out);
        }
        if (count > 0) {
            Stored rest[2][lanes]{};
            for (Index i = 0; i < count; ++i) {
                rest[0][i] = a[i];
                rest[1][i] = b[i];
            }
            add_vector(rest[0], rest[1], rest[0]);
            for (Index i = 0; i < count; ++i) {
                out[i] = rest[0][i];
            }
        }
    }

  private:
    static void add_vector(const Stored* a, const Stored* b, Stored* out) {
        Format::store(out, Set::with_one_nan(Format::load(a) + Format::load(b)));
    }

    /// Calls `convert(from, to)` for each vector; what is left over takes a detour through a whole
    /// one, since loads of two-byte lanes have no masks in these instruction sets.
    template <typename From, typename To, typename Convert>
    static void for_whole_vectors(const From* from, To* to, Index count, const Convert& convert) {
        for (; count >= lanes; from += lanes, to += lanes, count -= lanes) {
            convert(from, to);
        }
        if (count > 0) {
            From rest[lanes]{};
            To results[lanes];
            for (Index i = 0; i < count; ++i) {
                rest[i] = from[i];
            }
            convert(rest, results);
            for (Index i = 0; i < count; ++i) {
                to[i] = results[i];
            }
        }
    }
};

} // namespace Tessaline::SimdKernels
