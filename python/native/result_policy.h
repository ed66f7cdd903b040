// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which element type the result of an operation has, asked without running it.

#include "native_context.h"

#include <string_view>

namespace Tessaline::Python {

/// The words of the storage and compute type of a dense result. Each input is a tuple of storage
/// word, compute word and shape, of which the rank alone matters. `output_dtype` narrows the answer
/// where several are possible. Raises std::invalid_argument for a malformed request, DispatchError
/// when no type or more than one is possible.
nanobind::tuple result_policy(const NativeContext& context, std::string_view operation,
                              const nanobind::list& inputs, const nanobind::tuple& output_shape,
                              std::string_view output_dtype);

} // namespace Tessaline::Python
