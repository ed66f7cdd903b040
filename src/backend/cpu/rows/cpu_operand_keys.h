// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operand keys of the CPU rows: all of them accept dense host storage.

#include "tessaline/catalogue/backend_key.h"

namespace Tessaline {

/// The key of a dense host operand. Matrices are row-major, factors and eigenvectors column-major.
/// `complex` says how a complex operand lies; scalars and real operands have no complex layout.
constexpr BackendOperandKey dense_host_key(OperandKind kind, const DataTypeDescriptor& type,
                                           DataComplexLayout complex) {
    BackendOperandKey key;
    key.kind = kind;
    key.storage = type.storage_type();
    key.compute = type.compute_type();
    if (kind == OperandKind::Scalar) {
        return key;
    }
    key.complex = type.is_complex() ? complex : DataComplexLayout::none;
    if (kind == OperandKind::Vector) {
        key.format = OperandFormat::of(DataVectorFormat::dense);
        return key;
    }
    key.format = OperandFormat::of(DataMatrixFormat::dense);
    key.layout =
        kind == OperandKind::Matrix ? DataMatrixLayout::row_major : DataMatrixLayout::column_major;
    return key;
}

} // namespace Tessaline
