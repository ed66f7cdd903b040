// SPDX-License-Identifier: Apache-2.0
#pragma once

// Moves complex operands between layouts: interleaved and split, row and column major.

#include "tessaline/storage/entities.h"

namespace Tessaline {

/// Copies every element of `source` into `target`, whatever the layouts of both; no element is
/// rounded. T is the component of the elements. Both raise std::invalid_argument when shapes or
/// numerical policies differ, and what require_buffer_data does.
template <typename T>
void copy_complex_layout(const VectorEntity& source, VectorEntity& target);
template <typename T>
void copy_complex_layout(const MatrixEntity& source, MatrixEntity& target);

} // namespace Tessaline
