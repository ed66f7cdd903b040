// SPDX-License-Identifier: Apache-2.0
#pragma once

// Requests written as text: "m2x3 v3 > v2" is a 2 by 3 matrix and a vector of 3 as inputs and a
// vector of 2 as output. s is a scalar, l4 an LU factorisation and e4 an eigenvalue set of order 4.

#include "support/operands.h"

#include <sstream>
#include <vector>

namespace Tessaline::Testing {

inline OperandDescriptor operand_of(OperandRole role, OperandKind kind, std::uint64_t first,
                                    std::uint64_t second) {
    const auto host = DataTopologyDescriptor::pageable_host(-1);
    const auto type = DataTypeDescriptor::real_double();
    switch (kind) {
    case OperandKind::Vector:
        return vector_operand(role, first, host, type);
    case OperandKind::Matrix:
        return {role, MatrixDescriptor(first, second, host, type, DataMatrixFormat::dense,
                                       DataMatrixLayout::row_major, DataComplexLayout::none)};
    case OperandKind::LuDecomp:
        return {role, LuDecompDescriptor(first, host, DataTypeDescriptor::real_int(), type,
                                         DataMatrixFormat::dense, DataMatrixLayout::column_major,
                                         DataComplexLayout::none)};
    case OperandKind::EigenVals:
        return {role, EigenValsDescriptor(first, host, type, DataVectorFormat::dense,
                                          DataMatrixLayout::column_major, DataComplexLayout::none)};
    case OperandKind::Scalar:
        break;
    }
    return scalar_operand(role, host, type);
}

inline std::vector<OperandDescriptor> operands_of(const std::string& text) {
    std::vector<OperandDescriptor> operands;
    std::istringstream words(text);
    std::uint32_t role = 0;
    for (std::string word; words >> word;) {
        if (word == ">") {
            role = operand_role_limit;
            continue;
        }
        const auto kind = static_cast<OperandKind>(std::string("svmle").find(word.front()));
        const std::size_t cross = word.find('x');
        const auto number = [&word](std::size_t begin) {
            return begin < word.size() ? std::stoull(word.substr(begin)) : 0;
        };
        operands.push_back(operand_of(OperandRole{role++}, kind, number(1),
                                      cross == std::string::npos ? 0 : number(cross + 1)));
    }
    return operands;
}

} // namespace Tessaline::Testing
