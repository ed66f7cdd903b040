// SPDX-License-Identifier: Apache-2.0
#pragma once

// The largest of many candidates, and where it stands.

#include "backend/cpu/simd/kernels/arithmetic.h"

#include <type_traits>
#include <utility>

namespace Tessaline::SimdKernels {

namespace {

/// The largest candidate of each lane so far, the upper one of equals.
template <typename Set>
class PivotSearch {
    using Register = typename Set::Register;
    using Integers = decltype(Register{} < Register{}); ///< a mask, or one row number a lane
    static constexpr Index lanes = Set::lanes;

  public:
    PivotSearch() {
        for (Index lane = 0; lane < lanes; ++lane) {
            next_[lane] = static_cast<RowNumber>(lane);
        }
    }

    /// Candidates of the next rows, zeros in lanes that stand for none.
    void include(Register elements) {
        constexpr auto without_sign = static_cast<RowNumber>(~(RowNumber{1} << sign_bit));
        const auto magnitudes =
            reinterpret_cast<Register>(reinterpret_cast<Integers>(elements) & without_sign);
        const Integers larger = magnitudes > largest_;
        largest_ = larger ? magnitudes : largest_;
        rows_ = larger ? next_ : rows_;
        next_ += static_cast<RowNumber>(lanes);
        // Zero for finite elements only.
        not_finite_ += elements - elements;
    }

    bool is_finite() const { return Set::nan_lanes(not_finite_) == 0; }
    /// The row of the largest, counted from the first that was included; `found` is false where
    /// all are zero.
    Index row(bool& found) const {
        const Register largest =
            in_all_lanes<lanes / 2>(largest_, [](auto a, auto b) { return a < b ? b : a; });
        found = largest[0] != 0;
        const Integers others = Integers{} + static_cast<RowNumber>(~(RowNumber{1} << sign_bit));
        const Integers rows = in_all_lanes<lanes / 2>(largest_ == largest ? rows_ : others,
                                                      [](auto a, auto b) { return a < b ? a : b; });
        return static_cast<Index>(rows[0]);
    }

  private:
    /// Combines all lanes, in each of them: those `Distance` apart first.
    template <Index Distance, typename Vector, typename Combine>
    [[gnu::always_inline]] static inline Vector in_all_lanes(Vector vector,
                                                             const Combine& combine) {
        if constexpr (Distance == 0) {
            return vector;
        } else {
            return in_all_lanes<Distance / 2>(
                combine(vector, rotated<Distance>(vector, std::make_index_sequence<lanes>{})),
                combine);
        }
    }
    template <Index Distance, typename Vector, Index... Lane>
    [[gnu::always_inline]] static inline Vector rotated(Vector vector,
                                                        std::integer_sequence<Index, Lane...>) {
        return __builtin_shufflevector(vector, vector,
                                       static_cast<int>((Lane + Distance) % lanes)...);
    }

    using RowNumber = std::remove_reference_t<decltype(Integers{}[0])>;
    static constexpr int sign_bit = 8 * sizeof(RowNumber) - 1;

    Register largest_ = Set::zero();
    Register not_finite_ = Set::zero();
    Integers rows_{};
    Integers next_{};
};

} // namespace

} // namespace Tessaline::SimdKernels
