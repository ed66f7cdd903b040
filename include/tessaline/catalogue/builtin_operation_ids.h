// SPDX-License-Identifier: Apache-2.0
#pragma once

// The ids of the operations that every default catalogue holds, in the order of their registration.
// Catalogue, backends and bindings share these constants; an incompatible change of an operation is
// a new major, and so another constant.

#include "tessaline/catalogue/operation_id.h"

/// Calls OPERATION with the last segment of each name.
#define TESSALINE_BUILTIN_OPERATIONS(OPERATION)                                                    \
    OPERATION(sqrt)                                                                                \
    OPERATION(conjugate)                                                                           \
    OPERATION(multiply)                                                                            \
    OPERATION(add)                                                                                 \
    OPERATION(subtract)                                                                            \
    OPERATION(sum)                                                                                 \
    OPERATION(norm)                                                                                \
    OPERATION(scale)                                                                               \
    OPERATION(divide)                                                                              \
    OPERATION(transpose)                                                                           \
    OPERATION(adjoint)                                                                             \
    OPERATION(matmul)                                                                              \
    OPERATION(matvec)                                                                              \
    OPERATION(kron)                                                                                \
    OPERATION(inner)                                                                               \
    OPERATION(outer)                                                                               \
    OPERATION(lu_factor)                                                                           \
    OPERATION(solve)                                                                               \
    OPERATION(logdet)                                                                              \
    OPERATION(trace)                                                                               \
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

// Constructed before every static object of ordinary priority, whichever file that is in, so that a
// program may hold a context, or ids of its own made of these, in such an object.
namespace TESSALINE_API BuiltinOperations {

#define TESSALINE_DECLARE_OPERATION_ID(name) extern const OperationId name;
TESSALINE_BUILTIN_OPERATIONS(TESSALINE_DECLARE_OPERATION_ID)
#undef TESSALINE_DECLARE_OPERATION_ID

} // namespace BuiltinOperations

} // namespace Tessaline
