// SPDX-License-Identifier: Apache-2.0
#pragma once

// The SIMD engine: its operations for one instruction set, and for the one chosen at run time. Both
// have lu_decomp and the members that the lists below name, each with the operands and the errors
// of the function of that name in operations.h.

#include "backend/cpu/engine/operations.h"
#include "backend/cpu/simd/tables/x86_simd.h"

namespace Tessaline {

/// Those that are templates on the form.
#define TESSALINE_SIMD_OPERATIONS_BY_FORM(OPERATION)                                               \
    OPERATION(sqrt)                                                                                \
    OPERATION(conj)                                                                                \
    OPERATION(add)                                                                                 \
    OPERATION(sub)                                                                                 \
    OPERATION(mul)                                                                                 \
    OPERATION(scale)                                                                               \
    OPERATION(divide)                                                                              \
    OPERATION(matmul)                                                                              \
    OPERATION(matvec)                                                                              \
    OPERATION(kroneckerprod)                                                                       \
    OPERATION(outerprod)                                                                           \
    OPERATION(innerprod)                                                                           \
    OPERATION(transpose)                                                                           \
    OPERATION(adjoint)                                                                             \
    OPERATION(trace_out_left)                                                                      \
    OPERATION(trace_out_right)                                                                     \
    OPERATION(identity)                                                                            \
    OPERATION(sum)                                                                                 \
    OPERATION(trace)                                                                               \
    OPERATION(norm)                                                                                \
    OPERATION(vector_equal)

/// Those that operands of one form have.
#define TESSALINE_SIMD_OPERATIONS_OF_ONE_FORM(OPERATION)                                           \
    OPERATION(matrix_power)                                                                        \
    OPERATION(relayout)                                                                            \
    OPERATION(is_unitary)                                                                          \
    OPERATION(solve)                                                                               \
    OPERATION(logdet)                                                                              \
    OPERATION(eigen)                                                                               \
    OPERATION(principal_eigenvect)

/// The engine of one instruction set; the processor must have it.
template <X86Simd Simd>
class X86SimdEngine {
  public:
    static void lu_decomp(LuDecompView<long, std::complex<float>> lu) {
        SimdOperations::lu_decomp(kernels, lu);
    }
#define TESSALINE_ENGINE_OPERATION(operation)                                                      \
    template <typename First, typename... Rest>                                                    \
    static void operation(First first, Rest... rest) {                                             \
        SimdOperations::operation<SimdOperations::FormOf<First>>(kernels, first, rest...);         \
    }
    TESSALINE_SIMD_OPERATIONS_BY_FORM(TESSALINE_ENGINE_OPERATION)
#undef TESSALINE_ENGINE_OPERATION
#define TESSALINE_ENGINE_OPERATION(operation)                                                      \
    template <typename... Operands>                                                                \
    static void operation(Operands... operands) {                                                  \
        SimdOperations::operation(kernels, operands...);                                           \
    }
    TESSALINE_SIMD_OPERATIONS_OF_ONE_FORM(TESSALINE_ENGINE_OPERATION)
#undef TESSALINE_ENGINE_OPERATION

  private:
    static constexpr const SimdKernels::Table& kernels =
        Simd == X86Simd::avx512 ? SimdKernels::avx512_table : SimdKernels::avx256_table;
};

/// The engine that cpu_simd_implementation() names. The first call of an operation raises what that
/// raises.
class SimdEngine {
  public:
    template <typename Pivot, typename Element>
    static void lu_decomp(LuDecompView<Pivot, Element> lu) {
        static void (*const selected)(LuDecompView<Pivot, Element>) = of_selected_simd(
            &X86SimdEngine<X86Simd::avx256>::lu_decomp, &X86SimdEngine<X86Simd::avx512>::lu_decomp);
        selected(lu);
    }
#define TESSALINE_ENGINE_OPERATION(operation)                                                      \
    template <typename... Operands>                                                                \
    static void operation(Operands... operands) {                                                  \
        static void (*const selected)(Operands...) =                                               \
            of_selected_simd(&X86SimdEngine<X86Simd::avx256>::template operation<Operands...>,     \
                             &X86SimdEngine<X86Simd::avx512>::template operation<Operands...>);    \
        selected(operands...);                                                                     \
    }
    TESSALINE_SIMD_OPERATIONS_BY_FORM(TESSALINE_ENGINE_OPERATION)
    TESSALINE_SIMD_OPERATIONS_OF_ONE_FORM(TESSALINE_ENGINE_OPERATION)
#undef TESSALINE_ENGINE_OPERATION
};

} // namespace Tessaline
