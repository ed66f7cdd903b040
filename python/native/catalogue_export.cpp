// SPDX-License-Identifier: Apache-2.0
#include "catalogue_export.h"

#include "text.h"

#include <array>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

std::uint32_t number_of(OperandRole role) {
    return static_cast<std::uint32_t>(role);
}

const char* backend_word(BackendKind backend) {
    static constexpr std::array words{"cpu_scalar", "cpu_simd", "cuda"};
    const auto index = static_cast<std::size_t>(backend);
    return index < words.size() ? words[index] : "unknown";
}

/// The list of what `convert` makes of each element.
template <typename Range, typename Convert>
nb::list list_of(const Range& range, const Convert& convert) {
    nb::list list;
    for (const auto& element : range) {
        list.append(convert(element));
    }
    return list;
}

nb::list texts(const std::vector<std::string>& notes) {
    return list_of(notes, [](const std::string& note) { return decoded(note); });
}

template <typename Value>
nb::object object_of(const Value& value) {
    if constexpr (std::is_convertible_v<Value, std::string_view>) {
        return decoded(value);
    } else {
        return nb::cast(value);
    }
}

template <typename Value>
nb::object or_none(const std::optional<Value>& value) {
    return value ? object_of(*value) : nb::none();
}

nb::dict export_expression(const SymbolicExpression& expression) {
    nb::dict node;
    switch (expression.op()) {
    case SymbolicOperator::dimension:
        node["kind"] = "operand_dimension";
        break;
    case SymbolicOperator::value:
        node["kind"] = "operand_value";
        break;
    default:
        node["kind"] = symbolic_operator_name(expression.op());
    }
    if (expression.integer()) {
        node["integer"] = *expression.integer();
    }
    if (expression.name()) {
        node["name"] = decoded(*expression.name());
    }
    if (expression.role()) {
        node["role"] = number_of(*expression.role());
    }
    if (expression.axis()) {
        node["axis"] = *expression.axis();
    }
    if (!expression.operands().empty()) {
        node["operator"] = symbolic_operator_name(expression.op());
        node["operands"] = list_of(expression.operands(), export_expression);
    }
    return node;
}

/// What every operand entry starts with. A kind that the contract leaves open is None.
nb::dict export_place(OperandRole role, OperandAccess access, std::optional<OperandKind> kind) {
    nb::dict entry;
    entry["role"] = number_of(role);
    entry["write"] = access != OperandAccess::read;
    entry["access"] = operand_access_name(access);
    entry["kind"] = kind ? nb::cast(operand_kind_name(*kind)) : nb::none();
    return entry;
}

nb::dict export_operand(const OperationOperandSpec& operand) {
    nb::dict entry;
    entry["id"] = decoded(operand_role_name(operand.role));
    entry.update(export_place(operand.role, operand.access, operand.kind));
    return entry;
}

nb::dict export_shape(const OperandShape& shape) {
    nb::dict entry;
    entry["role"] = number_of(shape.role);
    entry["rank"] = shape.rank;
    return entry;
}

nb::dict export_constraint(const ShapeConstraint& constraint) {
    nb::dict entry;
    entry["left"] = export_expression(constraint.left);
    entry["relation"] = shape_relation_name(constraint.relation);
    entry["right"] = export_expression(constraint.right);
    return entry;
}

nb::dict export_requirement(const NumericalRequirement& requirement) {
    nb::dict entry;
    entry["kind"] = requirement_kind_name(requirement.kind);
    entry["roles"] =
        list_of(requirement.roles, [](OperandRole role) { return nb::cast(number_of(role)); });
    entry["purpose"] = requirement_purpose_name(requirement.purpose);
    entry["enforcement"] = requirement_enforcement_name(requirement.enforcement);
    entry["note"] = decoded(requirement.note);
    return entry;
}

nb::dict export_complexity(const ComplexityDescription& complexity) {
    nb::dict entry;
    entry["work"] = export_expression(complexity.work);
    entry["auxiliary_space"] = export_expression(complexity.auxiliary_space);
    entry["notes"] = texts(complexity.notes);
    return entry;
}

nb::dict export_precision(const PrecisionDescription& precision) {
    nb::dict entry;
    entry["mode"] = precision_mode_name(precision.mode);
    entry["accumulation_dtype"] = or_none(precision.accumulation_dtype);
    entry["reduction_order"] = reduction_order_name(precision.reduction_order);
    entry["notes"] = texts(precision.notes);
    return entry;
}

nb::dict export_parameter(const AlgorithmParameter& parameter) {
    nb::dict entry;
    entry["name"] = decoded(parameter.name);
    entry["value"] =
        std::visit([](const auto& value) { return object_of(value); }, parameter.value);
    entry["description"] = decoded(parameter.description);
    return entry;
}

nb::dict export_numerics(const ImplementationNumerics& numerics) {
    nb::dict entry;
    entry["algorithm"] = decoded(numerics.algorithm);
    entry["stability"] = stability_kind_name(numerics.stability);
    entry["complexity"] = export_complexity(numerics.complexity);
    entry["precision"] = export_precision(numerics.precision);
    entry["parameters"] = list_of(numerics.parameters, export_parameter);
    entry["notes"] = texts(numerics.notes);
    return entry;
}

/// An operation states shapes and requirements, but no algorithm: that is an implementation's.
nb::dict export_operation_numerics(const std::vector<std::string>& notes) {
    nb::dict entry;
    entry["algorithm"] = nb::none();
    entry["stability"] = nb::none();
    entry["complexity"] = nb::none();
    entry["precision"] = nb::none();
    entry["parameters"] = nb::list();
    entry["notes"] = texts(notes);
    return entry;
}

nb::dict export_implementation_operand(const OperationImplementationOperand& operand) {
    const BackendOperandKey& key = operand.key;
    nb::dict entry = export_place(operand.role, operand.access, key.kind);
    entry["dtype"] = scalar_metadata(key.storage).name;
    entry["compute_dtype"] = scalar_metadata(key.compute).name;
    entry["location"] = data_location_name(key.location);
    if (key.format.tag == OperandFormat::Tag::vector) {
        entry["storage_format"] =
            data_vector_format_name(static_cast<DataVectorFormat>(key.format.value));
    } else if (key.format.tag == OperandFormat::Tag::matrix) {
        entry["storage_format"] =
            data_matrix_format_name(static_cast<DataMatrixFormat>(key.format.value));
    }
    entry["complex_layout"] = data_complex_layout_name(key.complex);
    if (key.layout) {
        entry["matrix_layout"] = data_matrix_layout_name(*key.layout);
    }
    return entry;
}

nb::dict export_implementation(const OperationImplementationDescription& implementation) {
    nb::dict entry;
    entry["backend"] = backend_word(implementation.backend);
    entry["operands"] = list_of(implementation.operands, export_implementation_operand);
    entry["provenance"] = decoded(implementation.provenance.text());
    entry["numerics"] = implementation.numerics
                            ? nb::object(export_numerics(*implementation.numerics))
                            : nb::none();
    return entry;
}

} // namespace

nb::dict export_description(const OperationDescription& description) {
    const OperationNumerics numerics = description.numerics.value_or(OperationNumerics{});
    nb::dict result;
    result["id"] = decoded(description.id.canonical());
    result["operands"] = list_of(description.operands, export_operand);
    result["provenance"] = decoded(description.provenance.text());
    result["shapes"] = list_of(numerics.shapes, export_shape);
    result["constraints"] = list_of(numerics.constraints, export_constraint);
    result["requirements"] = list_of(numerics.requirements, export_requirement);
    result["notes"] = texts(numerics.notes);
    result["numerics"] = export_operation_numerics(numerics.notes);
    result["implementations"] = list_of(description.implementations, export_implementation);
    return result;
}

} // namespace Tessaline::Python
