// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numerics of one registered implementation: algorithm, stability, cost and precision.
// Published information that no control flow reads.

#include "tessaline/catalogue/backend_key.h"
#include "tessaline/catalogue/symbolic_expression.h"

namespace Tessaline {

enum class StabilityKind : std::int32_t {
    exact = 0,
    backward_stable = 1,
    conditionally_stable = 2,
    not_guaranteed = 3,
    unknown = 4,
};

/// The precision of intermediate results, against that of the operands.
enum class PrecisionMode : std::int32_t {
    exact = 0,
    native = 1,
    widened = 2,
    mixed = 3,
    unknown = 4,
};

/// The order in which an implementation accumulates.
enum class ReductionOrder : std::int32_t {
    not_applicable = 0,
    sequential = 1,
    pairwise = 2,
    parallel_tree = 3,
    library_defined = 4,
    unknown = 5,
};

/// Printed names: the enumerator's, and "unknown" for any other value.
TESSALINE_API const char* stability_kind_name(StabilityKind stability);
TESSALINE_API const char* precision_mode_name(PrecisionMode mode);
TESSALINE_API const char* reduction_order_name(ReductionOrder order);

/// Cost in the sizes of the operands; `unknown` is a valid answer.
struct ComplexityDescription {
    SymbolicExpression work;
    SymbolicExpression auxiliary_space;
    std::vector<std::string> notes;

    bool operator==(const ComplexityDescription&) const = default;
};

struct PrecisionDescription {
    PrecisionMode mode = PrecisionMode::unknown;
    std::optional<std::string> accumulation_dtype;
    ReductionOrder reduction_order = ReductionOrder::unknown;
    std::vector<std::string> notes;

    bool operator==(const PrecisionDescription&) const = default;
};

/// A constant of the algorithm, such as a block size or an iteration limit. It reports what the
/// code does; no kernel reads it.
struct AlgorithmParameter {
    std::string name;
    std::variant<std::int64_t, double, std::string> value;
    std::string description;

    bool operator==(const AlgorithmParameter&) const = default;
};

struct ImplementationNumerics {
    std::string algorithm; ///< a lower-case identifier, such as "cpu.partial_pivoting_lu"
    StabilityKind stability = StabilityKind::unknown;
    ComplexityDescription complexity;
    PrecisionDescription precision;
    std::vector<AlgorithmParameter> parameters;
    std::vector<std::string> notes;

    bool operator==(const ImplementationNumerics&) const = default;
};

/// Checks a record against the operands of its implementation's key and sorts notes and parameters,
/// so that the result does not depend on the order in which an author wrote them.
///
/// Raises std::invalid_argument at the first fault: an algorithm or parameter name that is no
/// lower-case identifier, a value outside an enumeration, an empty note, description, accumulation
/// type or string value, a number that is not finite, two parameters of one name, and a cost over
/// an unregistered role, a missing axis or the value of something else than a scalar.
TESSALINE_API ImplementationNumerics canonicalise_implementation_numerics(
    ImplementationNumerics numerics, const BackendRegistryKey& key);

} // namespace Tessaline
