// SPDX-License-Identifier: Apache-2.0
#pragma once

// The ids of the operations that every default catalogue holds, in the order of their registration.
// Catalogue, backends and bindings share these constants; an incompatible change of an operation is
// a new major, and so another constant.

#include "tessaline/catalogue/operation_id.h"

namespace Tessaline {

// Inline rather than extern: a constant of another file may be built from them at start-up.
namespace TESSALINE_API BuiltinOperations {

inline const OperationId sqrt{"tessaline.sqrt", 1};
inline const OperationId conjugate{"tessaline.conjugate", 1};
inline const OperationId multiply{"tessaline.multiply", 1};
inline const OperationId add{"tessaline.add", 1};
inline const OperationId subtract{"tessaline.subtract", 1};
inline const OperationId sum{"tessaline.sum", 1};
inline const OperationId norm{"tessaline.norm", 1};
inline const OperationId scale{"tessaline.scale", 1};
inline const OperationId divide{"tessaline.divide", 1};
inline const OperationId transpose{"tessaline.transpose", 1};
inline const OperationId adjoint{"tessaline.adjoint", 1};
inline const OperationId matmul{"tessaline.matmul", 1};
inline const OperationId matvec{"tessaline.matvec", 1};
inline const OperationId kron{"tessaline.kron", 1};
inline const OperationId inner{"tessaline.inner", 1};
inline const OperationId outer{"tessaline.outer", 1};
inline const OperationId lu_factor{"tessaline.lu_factor", 1};
inline const OperationId solve{"tessaline.solve", 1};
inline const OperationId logdet{"tessaline.logdet", 1};
inline const OperationId trace{"tessaline.trace", 1};
inline const OperationId eig{"tessaline.eig", 1};
inline const OperationId principal_eigenvector{"tessaline.principal_eigenvector", 1};
inline const OperationId partial_trace_left{"tessaline.partial_trace_left", 1};
inline const OperationId partial_trace_right{"tessaline.partial_trace_right", 1};
inline const OperationId matrix_power{"tessaline.matrix_power", 1};
inline const OperationId is_unitary{"tessaline.is_unitary", 1};
inline const OperationId eye{"tessaline.eye", 1};
inline const OperationId vector_equal{"tessaline.vector_equal", 1};
inline const OperationId eigh{"tessaline.eigh", 1};
inline const OperationId eigvalsh{"tessaline.eigvalsh", 1};
inline const OperationId slogdet{"tessaline.slogdet", 1};
inline const OperationId logdet_positive_definite{"tessaline.logdet_positive_definite", 1};

} // namespace BuiltinOperations

} // namespace Tessaline
