// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which element types of arrays the runtime takes, by the words and the DLPack triples of their
// dtypes.

#include "tessaline/catalogue/data_type_descriptor.h"

#include <nanobind/ndarray.h>

#include <optional>
#include <string_view>

namespace Tessaline::Python {

/// The numeric policy of an array; empty for bool, which only scalars may have.
using ArrayPolicy = std::optional<DataTypeDescriptor>;

/// The policy of an array's dtype. `compute` is the word of its compute type, or empty for the
/// default. Raises std::invalid_argument for a dtype or pair that is not compiled.
ArrayPolicy select_array_policy(nanobind::dlpack::dtype dtype, std::string_view compute);

/// The scalar type that a dtype word names. Raises std::invalid_argument for an unknown word.
ScalarType scalar_type_named(std::string_view word);

/// The DLPack triple of a compiled element type.
nanobind::dlpack::dtype dlpack_type(ScalarType type);

} // namespace Tessaline::Python
