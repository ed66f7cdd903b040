// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which element type the result of an operation has, asked without running it.

#include "native_context.h"

#include <optional>
#include <string_view>
#include <vector>

namespace Tessaline::Python {

/// The words of the storage and compute type of a dense result. Each input is a tuple of storage
/// word, compute word and shape, of which the rank alone matters. `output_dtype` narrows the answer
/// where several are possible. Raises std::invalid_argument for a malformed request, DispatchError
/// when no type or more than one is possible.
nanobind::tuple result_policy(const NativeContext& context, std::string_view operation,
                              const nanobind::list& inputs, const nanobind::tuple& output_shape,
                              std::string_view output_dtype);

/// The key of an array: row major, and complex elements interleaved.
BackendOperandKey array_key(ScalarType storage, ScalarType compute, OperandKind kind);

/// The storage and compute type of a dense result of the implementations on the CPU. `storage`
/// narrows the answer where several are possible. Raises DispatchError when no type or more than
/// one is possible.
DataTypeDescriptor inferred_result(const NativeContext& context, const OperationId& operation,
                                   const std::vector<BackendOperandKey>& inputs, OperandKind kind,
                                   std::optional<ScalarType> storage);

} // namespace Tessaline::Python
