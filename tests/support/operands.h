// SPDX-License-Identifier: Apache-2.0
#pragma once

// Short ways to write down operands in tests.

#include "tessaline/catalogue/operand.h"

namespace Tessaline::Testing {

inline OperandDescriptor
vector_operand(OperandRole role, std::uint64_t size,
               DataTopologyDescriptor topology = DataTopologyDescriptor::pageable_host(-1),
               DataTypeDescriptor type = DataTypeDescriptor::real_float()) {
    return {role, VectorDescriptor(size, std::move(topology), type, DataVectorFormat::dense,
                                   type.is_complex() ? DataComplexLayout::interleaved
                                                     : DataComplexLayout::none)};
}

inline OperandDescriptor
scalar_operand(OperandRole role,
               DataTopologyDescriptor topology = DataTopologyDescriptor::pageable_host(-1),
               DataTypeDescriptor type = DataTypeDescriptor::real_float()) {
    return {role, ScalarDescriptor(std::move(topology), type)};
}

} // namespace Tessaline::Testing
