// SPDX-License-Identifier: Apache-2.0
#pragma once

// The constant table from which the records of dense built-in operations are written: what every
// backend's record has in common, and where its profile enters.

#include "tessaline/dispatch/builtin_capability.h"

#include <initializer_list>
#include <span>

namespace Tessaline::BackendRegistration {

/// Under which profiles a part of a row holds. Profiles convert where their precision mode is
/// widened or mixed.
enum class When { always, tree_reduction, no_tree_reduction, converting };

/// The placeholders "{storage}" and "{accumulation}" stand for the stored type of the first operand
/// and the row's accumulation type.
struct DenseNote {
    const char* text;
    When when = When::always;
};

struct DenseCost {
    SymbolicExpression (*formula)(const BackendRegistryKey& key) = nullptr; ///< null is 0
    When when = When::always;                                               ///< else 0
};

struct DenseAccumulation {
    ScalarType DenseNumericsProfile::*type = nullptr; ///< null is none
    When when = When::always;                         ///< else none
};

struct DenseParameter {
    const char* name;
    double DenseNumericsProfile::*value;
    const char* description;
};

struct DenseNumericsRow {
    const OperationId* id;
    std::string DenseNumericsProfile::*prefix = &DenseNumericsProfile::algorithm_prefix;
    const char* base = ""; ///< follows the prefix in the name of the algorithm
    StabilityKind stability = StabilityKind::unknown;
    bool rounds = true; ///< else the precision mode is exact
    DenseCost work{};
    DenseCost auxiliary_space{};
    std::optional<ReductionOrder> order{}; ///< empty is the profile's
    DenseAccumulation accumulation{};
    std::initializer_list<DenseNote> complexity_notes{};
    std::initializer_list<DenseNote> precision_notes{};
    std::initializer_list<DenseNote> notes{};
    std::initializer_list<DenseParameter> parameters{};
};

std::span<const DenseNumericsRow> dense_numerics_table();

} // namespace Tessaline::BackendRegistration
