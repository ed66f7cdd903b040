// SPDX-License-Identifier: Apache-2.0
#include "catalogue/builtin_operation_table.h"

#include "tessaline/catalogue/builtin_operation_ids.h"

#include <algorithm>

namespace Tessaline {

namespace {

namespace Ids = BuiltinOperations;
namespace Validators = BuiltinValidators;

using enum OperandAccess;
using enum OperandKind;
using enum OperandType;
using enum RequirementKind;
using enum RequirementPurpose;
using enum RequirementEnforcement;
using InPlaceUse::elementwise;

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole out0{operand_role_limit};
constexpr OperandRole out1{operand_role_limit + 1};

constexpr BuiltinConstraint equal(BuiltinAxis left, BuiltinAxis right) {
    return {left, ShapeRelation::equal, right, std::nullopt};
}

constexpr BuiltinConstraint equal_product(BuiltinAxis left, BuiltinAxis right, BuiltinAxis factor) {
    return {left, ShapeRelation::equal, right, factor};
}

constexpr BuiltinConstraint divisible(BuiltinAxis left, BuiltinAxis right) {
    return {left, ShapeRelation::divisible_by, right, std::nullopt};
}

// What several operations have in common.

using OperandList = std::initializer_list<BuiltinOperand>;
using ConstraintList = std::initializer_list<BuiltinConstraint>;

constexpr OperandList two_vectors_to_vector = {
    {in0, read, Vector}, {in1, read, Vector}, {out0, write, Vector}};
constexpr OperandList vector_and_scalar_to_vector = {
    {in0, read, Vector}, {in1, read, Scalar}, {out0, write, Vector}};
constexpr OperandList two_matrices_to_matrix = {
    {in0, read, Matrix}, {in1, read, Matrix}, {out0, write, Matrix}};
constexpr OperandList vector_to_scalar = {{in0, read, Vector}, {out0, write, Scalar}};
constexpr OperandList matrix_to_matrix = {{in0, read, Matrix}, {out0, write, Matrix}};

constexpr BuiltinConstraint square_input = equal({in0, 0}, {in0, 1});
constexpr BuiltinConstraint output_as_long = equal({out0, 0}, {in0, 0});

constexpr ConstraintList all_lengths_equal = {equal({in1, 0}, {in0, 0}), output_as_long};
constexpr ConstraintList axes_exchanged = {equal({out0, 0}, {in0, 1}), equal({out0, 1}, {in0, 0})};
constexpr ConstraintList output_order_divides = {square_input, equal({out0, 0}, {out0, 1}),
                                                 divisible({in0, 0}, {out0, 0})};

constexpr BuiltinRequirement finite_entries = {finite, in0, execution, checked,
                                               "All input entries must be finite."};
constexpr BuiltinRequirement hermitian_input = {
    hermitian, in0, defined_result, checked,
    "The full matrix is checked against its adjoint with a dimension-scaled compute-epsilon "
    "tolerance; the lower triangle and real diagonal define the solved matrix."};
constexpr BuiltinRequirement valid_factorisation = {
    nonsingular, in0, defined_result, caller_responsibility,
    "The caller must supply a valid nonsingular LU factorisation; LU storage can be constructed "
    "without factorisation validation."};

constexpr const char* same_length = "Both inputs and the output have the same length.";
constexpr const char* reduced = "The vector is reduced to a scalar.";
constexpr const char* length_kept = "The scalar does not change the vector length.";
constexpr const char* exchanged = "The output exchanges the input row and column axes.";
constexpr const char* traced =
    "The output order divides the square input order; the quotient is the traced subsystem "
    "dimension.";
constexpr const char* hermitian_result =
    "Eigenvalues are real and sorted in ascending order. Eigenvectors are orthonormal columns and "
    "retain the input's real or complex domain in compute precision.";

constexpr BuiltinOperation table[] = {
    {&Ids::sqrt,
     {{in0, read, Vector}, {out0, write, Vector}},
     Validators::sqrt,
     {output_as_long},
     {},
     {"The output length equals the input length.",
      "Complex square root follows the implementation's principal branch."},
     elementwise},

    {&Ids::conjugate,
     {{out0, read_write, Vector}},
     Validators::conjugate,
     {},
     {},
     {"The read-write vector retains its length."}},

    {&Ids::multiply,
     two_vectors_to_vector,
     Validators::elementwise_binary,
     all_lengths_equal,
     {},
     {same_length},
     elementwise},

    {&Ids::add,
     two_vectors_to_vector,
     Validators::elementwise_binary,
     all_lengths_equal,
     {},
     {same_length},
     elementwise},

    {&Ids::subtract,
     two_vectors_to_vector,
     Validators::elementwise_binary,
     all_lengths_equal,
     {},
     {same_length},
     elementwise},

    {&Ids::sum, vector_to_scalar, Validators::reduction, {}, {}, {reduced}},

    {&Ids::norm, vector_to_scalar, Validators::reduction, {}, {}, {reduced}},

    {&Ids::scale,
     vector_and_scalar_to_vector,
     Validators::elementwise_by_scalar,
     {output_as_long},
     {},
     {length_kept},
     elementwise},

    {&Ids::divide,
     vector_and_scalar_to_vector,
     Validators::elementwise_by_scalar,
     {output_as_long},
     {{nonzero, in1, defined_result, caller_responsibility,
       "The divisor must be nonzero for a finite defined result."}},
     {length_kept},
     elementwise},

    {&Ids::transpose, matrix_to_matrix, Validators::transposition, axes_exchanged, {}, {exchanged}},

    {&Ids::adjoint, matrix_to_matrix, Validators::transposition, axes_exchanged, {}, {exchanged}},

    {&Ids::matmul,
     two_matrices_to_matrix,
     Validators::matmul,
     {equal({in0, 1}, {in1, 0}), output_as_long, equal({out0, 1}, {in1, 1})},
     {},
     {"The inner matrix dimensions agree."}},

    {&Ids::matvec,
     {{in0, read, Matrix}, {in1, read, Vector}, {out0, write, Vector}},
     Validators::matvec,
     {equal({in0, 1}, {in1, 0}), output_as_long},
     {},
     {"The vector length matches the matrix column count."}},

    {&Ids::kron,
     two_matrices_to_matrix,
     Validators::kron,
     {equal_product({out0, 0}, {in0, 0}, {in1, 0}), equal_product({out0, 1}, {in0, 1}, {in1, 1})},
     {},
     {"Output axes are products of the corresponding input axes."}},

    {&Ids::inner,
     {{in0, read, Vector}, {in1, read, Vector}, {out0, write, Scalar}},
     Validators::inner,
     {equal({in0, 0}, {in1, 0})},
     {},
     {"The first vector is conjugated in the complex inner product."}},

    {&Ids::outer,
     {{in0, read, Vector}, {in1, read, Vector}, {out0, write, Matrix}},
     Validators::outer,
     {output_as_long, equal({out0, 1}, {in1, 0})},
     {},
     {"Input lengths need not be equal."}},

    {&Ids::lu_factor,
     {{out0, read_write, LuDecomp}},
     Validators::lu_factor,
     {},
     {{nonsingular, out0, execution, checked,
       "Factorisation reports a singular matrix as a numerical failure."}},
     {"The LU descriptor order represents a square matrix."}},

    {&Ids::solve,
     {{in0, read, LuDecomp}, {out0, read_write, Vector}},
     Validators::solve,
     {equal({in0, 0}, {out0, 0})},
     {valid_factorisation},
     {"The right-hand side is overwritten with the solution."}},

    {&Ids::logdet,
     {{in0, read, LuDecomp}, {out0, write, Scalar, complex}},
     Validators::logdet,
     {},
     {valid_factorisation},
     {"The complex logarithm uses its principal branch."}},

    {&Ids::trace,
     {{in0, read, Matrix}, {out0, write, Scalar}},
     Validators::matrix_to_scalar,
     {},
     {},
     {"The core operation accepts rectangular matrices and sums the available diagonal."}},

    {&Ids::eig,
     {{in0, read, Matrix}, {out0, write, EigenVals, complex}},
     Validators::eig,
     {square_input, output_as_long},
     {},
     {"The output order pairs each eigenvalue with one contiguous right eigenvector; column-major "
      "storage places vectors in columns and row-major storage places them in rows."}},

    {&Ids::principal_eigenvector,
     {{in0, read, Matrix}, {out0, write, Vector, complex}},
     Validators::principal_eigenvector,
     {square_input, output_as_long},
     {{unique_dominant_eigenvalue, in0, unique_result, caller_responsibility,
       "A unique eigenvalue of greatest magnitude is required for a unique principal direction."}},
     {"Eigenvectors are defined only up to a complex scale."}},

    {&Ids::partial_trace_left,
     matrix_to_matrix,
     Validators::partial_trace,
     output_order_divides,
     {},
     {traced}},

    {&Ids::partial_trace_right,
     matrix_to_matrix,
     Validators::partial_trace,
     output_order_divides,
     {},
     {traced}},

    {&Ids::matrix_power,
     {{in0, read, Matrix}, {in1, read, Scalar, integer}, {out0, write, Matrix}},
     Validators::matrix_power,
     {square_input, output_as_long, equal({out0, 1}, {in0, 1})},
     {{nonnegative, in1, defined_result, caller_responsibility,
       "Only non-negative integer powers are supported."}},
     {"Power zero produces the identity matrix."}},

    {&Ids::is_unitary,
     {{in0, read, Matrix}, {out0, write, Scalar, integer}},
     Validators::matrix_to_scalar,
     {},
     {},
     {"A non-square input is valid and produces false."}},

    {&Ids::eye,
     {{out0, read_write, Matrix}},
     Validators::eye,
     {equal({out0, 0}, {out0, 1})},
     {},
     {"The read-write output must be square."}},

    {&Ids::vector_equal,
     {{in0, read, Vector}, {in1, read, Vector}, {out0, write, Scalar, integer}},
     Validators::vector_equal,
     {},
     {},
     {"Different input lengths are valid and produce false.",
      "Equal-length vectors are compared independently by real and imaginary component; exact "
      "equality is accepted first and tolerances apply only to finite pairs.",
      "Same-signed infinities compare equal; opposite infinities, finite-infinite pairs and "
      "comparisons containing NaN compare unequal."}},

    {&Ids::eigh,
     {{in0, read, Matrix}, {out0, write, Vector, real}, {out1, write, Matrix, compute}},
     Validators::hermitian_eigen,
     {square_input, output_as_long, equal({out1, 0}, {in0, 0}), equal({out1, 1}, {in0, 1})},
     {finite_entries, hermitian_input},
     {hermitian_result}},

    {&Ids::eigvalsh,
     {{in0, read, Matrix}, {out0, write, Vector, real}},
     Validators::hermitian_eigen,
     {square_input, output_as_long},
     {finite_entries, hermitian_input},
     {hermitian_result}},

    {&Ids::slogdet,
     {{in0, read, Matrix}, {out0, write, Scalar, compute}, {out1, write, Scalar, real}},
     Validators::determinant,
     {square_input},
     {finite_entries},
     {"Returns determinant sign (unit phase for complex input) and real log-magnitude. Singular "
      "matrices return zero and negative infinity; the empty determinant is one."}},

    {&Ids::logdet_positive_definite,
     {{in0, read, Matrix}, {out0, write, Scalar, real}},
     Validators::determinant,
     {square_input},
     {finite_entries,
      hermitian_input,
      {positive_definite, in0, defined_result, checked,
       "Cholesky factorisation must succeed; the result is real."}},
     {}},
};

// The order of registration, which fixes the handles.
constexpr const OperationId* order[] = {
#define TESSALINE_LIST_OPERATION(name, index) &Ids::name,
    TESSALINE_BUILTIN_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
};
static_assert(std::ranges::equal(table, order, {}, &BuiltinOperation::id),
              "the rows are not those of the list of operations, in its order");

} // namespace

std::span<const BuiltinOperation> builtin_operation_table() {
    return table;
}

} // namespace Tessaline
