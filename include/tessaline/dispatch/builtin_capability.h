// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a backend lists for each numeric policy: rows of key, entry and numerics, and the vocabulary
// in which their numerics are written.

#include "tessaline/dispatch/backend_registry.h"

namespace Tessaline::BackendRegistration {

/// One row of a backend's list.
struct BuiltinCapability {
    BackendRegistryKey key;
    BackendEntry entry;
    std::optional<ImplementationNumerics> numerics;
};

/// An entry whose process holds the one step that `make_step` returns. The function must be safe to
/// call from several threads.
template <typename StepFactory>
BackendEntry backend_entry(StepFactory make_step) {
    return BackendEntry([make_step = std::move(make_step)] {
        BackendProcess process;
        process.push_back(make_step());
        return process;
    });
}

/// Each of these is one node; an operand count that its operator does not take raises
/// std::invalid_argument.
TESSALINE_API SymbolicExpression sum(std::vector<SymbolicExpression> terms);
TESSALINE_API SymbolicExpression product(std::vector<SymbolicExpression> factors);
TESSALINE_API SymbolicExpression power(SymbolicExpression base, long exponent);
TESSALINE_API SymbolicExpression minimum(SymbolicExpression a, SymbolicExpression b);
TESSALINE_API SymbolicExpression maximum(SymbolicExpression a, SymbolicExpression b);
/// To base two.
TESSALINE_API SymbolicExpression logarithm(SymbolicExpression x);

/// A record of these parts, not yet canonical.
TESSALINE_API ImplementationNumerics
make_numerics(std::string algorithm, StabilityKind stability, SymbolicExpression work,
              SymbolicExpression auxiliary_space, PrecisionMode mode,
              ReductionOrder reduction_order, std::optional<std::string> accumulation_dtype,
              std::vector<AlgorithmParameter> parameters, std::vector<std::string> complexity_notes,
              std::vector<std::string> precision_notes, std::vector<std::string> notes);

/// In what the records of backends and policies differ.
struct DenseNumericsProfile {
    std::string algorithm_prefix; ///< opens the name of every algorithm without a rule of its own
    std::string reduction_prefix; ///< opens the names of `sum` and `norm`
    std::string gemm_algorithm;   ///< the whole name of `matmul`
    std::string gemv_algorithm;   ///< the whole name of `matvec`
    ScalarType accumulation_type; ///< of every operation but `norm`
    ScalarType norm_accumulation_type;
    PrecisionMode precision_mode;   ///< of the operations that round
    ReductionOrder reduction_order; ///< of the operations without an order of their own
    bool tree_reduction;            ///< reductions run as a tree and need workspace
    double absolute_tolerance;      ///< of comparisons
    double relative_tolerance;
};

/// The record of a dense built-in operation. Factorisations, solvers and eigenproblems are no part
/// of it: their records are their backends' own. Raises std::logic_error for any other operation
/// and std::invalid_argument for an unknown scalar type that the record names.
TESSALINE_API ImplementationNumerics builtin_dense_numerics(const BackendRegistryKey& key,
                                                            const DenseNumericsProfile& profile);

} // namespace Tessaline::BackendRegistration
