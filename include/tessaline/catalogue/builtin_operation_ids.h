// SPDX-License-Identifier: Apache-2.0
#pragma once

// The ids of the operations that every default catalogue holds, in the order of their registration.
// Catalogue, backends and bindings share these constants; an incompatible change of an operation is
// a new major, and so another constant.

#include "tessaline/catalogue/operation_id.h"

/// Calls OPERATION with the last segment of each name and with the operation's place among the
/// kernels of a backend. Both orders are fixed: this one gives the handles, that one the order of a
/// backend's rows.
#define TESSALINE_BUILTIN_OPERATIONS(OPERATION)                                                    \
    OPERATION(sqrt, 0)                                                                             \
    OPERATION(conjugate, 1)                                                                        \
    OPERATION(multiply, 2)                                                                         \
    OPERATION(add, 3)                                                                              \
    OPERATION(subtract, 4)                                                                         \
    OPERATION(sum, 5)                                                                              \
    OPERATION(norm, 19)                                                                            \
    OPERATION(scale, 6)                                                                            \
    OPERATION(divide, 7)                                                                           \
    OPERATION(transpose, 8)                                                                        \
    OPERATION(adjoint, 11)                                                                         \
    OPERATION(matmul, 9)                                                                           \
    OPERATION(matvec, 10)                                                                          \
    OPERATION(kron, 12)                                                                            \
    OPERATION(inner, 13)                                                                           \
    OPERATION(outer, 14)                                                                           \
    OPERATION(lu_factor, 15)                                                                       \
    OPERATION(solve, 16)                                                                           \
    OPERATION(logdet, 17)                                                                          \
    OPERATION(trace, 18)                                                                           \
    OPERATION(eig, 20)                                                                             \
    OPERATION(principal_eigenvector, 21)                                                           \
    OPERATION(partial_trace_left, 22)                                                              \
    OPERATION(partial_trace_right, 23)                                                             \
    OPERATION(matrix_power, 24)                                                                    \
    OPERATION(is_unitary, 25)                                                                      \
    OPERATION(eye, 26)                                                                             \
    OPERATION(vector_equal, 27)                                                                    \
    OPERATION(eigh, 28)                                                                            \
    OPERATION(eigvalsh, 29)                                                                        \
    OPERATION(slogdet, 30)                                                                         \
    OPERATION(logdet_positive_definite, 31)

namespace Tessaline {

// Constructed before every static object of ordinary priority, whichever file that is in, so that a
// program may hold a context, or ids of its own made of these, in such an object.
namespace TESSALINE_API BuiltinOperations {

#define TESSALINE_DECLARE_OPERATION_ID(name, index) extern const OperationId name;
TESSALINE_BUILTIN_OPERATIONS(TESSALINE_DECLARE_OPERATION_ID)
#undef TESSALINE_DECLARE_OPERATION_ID

} // namespace BuiltinOperations

} // namespace Tessaline
