// SPDX-License-Identifier: Apache-2.0

// The whole catalogue as a text that a person can review: catalogue.txt beside this file says what
// is published about each operation and each of its rows, and a change of it shows in its
// difference. To renew it, run this test with TESSALINE_RENEW_GOLDEN=1.

#include "backend/cpu/rows/cpu_capabilities.h"
#include "support/key_text.h"
#include "support/numerics_text.h"
#include "tessaline/catalogue/builtin_operations.h"
#include "tessaline/frontend/tessaline_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <map>
#include <ranges>
#include <sstream>

namespace Tessaline {
namespace {

using BackendRegistration::BuiltinCapability;
using Texts = std::vector<std::string>;

/// The head of the reviewed file, which explains its marks.
std::string legend() {
    std::ifstream file(TESSALINE_GOLDEN_CATALOGUE);
    std::string text;
    for (std::string line; std::getline(file, line) && !line.starts_with("tessaline.");) {
        text += line + "\n";
    }
    text.pop_back(); // an empty line stands before each operation
    return text;
}

struct Row {
    std::string name;
    std::string policy; ///< storage/compute
    BackendRegistryKey key;
    ImplementationNumerics record; ///< in canonical form
};

void replace_all(std::string& text, const std::string& part, const std::string& replacement) {
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos;) {
        text.replace(at, part.size(), replacement);
        at += replacement.size();
    }
}

std::string short_name(OperandRole role) {
    const auto value = static_cast<std::uint32_t>(role);
    return is_output_role(role) ? "O" + std::to_string(value - operand_role_limit)
                                : "I" + std::to_string(value);
}

std::string text_of(const SymbolicExpression& expression) {
    std::string text = expression.canonical();
    for (const OperandRole role : {input_role(0), input_role(1), output_role(0), output_role(1)}) {
        const std::string number = std::to_string(static_cast<std::uint32_t>(role));
        for (const char* axis : {"0", "1"}) {
            replace_all(text, "dim(" + number + "," + axis + ")", short_name(role) + "." + axis);
        }
        replace_all(text, "value(" + number + ")", "value(" + short_name(role) + ")");
    }
    return text;
}

std::string text_of(std::int64_t value) {
    return std::to_string(value) + " (integer)";
}

/// The fewest digits that give the value back.
std::string text_of(double value) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.begin(), text.end(), value).ptr};
}

std::string text_of(const std::string& value) {
    return "'" + value + "'";
}

std::string text_of(const AlgorithmParameter& parameter) {
    return parameter.name + " = " +
           std::visit([](const auto& value) { return text_of(value); }, parameter.value) + ": " +
           parameter.description;
}

std::string text_of(const NumericalRequirement& requirement) {
    std::string roles;
    for (const OperandRole role : requirement.roles) {
        roles += " " + short_name(role);
    }
    return std::string(requirement_kind_name(requirement.kind)) + roles + ", " +
           requirement_purpose_name(requirement.purpose) + ", " +
           requirement_enforcement_name(requirement.enforcement) + ": " + requirement.note;
}

// A row says several fields of one name where it has several notes or parameters.
using Field = std::pair<std::string, std::string>;

std::vector<Field> fields_of(const Row& row) {
    const ImplementationNumerics& record = row.record;
    std::string key = Testing::key_text(row.key);
    key.erase(0, key.find(':') + 2);
    replace_all(key, row.policy, "T");
    std::vector<Field> fields{{"key", key},
                              {"algorithm", record.algorithm},
                              {"stability", stability_kind_name(record.stability)},
                              {"work", text_of(record.complexity.work)},
                              {"space", text_of(record.complexity.auxiliary_space)}};
    const auto add = [&fields](const char* name, const Texts& values) {
        for (const std::string& value : values) {
            fields.emplace_back(name, value);
        }
    };
    add("cost note", record.complexity.notes);
    add("mode", {precision_mode_name(record.precision.mode)});
    add("accumulation", {record.precision.accumulation_dtype.value_or("none")});
    add("order", {reduction_order_name(record.precision.reduction_order)});
    for (std::string note : record.precision.notes) {
        const std::string storage = row.policy.substr(0, row.policy.find('/'));
        replace_all(note, "from " + storage + " ", "from STORAGE ");
        replace_all(note, " in " + record.precision.accumulation_dtype.value_or("?"),
                    " in ACCUMULATION");
        add("mode note", {note});
    }
    for (const AlgorithmParameter& parameter : record.parameters) {
        add("parameter", {text_of(parameter)});
    }
    add("row note", record.notes);
    return fields;
}

std::string line(const std::string& field, const std::string& value) {
    return "  " + field + std::string(14 - field.size(), ' ') + value + "\n";
}

/// All floating rows by one word.
std::string names_of(const Texts& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : " ") + name;
    }
    replace_all(text, "complex32 float16 bfloat16 float64 complex128 float32 complex64",
                "floating");
    return text;
}

/// Each value of each field once, with the rows that have it.
std::string text_of(const std::vector<Row>& rows) {
    std::vector<std::pair<Field, Texts>> lines;
    for (const Row& row : rows) {
        for (const Field& field : fields_of(row)) {
            auto found = std::ranges::find(lines, field, &std::pair<Field, Texts>::first);
            if (found == lines.end()) {
                found = lines.insert(found, {field, {}});
            }
            found->second.push_back(row.name);
        }
    }
    std::string text;
    for (const char* name : {"key", "algorithm", "stability", "work", "space", "cost note", "mode",
                             "accumulation", "order", "mode note", "parameter", "row note"}) {
        for (const auto& [field, names] : lines) {
            if (field.first == name) {
                text += line(name,
                             field.second +
                                 (names.size() == rows.size() ? "" : " [" + names_of(names) + "]"));
            }
        }
    }
    return text;
}

/// Calls `visit` with the type of each floating policy.
template <typename Visitor>
void for_each_floating_policy(const Visitor& visit) {
    for_each_numeric_policy([&]<typename Policy>(Policy policy) {
        if constexpr (!Policy::is_integer) {
            visit(policy);
        }
    });
}

/// Every row that the backends write, and the records under made-up profiles.
std::vector<Row> all_rows() {
    std::vector<Row> rows;
    const auto add = [&rows](std::string name, const BackendRegistryKey& key,
                             const DataTypeDescriptor& type, ImplementationNumerics record) {
        rows.push_back({std::move(name),
                        std::string(scalar_metadata(type.storage_type()).name) + "/" +
                            scalar_metadata(type.compute_type()).name,
                        key, canonicalise_implementation_numerics(std::move(record), key)});
    };
    const auto add_all = [&add](const std::string& prefix, const DataTypeDescriptor& type,
                                const std::vector<BuiltinCapability>& capabilities) {
        for (const BuiltinCapability& row : capabilities) {
            add(prefix + scalar_metadata(type.storage_type()).name, row.key, type,
                row.numerics.value());
        }
    };
    for_each_floating_policy([&]<typename Policy>(Policy) {
        add_all("", Policy::type(), cpu_floating_capabilities(Policy::type()));
    });
    for_each_floating_policy([&]<typename Policy>(Policy) {
        if constexpr (requires { CpuCapabilities<Policy>::legacy_records(); }) {
            add_all("simd:", Policy::type(), CpuCapabilities<Policy>::legacy_records());
        }
    });
    for (const auto& [name, type, mode] :
         {std::tuple{"plain", DataTypeDescriptor::real_double(), PrecisionMode::native},
          std::tuple{"tree:float16", DataTypeDescriptor::real_float16(), PrecisionMode::mixed},
          std::tuple{"tree:complex64", DataTypeDescriptor::complex_float(),
                     PrecisionMode::widened}}) {
        const auto profile = Testing::made_up_profile(mode, mode != PrecisionMode::native);
        for (const BuiltinCapability& row : cpu_floating_capabilities(type)) {
            try {
                add(name, row.key, type, builtin_dense_numerics(row.key, profile));
            } catch (const std::logic_error&) { // a solver, which writes its own record
            }
        }
    }
    return rows;
}

std::string text_of(const OperationSpec& operation) {
    const OperationNumerics numerics = operation_numerics(operation.id());
    std::string operands;
    std::string shapes;
    for (const OperationOperandSpec& operand : operation.operands()) {
        operands += (operands.empty() ? "" : ", ") + short_name(operand.role) + " " +
                    operand_access_name(operand.access) + (operand.kind ? " of one kind" : "");
    }
    for (const OperandShape& shape : numerics.shapes) {
        shapes += (shapes.empty() ? "" : ", ") + short_name(shape.role) + " " +
                  std::to_string(shape.rank);
    }
    std::string text = line("operands", operands) + line("ranks", shapes);
    for (const ShapeConstraint& rule : numerics.constraints) {
        text += line("constraint", text_of(rule.left) + " " + shape_relation_name(rule.relation) +
                                       " " + text_of(rule.right));
    }
    for (const NumericalRequirement& requirement : numerics.requirements) {
        text += line("requirement", text_of(requirement));
    }
    for (const std::string& note : numerics.notes) {
        text += line("note", note);
    }
    return text;
}

bool is_row(const Row& row, const OperationImplementationDescription& implementation) {
    std::vector<BackendOperandKey> operands = row.key.inputs();
    operands.insert(operands.end(), row.key.outputs().begin(), row.key.outputs().end());
    return implementation.backend == row.key.backend() && implementation.numerics == row.record &&
           std::ranges::equal(implementation.operands, operands, {},
                              &OperationImplementationOperand::key);
}

/// The names of the rows that a context publishes, each exactly as its backend wrote it.
std::string published(const OperationDescription& description, const std::vector<Row>& rows) {
    std::map<std::size_t, std::string> names;
    for (const OperationImplementationDescription& implementation : description.implementations) {
        // The engine's rows come last, and `add` of float16 has one that reads as the floating one.
        for (std::size_t index = rows.size(); index-- > 0;) {
            if (is_row(rows[index], implementation)) {
                names[index] = rows[index].name;
                break;
            }
        }
    }
    EXPECT_EQ(names.size(), description.implementations.size()) << description.id.name();
    Texts in_order;
    std::ranges::copy(std::views::values(names), std::back_inserter(in_order));
    return names_of(in_order);
}

std::string catalogue_text() {
    const auto provenance = RegistrationProvenance::builtin("9.9");
    OperationRegistry operations;
    register_builtin_operations(operations, provenance);
    operations.seal();
    const TessalineContext context;
    EXPECT_EQ(context.operations().size(), operations.size());
    std::vector<const OperationSpec*> by_handle(operations.size());
    for (const auto& [id, registration] : operations.registrations()) {
        EXPECT_EQ(registration.provenance(), provenance);
        by_handle.at(static_cast<std::uint32_t>(registration.operation().handle()) - 1) =
            &registration.operation();
    }
    const std::vector<Row> rows = all_rows();
    std::string text = legend();
    for (const OperationSpec* operation : by_handle) {
        std::vector<Row> own;
        std::ranges::copy_if(rows, std::back_inserter(own),
                             [&](const Row& row) { return row.key.op() == operation->id(); });
        const OperationDescription& description = context.describe(operation->id());
        EXPECT_TRUE(std::ranges::equal(description.operands, operation->operands()));
        EXPECT_EQ(description.numerics,
                  canonicalise_operation_numerics(operation_numerics(operation->id()),
                                                  operation->operands()));
        text += "\n" + operation->id().canonical() + ", handle " +
                std::to_string(static_cast<std::uint32_t>(operation->handle())) + "\n" +
                text_of(*operation) + line("context", published(description, own)) + text_of(own);
    }
    return text;
}

Texts lines_of(std::istream& stream) {
    Texts lines;
    for (std::string text; std::getline(stream, text);) {
        lines.push_back(text);
    }
    return lines;
}

TEST(Catalogue, IsTheReviewedText) {
    const std::string text = catalogue_text();
    if (std::getenv("TESSALINE_RENEW_GOLDEN") != nullptr) {
        std::ofstream(TESSALINE_GOLDEN_CATALOGUE) << text;
    }
    std::istringstream stream(text);
    std::ifstream file(TESSALINE_GOLDEN_CATALOGUE);
    const Texts found = lines_of(stream);
    const Texts expected = lines_of(file);
    const auto [reviewed, changed] = std::ranges::mismatch(expected, found);
    std::string difference;
    for (auto at = reviewed; at != expected.end() && at - reviewed < 5; ++at) {
        difference += "\n- " + *at;
    }
    for (auto at = changed; at != found.end() && at - changed < 5; ++at) {
        difference += "\n+ " + *at;
    }
    EXPECT_TRUE(difference.empty())
        << TESSALINE_GOLDEN_CATALOGUE << ":" << reviewed - expected.begin() + 1 << ":" << difference
        << "\nIf the change is meant, renew the file with TESSALINE_RENEW_GOLDEN=1 and review its "
           "difference.";
}

} // namespace
} // namespace Tessaline
