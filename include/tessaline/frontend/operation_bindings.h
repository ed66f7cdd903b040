// SPDX-License-Identifier: Apache-2.0
#pragma once

// The caller's way to say which operand stands in which role.

#include "tessaline/execution/backend_execution_bindings.h"

#include <type_traits>

namespace Tessaline {

class EigenValues;
class LuFactorisation;
class Matrix;
class Scalar;
class Vector;

/// A plain value that refers to operands and owns none: they must outlive the bindings and every
/// run that uses them. An operand bound through a const handle may stand in read roles only.
class TESSALINE_API OperationBindings {
  public:
    /// Each raises std::invalid_argument for a role that is bound already, and returns the
    /// bindings.
    OperationBindings& bind(OperandRole role, Scalar& operand);
    OperationBindings& bind(OperandRole role, const Scalar& operand);
    OperationBindings& bind(OperandRole role, Vector& operand);
    OperationBindings& bind(OperandRole role, const Vector& operand);
    OperationBindings& bind(OperandRole role, Matrix& operand);
    OperationBindings& bind(OperandRole role, const Matrix& operand);
    OperationBindings& bind(OperandRole role, LuFactorisation& operand);
    OperationBindings& bind(OperandRole role, const LuFactorisation& operand);
    OperationBindings& bind(OperandRole role, EigenValues& operand);
    OperationBindings& bind(OperandRole role, const EigenValues& operand);
    /// A temporary would be gone before the run.
    template <typename Handle>
    requires(!std::is_lvalue_reference_v<Handle>)
        OperationBindings& bind(OperandRole role, Handle&& operand) = delete;
    OperationBindings& insert(OperandRole role, OperandBinding binding);

    bool contains(OperandRole role) const { return operands_.contains(role); }
    std::size_t size() const { return operands_.size(); }

    /// The bindings of one run, with roles in ascending order, whatever the order of binding.
    BackendExecutionBindings make_backend_bindings() const;

  private:
    RoleTable<OperandBinding> operands_;
};

} // namespace Tessaline
