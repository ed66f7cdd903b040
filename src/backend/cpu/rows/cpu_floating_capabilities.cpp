// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/cpu/floating/floating_dispatcher.h"
#include "backend/cpu/rows/cpu_floating_numerics.h"
#include "backend/cpu/rows/cpu_operand_keys.h"

#include <initializer_list>

namespace Tessaline {

namespace {

using Operation = FloatingOperation;

/// The type of an operand, in terms of the row's policy.
enum class OperandType {
    stored,  ///< the policy itself
    compute, ///< stored as it is computed
    real,    ///< a component of the compute type
    complex, ///< the complex type of such components
    integer, ///< int32, whatever the policy
};

struct FloatingOperand {
    OperandKind kind;
    OperandType type = OperandType::stored;
};

/// Operands that an operation both reads and writes are outputs.
struct FloatingRow {
    Operation operation;
    std::initializer_list<FloatingOperand> inputs;
    std::initializer_list<FloatingOperand> outputs;
};

constexpr FloatingOperand scalar{OperandKind::Scalar};
constexpr FloatingOperand vector{OperandKind::Vector};
constexpr FloatingOperand matrix{OperandKind::Matrix};
constexpr FloatingOperand factors{OperandKind::LuDecomp};
constexpr FloatingOperand integer_scalar{OperandKind::Scalar, OperandType::integer};
constexpr FloatingOperand compute_scalar{OperandKind::Scalar, OperandType::compute};
constexpr FloatingOperand real_scalar{OperandKind::Scalar, OperandType::real};
constexpr FloatingOperand complex_scalar{OperandKind::Scalar, OperandType::complex};
constexpr FloatingOperand real_vector{OperandKind::Vector, OperandType::real};
constexpr FloatingOperand complex_vector{OperandKind::Vector, OperandType::complex};
constexpr FloatingOperand compute_matrix{OperandKind::Matrix, OperandType::compute};
constexpr FloatingOperand eigen_set{OperandKind::EigenVals, OperandType::complex};

constexpr FloatingRow table[] = {
    {Operation::sqrt, {vector}, {vector}},
    {Operation::conjugate, {}, {vector}},
    {Operation::multiply, {vector, vector}, {vector}},
    {Operation::add, {vector, vector}, {vector}},
    {Operation::subtract, {vector, vector}, {vector}},
    {Operation::sum, {vector}, {scalar}},
    {Operation::scale, {vector, scalar}, {vector}},
    {Operation::divide, {vector, scalar}, {vector}},
    {Operation::transpose, {matrix}, {matrix}},
    {Operation::matmul, {matrix, matrix}, {matrix}},
    {Operation::matvec, {matrix, vector}, {vector}},
    {Operation::adjoint, {matrix}, {matrix}},
    {Operation::kron, {matrix, matrix}, {matrix}},
    {Operation::inner, {vector, vector}, {scalar}},
    {Operation::outer, {vector, vector}, {matrix}},
    {Operation::lu_factor, {}, {factors}},
    {Operation::solve, {factors}, {vector}},
    {Operation::logdet, {factors}, {complex_scalar}},
    {Operation::trace, {matrix}, {scalar}},
    {Operation::norm, {vector}, {scalar}},
    {Operation::eig, {matrix}, {eigen_set}},
    {Operation::principal_eigenvector, {matrix}, {complex_vector}},
    {Operation::partial_trace_left, {matrix}, {matrix}},
    {Operation::partial_trace_right, {matrix}, {matrix}},
    {Operation::matrix_power, {matrix, integer_scalar}, {matrix}},
    {Operation::is_unitary, {matrix}, {integer_scalar}},
    {Operation::eye, {}, {matrix}},
    {Operation::vector_equal, {vector, vector}, {integer_scalar}},
    {Operation::eigh, {matrix}, {real_vector, compute_matrix}},
    {Operation::eigvalsh, {matrix}, {real_vector}},
    {Operation::slogdet, {matrix}, {compute_scalar, real_scalar}},
    {Operation::logdet_positive_definite, {matrix}, {real_scalar}},
};

consteval bool rows_are_in_order() {
    std::size_t index = 0;
    for (const FloatingRow& row : table) {
        if (static_cast<std::size_t>(row.operation) != index++) {
            return false;
        }
    }
    return index == floating_operation_count;
}
static_assert(rows_are_in_order());

template <typename Policy>
DataTypeDescriptor type_under(OperandType type) {
    using Compute = typename Policy::Compute;
    using Real = Component<Compute>;
    switch (type) {
    case OperandType::compute:
        return NumericPolicy<Compute, Compute>::type();
    case OperandType::real:
        return NumericPolicy<Real, Real>::type();
    case OperandType::complex:
        return NumericPolicy<std::complex<Real>, std::complex<Real>>::type();
    case OperandType::integer:
        return NumericPolicy<int, int>::type();
    case OperandType::stored:
        break;
    }
    return Policy::type();
}

template <typename Policy>
std::vector<BackendOperandKey> keys_under(std::initializer_list<FloatingOperand> operands) {
    std::vector<BackendOperandKey> keys;
    keys.reserve(operands.size());
    for (const FloatingOperand& operand : operands) {
        keys.push_back(dense_host_key(operand.kind, type_under<Policy>(operand.type),
                                      DataComplexLayout::interleaved));
    }
    return keys;
}

template <typename Policy>
BackendRegistration::BuiltinCapability capability(const FloatingRow& row) {
    using Stored = typename Policy::Stored;
    const auto index = static_cast<std::size_t>(row.operation);
    BackendRegistryKey key(BackendKind::cpu_simd, BackendRegistration::floating_operations[index],
                           keys_under<Policy>(row.inputs), keys_under<Policy>(row.outputs));
    auto numerics = CpuNumerics::floating<Stored>(row.operation, key);
    return {std::move(key), BackendRegistration::backend_entry([operation = row.operation] {
                return floating_kernel_step<Stored>(operation);
            }),
            std::move(numerics)};
}

} // namespace

std::vector<BackendRegistration::BuiltinCapability>
cpu_floating_capabilities(const DataTypeDescriptor& policy) {
    std::vector<BackendRegistration::BuiltinCapability> rows;
    visit_numeric_policy(policy, [&rows]<typename Policy>(Policy) {
        if constexpr (Policy::is_integer) {
            NumericPolicyDetail::fail_not_compiled(Policy::storage_type, Policy::compute_type);
        } else {
            rows.reserve(std::size(table));
            for (const FloatingRow& row : table) {
                rows.push_back(capability<Policy>(row));
            }
        }
    });
    return rows;
}

} // namespace Tessaline
