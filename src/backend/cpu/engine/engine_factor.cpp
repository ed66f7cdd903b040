// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine/engine_factor.h"

#include "backend/cpu/lu/blocked_elimination.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/simd/plain/lu_failures.h"

namespace Tessaline::EngineLu {

namespace {

using Complex = std::complex<float>;
using SimdKernels::EliminationEnd;
using SimdKernels::EngineEliminationKernels;

/// Below this squared magnitude a pivot counts as zero.
constexpr float singular_threshold = 0x1p-23F;

float squared_magnitude(Complex value) {
    return value.real() * value.real() + value.imag() * value.imag();
}

class LibraryDivisor {
  public:
    explicit LibraryDivisor(Complex pivot) : pivot_(pivot) {}

    Complex multiplier(Complex element) const { return result_as<Complex>(element / pivot_); }

    /// The library forms quotients of floats in double too.
    std::uint64_t eliminate(const EngineEliminationKernels& kernels,
                            const SimdKernels::PivotBlock<Complex>& block,
                            std::uint64_t begin) const {
        const double c = pivot_.real();
        const double d = pivot_.imag();
        return kernels.eliminate(block, begin, {1, c, d, c * c + d * d, 0});
    }

  private:
    Complex pivot_;
};

struct EngineRules {
    template <typename>
    using Kernels = EngineEliminationKernels;
    template <typename>
    using Divisor = LibraryDivisor;

    static EliminationEnd find_pivot(const EngineEliminationKernels& kernels,
                                     const Complex* candidates, std::uint64_t count,
                                     std::uint64_t& pivot) {
        pivot = kernels.largest_square(candidates, count);
        return pivot != SimdKernels::undecided &&
                       squared_magnitude(candidates[pivot]) > singular_threshold
                   ? EliminationEnd::complete
                   : EliminationEnd::singular;
    }
    static bool vanished(Complex, Complex, Complex) { return false; }
};

} // namespace

void lu_decomp(const EngineEliminationKernels& kernels, LuDecompView<long, Complex> lu) {
    CpuFallback::BlockedElimination<Complex, long, EngineRules> elimination(kernels, lu.factors,
                                                                            lu.size, lu.pivots);
    const auto progress = elimination.factor();
    *lu.swap_count = elimination.swaps();
    if (progress.end == EliminationEnd::singular) {
        LuFailures::engine_singular();
    }
}

} // namespace Tessaline::EngineLu
