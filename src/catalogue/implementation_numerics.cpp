// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/implementation_numerics.h"

#include "catalogue/enumeration_words.h"
#include "catalogue/numerics_rules.h"
#include "catalogue/require.h"

#include <cmath>

namespace Tessaline {

namespace {

constexpr std::array stability_kinds{"exact", "backward_stable", "conditionally_stable",
                                     "not_guaranteed", "unknown"};

constexpr std::array precision_modes{"exact", "native", "widened", "mixed", "unknown"};

constexpr std::array reduction_orders{"not_applicable", "sequential",      "pairwise",
                                      "parallel_tree",  "library_defined", "unknown"};

RankTable ranks_of(const BackendRegistryKey& key) {
    RankTable table;
    const auto add = [&table](OperandRole role, const BackendOperandKey& operand) {
        table[role] = {operand.kind, operand_kind_rank(operand.kind)};
    };
    for (std::size_t i = 0; i < key.inputs().size(); ++i) {
        add(input_role(i), key.inputs()[i]);
    }
    for (std::size_t j = 0; j < key.outputs().size(); ++j) {
        add(output_role(j), key.outputs()[j]);
    }
    return table;
}

void validate_parameter(const AlgorithmParameter& parameter) {
    require(is_lower_case_identifier(parameter.name) && !parameter.description.empty(),
            "ImplementationNumerics - algorithm parameter is malformed");
    if (const auto* number = std::get_if<double>(&parameter.value)) {
        require(std::isfinite(*number),
                "ImplementationNumerics - numeric parameters must be finite");
    } else if (const auto* text = std::get_if<std::string>(&parameter.value)) {
        require(!text->empty(), "ImplementationNumerics - string parameters must not be empty");
    }
}

void canonicalise_parameters(std::vector<AlgorithmParameter>& parameters) {
    std::ranges::for_each(parameters, validate_parameter);
    std::ranges::sort(parameters, {}, &AlgorithmParameter::name);
    require(std::ranges::adjacent_find(parameters, {}, &AlgorithmParameter::name) ==
                parameters.end(),
            "ImplementationNumerics - algorithm parameter names must be unique");
}

} // namespace

const char* stability_kind_name(StabilityKind stability) {
    return enumeration_word(stability_kinds, stability);
}

const char* precision_mode_name(PrecisionMode mode) {
    return enumeration_word(precision_modes, mode);
}

const char* reduction_order_name(ReductionOrder order) {
    return enumeration_word(reduction_orders, order);
}

ImplementationNumerics canonicalise_implementation_numerics(ImplementationNumerics numerics,
                                                            const BackendRegistryKey& key) {
    require(is_lower_case_identifier(numerics.algorithm),
            "ImplementationNumerics - algorithm must be a lower-case identifier");
    require(is_listed(stability_kinds, numerics.stability),
            "ImplementationNumerics - stability is invalid");
    PrecisionDescription& precision = numerics.precision;
    require(is_listed(precision_modes, precision.mode),
            "ImplementationNumerics - precision mode is invalid");
    require(is_listed(reduction_orders, precision.reduction_order),
            "ImplementationNumerics - reduction order is invalid");
    ComplexityDescription& complexity = numerics.complexity;
    canonicalise_notes(numerics.notes, "ImplementationNumerics");
    canonicalise_notes(complexity.notes, "ComplexityDescription");
    canonicalise_notes(precision.notes, "PrecisionDescription");
    require(!precision.accumulation_dtype || !precision.accumulation_dtype->empty(),
            "PrecisionDescription - accumulation dtype must not be empty");
    const RankTable table = ranks_of(key);
    validate_expression(complexity.work, table, cost_expression_rules);
    validate_expression(complexity.auxiliary_space, table, cost_expression_rules);
    canonicalise_parameters(numerics.parameters);
    return numerics;
}

} // namespace Tessaline
