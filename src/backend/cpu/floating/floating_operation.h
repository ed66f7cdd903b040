// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operations that floating kernels carry out, in the order of their indices. Steps hold an
// index, kernel tables are indexed by it, and each index has the id of its operation.

#include "tessaline/catalogue/builtin_operation_ids.h"

#include <array>
#include <functional>

#define TESSALINE_FLOATING_OPERATIONS(OPERATION)                                                   \
    OPERATION(sqrt)                                                                                \
    OPERATION(conjugate)                                                                           \
    OPERATION(multiply)                                                                            \
    OPERATION(add)                                                                                 \
    OPERATION(subtract)                                                                            \
    OPERATION(sum)                                                                                 \
    OPERATION(scale)                                                                               \
    OPERATION(divide)                                                                              \
    OPERATION(transpose)                                                                           \
    OPERATION(matmul)                                                                              \
    OPERATION(matvec)                                                                              \
    OPERATION(adjoint)                                                                             \
    OPERATION(kron)                                                                                \
    OPERATION(inner)                                                                               \
    OPERATION(outer)                                                                               \
    OPERATION(lu_factor)                                                                           \
    OPERATION(solve)                                                                               \
    OPERATION(logdet)                                                                              \
    OPERATION(trace)                                                                               \
    OPERATION(norm)                                                                                \
    OPERATION(eig)                                                                                 \
    OPERATION(principal_eigenvector)                                                               \
    OPERATION(partial_trace_left)                                                                  \
    OPERATION(partial_trace_right)                                                                 \
    OPERATION(matrix_power)                                                                        \
    OPERATION(is_unitary)                                                                          \
    OPERATION(eye)                                                                                 \
    OPERATION(vector_equal)                                                                        \
    OPERATION(eigh)                                                                                \
    OPERATION(eigvalsh)                                                                            \
    OPERATION(slogdet)                                                                             \
    OPERATION(logdet_positive_definite)

namespace Tessaline {

enum class FloatingOperation : std::int32_t {
#define TESSALINE_LIST_OPERATION(name) name,
    TESSALINE_FLOATING_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
};

inline constexpr std::size_t floating_operation_count = 32;

namespace BackendRegistration {

/// The id of each FloatingOperation, by index.
inline constexpr std::array<std::reference_wrapper<const OperationId>, floating_operation_count>
    floating_operations{{
#define TESSALINE_LIST_OPERATION(name) BuiltinOperations::name,
        TESSALINE_FLOATING_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
    }};

} // namespace BackendRegistration

} // namespace Tessaline
