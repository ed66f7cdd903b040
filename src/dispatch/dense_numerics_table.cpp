// SPDX-License-Identifier: Apache-2.0
#include "dispatch/dense_numerics_table.h"

#include "tessaline/catalogue/builtin_operation_ids.h"

namespace Tessaline::BackendRegistration {

namespace {

namespace Ids = BuiltinOperations;

using Key = BackendRegistryKey;
using Profile = DenseNumericsProfile;
using Expression = SymbolicExpression;

using enum StabilityKind;
using ReductionOrder::library_defined;
using ReductionOrder::not_applicable;
using enum When;

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole out0{operand_role_limit};

// Costs.

Expression size(OperandRole role, std::uint64_t axis = 0) {
    return Expression::dimension(role, axis);
}

OperandRole first_operand(const Key& key) {
    return key.inputs().empty() ? out0 : in0;
}

Expression length_of_first(const Key& key) {
    return size(first_operand(key));
}

Expression elements_of_first(const Key& key) {
    return product({size(first_operand(key), 0), size(first_operand(key), 1)});
}

Expression length_of_input(const Key&) {
    return size(in0);
}

Expression length_of_output(const Key&) {
    return size(out0);
}

Expression elements_of_input(const Key&) {
    return product({size(in0, 0), size(in0, 1)});
}

Expression elements_of_output(const Key&) {
    return product({size(out0, 0), size(out0, 1)});
}

/// Complex products go through one intermediate matrix.
Expression elements_of_complex_output(const Key& key) {
    const ScalarCategory category = scalar_metadata(key.get_input(0).storage).category;
    return category == ScalarCategory::complex_floating ||
                   category == ScalarCategory::complex_integer
               ? elements_of_output(key)
               : Expression::constant(0);
}

Expression one(const Key&) {
    return Expression::constant(1);
}

Expression diagonal_of_input(const Key&) {
    return minimum(size(in0, 0), size(in0, 1));
}

Expression matrix_product(const Key&) {
    return product({size(in0, 0), size(in0, 1), size(in1, 1)});
}

Expression outer_product(const Key&) {
    return product({size(in0), size(in1)});
}

/// Every element of the result sums one block of the input's diagonal.
Expression traced_blocks(const Key&) {
    return product({size(in0), size(out0)});
}

Expression gram_matrix(const Key&) {
    return product({power(size(in0, 0), 2), size(in0, 1)});
}

Expression shorter_length(const Key&) {
    return minimum(size(in0), size(in1));
}

/// log2 of an exponent that is at least one, else 0.
Expression squarings() {
    return logarithm(maximum(Expression::value(in1), Expression::constant(1)));
}

Expression matrix_power(const Key&) {
    return maximum(power(size(in0), 2), product({power(size(in0), 3), squarings()}));
}

Expression matrix_power_space(const Key&) {
    return product({power(size(in0), 2), minimum(squarings(), Expression::constant(1))});
}

// What several rows have in common.

using NoteList = std::initializer_list<DenseNote>;

constexpr DenseAccumulation profile_type{&Profile::accumulation_type};

constexpr NoteList conversion_notes = {
    {"Values are loaded from {storage} storage, computed in {accumulation}, and rounded once to "
     "the output storage type.",
     converting}};
constexpr NoteList reduction_notes = {
    {"Accumulation order depends on the backend reduction structure."}};
constexpr NoteList product_notes = {{"Dot products accumulate in {accumulation}."}};
constexpr NoteList block_reduction_notes = {
    {"Each output element is a native-precision reduction."}};
constexpr NoteList cancelling_blocks_notes = {{"Cancellation can affect traced blocks."}};
constexpr NoteList cancelling_notes = {{"Cancellation can dominate the relative error."}};

constexpr DenseNumericsRow elementwise(const OperationId& id, const char* base,
                                       StabilityKind stability) {
    return {.id = &id,
            .base = base,
            .stability = stability,
            .work = {length_of_first},
            .order = not_applicable,
            .accumulation = {&Profile::accumulation_type, converting},
            .precision_notes = conversion_notes};
}

constexpr DenseNumericsRow movement(const OperationId& id, const char* base) {
    return {.id = &id,
            .base = base,
            .stability = exact,
            .rounds = false,
            .work = {elements_of_first},
            .order = not_applicable};
}

constexpr DenseNumericsRow partial_trace(const OperationId& id) {
    return {.id = &id,
            .base = "partial_trace",
            .stability = not_guaranteed,
            .work = {traced_blocks},
            .accumulation = profile_type,
            .precision_notes = block_reduction_notes,
            .notes = cancelling_blocks_notes};
}

constexpr DenseNumericsRow table[] = {
    elementwise(Ids::add, "add", conditionally_stable),
    elementwise(Ids::subtract, "subtract", conditionally_stable),
    elementwise(Ids::multiply, "multiply", conditionally_stable),
    elementwise(Ids::scale, "scale", conditionally_stable),
    elementwise(Ids::divide, "divide", not_guaranteed),
    elementwise(Ids::sqrt, "sqrt", conditionally_stable),

    {.id = &Ids::conjugate,
     .base = "conjugate",
     .stability = exact,
     .rounds = false,
     .work = {length_of_first},
     .order = not_applicable},

    movement(Ids::transpose, "transpose"),
    movement(Ids::adjoint, "adjoint"),
    movement(Ids::eye, "identity"),

    {.id = &Ids::sum,
     .prefix = &Profile::reduction_prefix,
     .base = "sum_reduction",
     .stability = not_guaranteed,
     .work = {length_of_input},
     .auxiliary_space = {length_of_input, tree_reduction},
     .accumulation = profile_type,
     .precision_notes = reduction_notes,
     .notes = {{"Cancellation and overflow can affect the result."}}},

    {.id = &Ids::norm,
     .prefix = &Profile::reduction_prefix,
     .base = "norm_reduction",
     .stability = not_guaranteed,
     .work = {length_of_input},
     .auxiliary_space = {length_of_input, tree_reduction},
     .accumulation = {&Profile::norm_accumulation_type},
     .precision_notes = reduction_notes,
     .notes = {{"Scaling and reduction rounding can affect the norm."}}},

    {.id = &Ids::trace,
     .base = "diagonal_reduction",
     .stability = not_guaranteed,
     .work = {diagonal_of_input},
     .auxiliary_space = {one, tree_reduction},
     .accumulation = profile_type,
     .complexity_notes = {{"Parallel reduction uses a bounded buffer of block partials.",
                           tree_reduction}},
     .precision_notes = {{"Diagonal values accumulate in a fixed hierarchical parallel tree.",
                          tree_reduction},
                         {"Diagonal values accumulate in backend-defined order.",
                          no_tree_reduction}},
     .notes = cancelling_notes},

    {.id = &Ids::matmul,
     .prefix = &Profile::gemm_algorithm,
     .stability = conditionally_stable,
     .work = {matrix_product},
     .auxiliary_space = {elements_of_complex_output, tree_reduction},
     .order = library_defined,
     .accumulation = profile_type,
     .precision_notes = product_notes,
     .notes = {{"Forward error depends on operand scaling and conditioning."}}},

    {.id = &Ids::matvec,
     .prefix = &Profile::gemv_algorithm,
     .stability = conditionally_stable,
     .work = {elements_of_input},
     .auxiliary_space = {length_of_output, tree_reduction},
     .order = library_defined,
     .accumulation = profile_type,
     .precision_notes = product_notes},

    {.id = &Ids::inner,
     .base = "conjugated_inner_product",
     .stability = not_guaranteed,
     .work = {length_of_input},
     .auxiliary_space = {length_of_input},
     .accumulation = profile_type,
     .precision_notes = {{"The conjugated products accumulate in backend-defined order."}},
     .notes = cancelling_notes},

    {.id = &Ids::kron,
     .base = "kronecker",
     .stability = conditionally_stable,
     .work = {elements_of_output},
     .order = not_applicable},

    {.id = &Ids::outer,
     .base = "outer_product",
     .stability = conditionally_stable,
     .work = {outer_product},
     .order = not_applicable},

    partial_trace(Ids::partial_trace_left),
    partial_trace(Ids::partial_trace_right),

    {.id = &Ids::matrix_power,
     .base = "exponentiation_by_squaring",
     .stability = conditionally_stable,
     .work = {matrix_power},
     .auxiliary_space = {matrix_power_space},
     .order = library_defined,
     .accumulation = profile_type,
     .complexity_notes = {{"Exponents zero and one use quadratic identity or copy fast paths "
                           "without auxiliary workspace; larger exponents use logarithmically "
                           "many dense products and quadratic workspace."}},
     .precision_notes = {{"Every matrix product accumulates in {accumulation}."}},
     .notes = {{"Rounding and conditioning effects compound across matrix products."}}},

    {.id = &Ids::is_unitary,
     .base = "is_unitary",
     .stability = conditionally_stable,
     .work = {gram_matrix},
     .accumulation = profile_type,
     .precision_notes = {{"Inner products are reduced in backend-defined order."}},
     .notes = {{"Values near the tolerance boundary are rounding sensitive."}},
     .parameters = {{"absolute_tolerance", &Profile::absolute_tolerance,
                     "Absolute comparison tolerance."},
                    {"relative_tolerance", &Profile::relative_tolerance,
                     "Relative comparison tolerance."}}},

    {.id = &Ids::vector_equal,
     .base = "vector_equal",
     .stability = conditionally_stable,
     .work = {shorter_length},
     .order = not_applicable,
     .notes = {{"Absolute and relative tests are applied independently to each complex component "
                "after exact equality."},
               {"Same-signed infinities compare equal; opposite infinities, finite-infinite pairs "
                "and comparisons containing NaN compare unequal."},
               {"Unequal vector lengths return false without element comparison; finite values "
                "near the tolerance boundary are rounding sensitive."}},
     .parameters = {{"absolute_tolerance", &Profile::absolute_tolerance,
                     "Finite components pass when their absolute difference is no greater than "
                     "this tolerance."},
                    {"relative_tolerance", &Profile::relative_tolerance,
                     "Finite components pass when their absolute difference is no greater than "
                     "this tolerance times their maximum magnitude."}}},
};

} // namespace

std::span<const DenseNumericsRow> dense_numerics_table() {
    return table;
}

} // namespace Tessaline::BackendRegistration
