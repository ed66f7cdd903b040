// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/operand_text.h"
#include "tessaline/catalogue/builtin_operations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace Tessaline {
namespace {

using Testing::expect_error;
using Testing::operand_of;
using Testing::operands_of;

const RegistrationProvenance provenance = RegistrationProvenance::builtin("0.1.1");

OperationRegistry builtin_catalogue() {
    OperationRegistry registry;
    register_builtin_operations(registry, provenance);
    registry.seal();
    return registry;
}

const OperationSpec& builtin(const std::string& name) {
    static const OperationRegistry registry = builtin_catalogue();
    return registry.operation(OperationId("tessaline." + name, 1));
}

/// Each operation with a request that it accepts.
struct Contract {
    const char* name;
    const char* request;
};

const std::vector<Contract> contracts = {
    {"sqrt", "v3 > v3"},
    {"conjugate", "> v3"},
    {"multiply", "v3 v3 > v3"},
    {"add", "v0 v0 > v0"},
    {"subtract", "v3 v3 > v3"},
    {"sum", "v3 > s"},
    {"norm", "v0 > s"},
    {"scale", "v3 s > v3"},
    {"divide", "v3 s > v3"},
    {"transpose", "m2x3 > m3x2"},
    {"adjoint", "m2x3 > m3x2"},
    {"matmul", "m2x3 m3x4 > m2x4"},
    {"matvec", "m2x3 v3 > v2"},
    {"kron", "m2x3 m4x5 > m8x15"},
    {"inner", "v3 v3 > s"},
    {"outer", "v2 v3 > m2x3"},
    {"lu_factor", "> l3"},
    {"solve", "l3 > v3"},
    {"logdet", "l3 > s"},
    {"trace", "m2x3 > s"},
    {"eig", "m3x3 > e3"},
    {"principal_eigenvector", "m3x3 > v3"},
    {"partial_trace_left", "m6x6 > m3x3"},
    {"partial_trace_right", "m6x6 > m6x6"},
    {"matrix_power", "m3x3 s > m3x3"},
    {"is_unitary", "m2x3 > s"},
    {"eye", "> m3x3"},
    {"vector_equal", "v2 v3 > s"},
    {"eigh", "m3x3 > v3 m3x3"},
    {"eigvalsh", "m3x3 > v3"},
    {"slogdet", "m3x3 > s s"},
    {"logdet_positive_definite", "m0x0 > s"},
};

TEST(BuiltinOperations, AcceptARequestEach) {
    EXPECT_EQ(builtin_catalogue().size(), contracts.size());
    for (const Contract& contract : contracts) {
        EXPECT_NO_THROW(builtin(contract.name).validate(operands_of(contract.request)))
            << contract.name;
    }
}

TEST(BuiltinOperations, RegisterOnceIntoAnOpenCatalogue) {
    OperationRegistry registry;
    register_builtin_operations(registry, provenance);
    expect_error<std::invalid_argument>(
        [&] { register_builtin_operations(registry, provenance); },
        "OperationRegistry - operation 'tessaline.sqrt@1' is already registered");
}

TEST(BuiltinOperations, RefuseOtherFamiliesAndShapes) {
    // A row with an empty name belongs to the operation above it. Where a request has several
    // faults, the message shows which one is looked for first.
    struct Refusal {
        const char* name;
        const char* request;
        std::string message;
    };
    const std::string any = "OperationSpec - ";
    const std::string first_vector = any + "first operand must be a vector";
    const std::string first_matrix = any + "first operand must be a matrix";
    const std::string first_square = any + "first operand must be square";
    const std::string first_factor = any + "first operand must be an LU factor";
    const std::string second_vector = any + "second operand must be a vector";
    const std::string second_matrix = any + "second operand must be a matrix";
    const std::string second_scalar = any + "second operand must be a scalar";
    const std::string output_vector = any + "output must be a vector";
    const std::string output_matrix = any + "output must be a matrix";
    const std::string output_scalar = any + "output must be a scalar";
    const std::string vector_inputs = any + "vector input size mismatch";
    const std::string vector_outputs = any + "vector output size mismatch";
    const std::string transposed = any + "transposed output shape mismatch";
    const std::string matrix_outputs = any + "matrix output shape mismatch";
    const std::string kron_overflow = any + "Kronecker product output shape overflow";
    const std::string kron_mismatch = any + "Kronecker output shape mismatch";
    const std::string outer_mismatch = any + "outer-product output shape mismatch";
    const std::string trace_mismatch = any + "partial trace output shape mismatch";
    const std::string hermitian = "eigh/eigvalsh - ";
    const std::string determinant = "slogdet/logdet_positive_definite - ";
    const Refusal refusals[] = {
        {"sqrt", "m2x2 > s", first_vector},
        {"", "v2 > s", output_vector},
        {"", "v2 > v3", vector_outputs},
        {"conjugate", "> m2x2", any + "read-write operand must be a vector"},
        {"multiply", "s s > s", first_vector},
        {"", "v2 s > s", second_vector},
        {"", "v2 v3 > s", output_vector},
        {"", "v2 v3 > v4", vector_inputs},
        {"", "v2 v2 > v3", vector_outputs},
        {"add", "v2 v3 > v2", vector_inputs},
        {"subtract", "v2 v3 > v3", vector_inputs},
        {"sum", "m2x2 > v1", first_vector},
        {"", "v2 > v1", output_scalar},
        {"norm", "s > v1", first_vector},
        {"scale", "s v2 > s", first_vector},
        {"", "v2 v2 > s", second_scalar},
        {"", "v2 s > s", output_vector},
        {"", "v2 s > v3", vector_outputs},
        {"divide", "v2 v2 > v2", second_scalar},
        {"transpose", "v2 > v2", first_matrix},
        {"", "m2x3 > v2", output_matrix},
        {"", "m2x3 > m2x3", transposed},
        {"", "m2x3 > m3x3", transposed},
        {"adjoint", "m2x3 > m2x2", transposed},
        {"matmul", "v2 v2 > v2", first_matrix},
        {"", "m2x3 v2 > v2", second_matrix},
        {"", "m2x3 m2x3 > v2", output_matrix},
        {"", "m2x3 m2x3 > m9x9", any + "matrix input shape mismatch"},
        {"", "m2x3 m3x4 > m3x4", matrix_outputs},
        {"", "m2x3 m3x4 > m2x3", matrix_outputs},
        {"matvec", "v3 s > s", first_matrix},
        {"", "m2x3 s > s", second_vector},
        {"", "m2x3 v2 > s", output_vector},
        {"", "m2x3 v2 > v3", any + "matrix/vector input size mismatch"},
        {"", "m2x3 v3 > v3", any + "matrix/vector output size mismatch"},
        {"kron", "v2 v2 > v2", first_matrix},
        {"", "m2x2 v2 > v2", second_matrix},
        {"", "m4294967296x1 m4294967296x1 > v2", output_matrix},
        {"", "m4294967296x1 m4294967296x1 > m0x1", kron_overflow},
        {"", "m1x6148914691236517206 m1x3 > m9x2", kron_overflow},
        {"", "m1x6148914691236517205 m1x3 > m1x1", kron_mismatch},
        {"", "m2x3 m4x5 > m15x8", kron_mismatch},
        {"", "m2x3 m4x5 > m8x14", kron_mismatch},
        {"inner", "s s > v2", first_vector},
        {"", "v2 s > v2", second_vector},
        {"", "v2 v3 > v2", vector_inputs},
        {"", "v2 v2 > v2", output_scalar},
        {"outer", "s s > s", first_vector},
        {"", "v2 s > s", second_vector},
        {"", "v2 v3 > s", output_matrix},
        {"", "v2 v3 > m3x2", outer_mismatch},
        {"", "v2 v3 > m2x2", outer_mismatch},
        {"lu_factor", "> m2x2", any + "read-write operand must be an LU factor"},
        {"solve", "m2x2 > s", first_factor},
        {"", "l2 > m2x2", any + "read-write output must be a vector"},
        {"", "l2 > v3", any + "solve RHS size mismatch"},
        {"logdet", "m2x2 > v2", first_factor},
        {"", "l2 > v2", output_scalar},
        {"trace", "v2 > v2", first_matrix},
        {"", "m2x3 > v2", output_scalar},
        {"is_unitary", "v2 > v2", first_matrix},
        {"", "m2x3 > v2", output_scalar},
        {"eig", "v2 > s", first_matrix},
        {"", "m2x3 > s", first_square},
        {"", "m2x2 > v2", any + "output must hold eigenvalues"},
        {"", "m2x2 > e3", any + "eigen output size mismatch"},
        {"principal_eigenvector", "v2 > s", first_matrix},
        {"", "m2x3 > s", first_square},
        {"", "m2x2 > e2", output_vector},
        {"", "m2x2 > v3", any + "eigenvector output size mismatch"},
        {"partial_trace_left", "v2 > v2", first_matrix},
        {"", "m2x3 > v2", output_matrix},
        {"", "m2x3 > m2x3", first_square},
        {"", "m4x4 > m2x1", any + "output must be square"},
        {"", "m4x4 > m3x3", trace_mismatch},
        {"", "m4x4 > m0x0", trace_mismatch},
        {"", "m0x0 > m0x0", trace_mismatch},
        {"partial_trace_right", "m2x2 > m4x4", trace_mismatch},
        {"matrix_power", "v2 v2 > v2", first_matrix},
        {"", "m2x3 v2 > v2", second_scalar},
        {"", "m2x3 s > v2", first_square},
        {"", "m2x2 s > v2", output_matrix},
        {"", "m2x2 s > m2x3", matrix_outputs},
        {"eye", "> v2", any + "read-write operand must be a matrix"},
        {"", "> m2x3", any + "read-write matrix must be square"},
        {"vector_equal", "s s > v2", first_vector},
        {"", "v2 s > v2", second_vector},
        {"", "v2 v3 > v2", output_scalar},
        {"eigh", "v2 > s s", hermitian + "input must be a matrix"},
        {"", "m2x3 > s s", hermitian + "input must be square"},
        {"", "m2x2 > s s", hermitian + "eigenvalues must be a vector"},
        {"", "m2x2 > v3 s", hermitian + "eigenvalue count mismatch"},
        {"", "m2x2 > v2 s", "eigh - eigenvectors must be a matrix"},
        {"", "m2x2 > v2 m2x3", "eigh - eigenvector shape mismatch"},
        {"eigvalsh", "v2 > m2x2", hermitian + "input must be a matrix"},
        {"", "m2x2 > m2x2", hermitian + "eigenvalues must be a vector"},
        {"slogdet", "v2 > v2 v2", determinant + "input must be a matrix"},
        {"", "m2x3 > v2 v2", determinant + "input must be square"},
        {"", "m2x2 > v2 s", determinant + "output must be a scalar"},
        {"", "m2x2 > s v2", determinant + "output must be a scalar"},
        {"logdet_positive_definite", "m2x3 > v2", determinant + "input must be square"},
        {"", "m2x2 > v2", determinant + "output must be a scalar"},
    };
    std::string name;
    for (const Refusal& refusal : refusals) {
        name = *refusal.name != '\0' ? refusal.name : name;
        SCOPED_TRACE(name + " " + refusal.request);
        expect_error<std::invalid_argument>(
            [&] { builtin(name).validate(operands_of(refusal.request)); }, refusal.message);
    }
}

// What the catalogue publishes about an operation must be what its validator does: over all small
// shapes of the right families, a request passes exactly when each published constraint holds.

using Sizes = std::map<std::pair<OperandRole, std::uint64_t>, std::uint64_t>;

std::uint64_t evaluated(const SymbolicExpression& expression, const Sizes& sizes) {
    if (expression.op() == SymbolicOperator::multiply) {
        return evaluated(expression.operands()[0], sizes) *
               evaluated(expression.operands()[1], sizes);
    }
    EXPECT_EQ(expression.op(), SymbolicOperator::dimension);
    return sizes.at({*expression.role(), *expression.axis()});
}

bool holds(const ShapeConstraint& constraint, const Sizes& sizes) {
    const std::uint64_t left = evaluated(constraint.left, sizes);
    const std::uint64_t right = evaluated(constraint.right, sizes);
    if (constraint.relation == ShapeRelation::divisible_by) {
        return right != 0 && left % right == 0;
    }
    EXPECT_EQ(constraint.relation, ShapeRelation::equal);
    return left == right;
}

bool accepts(const OperationSpec& spec, const std::vector<OperandDescriptor>& request) {
    try {
        spec.validate(request);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

TEST(BuiltinOperations, PublishExactlyTheShapeRulesOfTheirValidators) {
    constexpr std::uint64_t bound = 5;
    for (const Contract& contract : contracts) {
        const OperationSpec& spec = builtin(contract.name);
        const OperationNumerics& numerics = *spec.numerics();
        const auto families = operands_of(contract.request);
        std::uint64_t axes = 0;
        for (const OperandShape& shape : numerics.shapes) {
            axes += shape.rank;
        }
        const auto combinations =
            static_cast<std::uint64_t>(std::pow(static_cast<double>(bound), axes));
        for (std::uint64_t combination = 0; combination < combinations; ++combination) {
            std::uint64_t digits = combination;
            Sizes sizes;
            std::vector<OperandDescriptor> request;
            for (std::size_t i = 0; i < families.size(); ++i) {
                std::uint64_t lengths[2] = {};
                for (std::uint64_t axis = 0; axis < numerics.shapes[i].rank; ++axis) {
                    lengths[axis] = digits % bound;
                    digits /= bound;
                    sizes[{families[i].role(), axis}] = lengths[axis];
                }
                request.push_back(
                    operand_of(families[i].role(), families[i].kind(), lengths[0], lengths[1]));
            }
            const bool expected = std::ranges::all_of(
                numerics.constraints, [&](const auto& rule) { return holds(rule, sizes); });
            ASSERT_EQ(accepts(spec, request), expected)
                << contract.name << ", combination " << combination;
        }
    }
}

TEST(BuiltinOperations, DescribeNoOtherOperation) {
    for (const OperationId& id : {OperationId("tessaline.matmul", 2), OperationId("a.matmul", 1)}) {
        expect_error<std::logic_error>([&] { operation_numerics(id); },
                                       "operation_numerics - unknown built-in operation");
    }
}

} // namespace
} // namespace Tessaline
