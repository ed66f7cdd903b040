// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/catalogue/implementation_numerics.h"
#include "tessaline/catalogue/operation_numerics.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace Tessaline {
namespace {

using ::testing::ElementsAre;
using Testing::expect_error;
using Expression = SymbolicExpression;

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole in2{2};
constexpr OperandRole in10{10};
constexpr OperandRole out0{operand_role_limit};
constexpr OperandRole out1{operand_role_limit + 1};
constexpr OperandRole nowhere{77};

const std::string undeclared = "SymbolicExpression - operand role is not declared";
const std::string unregistered = "ImplementationNumerics - expression role is not registered";
const std::string bad_axis = "SymbolicExpression - operand dimension axis is out of range";
const std::string bad_value = "SymbolicExpression - operand value must reference a scalar";
const std::string bad_unknown = "SymbolicExpression - unknown is not valid in a shape constraint";

/// One way to spoil a valid record, and what is said about it.
template <typename Record>
struct Fault {
    std::function<void(Record&)> spoil;
    std::string message;
};

/// Expects each fault alone to be reported, and of any two the one that comes first in the list.
template <typename Record, typename Canonicalise>
void expect_faults_in_order(const Record& valid, const std::vector<Fault<Record>>& faults,
                            const Canonicalise& canonicalise) {
    EXPECT_NO_THROW(canonicalise(valid));
    for (std::size_t first = 0; first < faults.size(); ++first) {
        for (std::size_t second = first; second < faults.size(); ++second) {
            SCOPED_TRACE("faults " + std::to_string(first) + " and " + std::to_string(second));
            Record record = valid;
            faults[first].spoil(record);
            if (second != first) {
                faults[second].spoil(record);
            }
            expect_error<std::invalid_argument>([&] { canonicalise(record); },
                                                faults[first].message);
        }
    }
}

// The operands of the records below. A factorisation and an eigenvalue set have the one axis of
// their order; the last output takes any kind.
const std::vector<OperationOperandSpec> operands = {
    {in0, OperandAccess::read, OperandKind::Matrix},
    {in1, OperandAccess::read, OperandKind::Scalar},
    {in2, OperandAccess::read, OperandKind::LuDecomp},
    {out0, OperandAccess::write, OperandKind::EigenVals},
    {out1, OperandAccess::write, std::nullopt},
};

const std::vector<OperandShape> shapes = {{in0, 2}, {in1, 0}, {in2, 1}, {out0, 1}, {out1, 1}};

BackendRegistryKey implementation_key() {
    const auto operand = [](OperandKind kind) {
        BackendOperandKey key;
        key.kind = kind;
        return key;
    };
    return {BackendKind::cpu_scalar,
            OperationId("a.b", 1),
            {operand(OperandKind::Matrix), operand(OperandKind::Scalar),
             operand(OperandKind::LuDecomp)},
            {operand(OperandKind::EigenVals), operand(OperandKind::Vector)}};
}

OperationNumerics canonical(OperationNumerics numerics) {
    return canonicalise_operation_numerics(std::move(numerics), operands);
}

ImplementationNumerics canonical(ImplementationNumerics numerics) {
    return canonicalise_implementation_numerics(std::move(numerics), implementation_key());
}

OperationNumerics valid_operation() {
    const auto length = Expression::dimension(out1, 0);
    return {shapes,
            {{length, ShapeRelation::equal, length}},
            {{RequirementKind::finite,
              {in0},
              RequirementPurpose::execution,
              RequirementEnforcement::checked,
              "note"}},
            {"note"}};
}

ImplementationNumerics valid_implementation() {
    ImplementationNumerics numerics;
    numerics.algorithm = "cpu.blocked_lu";
    numerics.parameters = {{"block", std::numeric_limits<std::int64_t>::min(), "Any integer."},
                           {"tolerance", std::numeric_limits<double>::max(), "Finite."},
                           {"pivoting", std::string("partial"), "Choice of pivots."}};
    return numerics;
}

TEST(OperationNumerics, ReportsTheFirstFault) {
    using Record = OperationNumerics;
    const auto append = [](Record& record, Expression left, Expression right) {
        record.constraints.push_back({std::move(left), ShapeRelation::equal, std::move(right)});
    };
    const std::vector<Fault<Record>> faults = {
        {[](Record& r) { r.notes.push_back(""); }, "OperationNumerics - notes must not be empty"},
        {[](Record& r) { r.shapes.push_back(r.shapes.front()); },
         "OperationNumerics - shapes must describe every operand role"},
        {[](Record& r) { r.shapes[0].role = nowhere; },
         "OperationNumerics - shape role is missing or duplicated"},
        {[](Record& r) { r.shapes[1].rank = 1; },
         "OperationNumerics - shape rank disagrees with operand kind"},
        {[](Record& r) { r.shapes[4].role = in1; },
         "OperationNumerics - shape role is missing or duplicated"},
        {[](Record& r) { r.constraints[0].relation = ShapeRelation{4}; },
         "OperationNumerics - shape constraint relation is invalid"},
        {[](Record& r) { r.constraints[0].left = Expression::unknown(); }, bad_unknown},
        {[](Record& r) { r.constraints[0].right = Expression::dimension(nowhere, 0); }, undeclared},
        {[&](Record& r) { append(r, Expression::dimension(in0, 2), Expression::constant(1)); },
         bad_axis},
        {[&](Record& r) { append(r, Expression::constant(1), Expression::value(in0)); }, bad_value},
        {[](Record& r) { r.requirements[0].kind = RequirementKind{-1}; },
         "OperationNumerics - requirement kind is invalid"},
        {[](Record& r) { r.requirements[0].purpose = RequirementPurpose{4}; },
         "OperationNumerics - requirement purpose is invalid"},
        {[](Record& r) { r.requirements[0].enforcement = RequirementEnforcement{3}; },
         "OperationNumerics - requirement enforcement is invalid"},
        {[](Record& r) { r.requirements[0].note.clear(); },
         "OperationNumerics - requirements need roles and a note"},
        {[](Record& r) {
             r.requirements[0].roles = {out0, in1, out0};
         },
         "OperationNumerics - requirement roles must be unique"},
        {[](Record& r) { r.requirements[0].roles.push_back(nowhere); }, undeclared},
        {[](Record& r) {
             r.requirements.push_back(r.requirements[0]);
             r.requirements[1].roles.clear();
         },
         "OperationNumerics - requirements need roles and a note"},
    };
    expect_faults_in_order<Record>(valid_operation(), faults,
                                   [](const Record& record) { canonical(record); });
}

TEST(ImplementationNumerics, ReportsTheFirstFault) {
    using Record = ImplementationNumerics;
    const std::vector<Fault<Record>> faults = {
        {[](Record& r) { r.algorithm = "cpu.LU"; },
         "ImplementationNumerics - algorithm must be a lower-case identifier"},
        {[](Record& r) { r.stability = StabilityKind{5}; },
         "ImplementationNumerics - stability is invalid"},
        {[](Record& r) { r.precision.mode = PrecisionMode{5}; },
         "ImplementationNumerics - precision mode is invalid"},
        {[](Record& r) { r.precision.reduction_order = ReductionOrder{6}; },
         "ImplementationNumerics - reduction order is invalid"},
        {[](Record& r) {
             r.notes = {"note", ""};
         },
         "ImplementationNumerics - notes must not be empty"},
        {[](Record& r) { r.complexity.notes = {""}; },
         "ComplexityDescription - notes must not be empty"},
        {[](Record& r) { r.precision.notes = {""}; },
         "PrecisionDescription - notes must not be empty"},
        {[](Record& r) { r.precision.accumulation_dtype = ""; },
         "PrecisionDescription - accumulation dtype must not be empty"},
        {[](Record& r) { r.complexity.work = Expression::value(nowhere); }, unregistered},
        {[](Record& r) { r.complexity.auxiliary_space = Expression::dimension(out0, 1); },
         bad_axis},
        {[](Record& r) { r.parameters[0].name = "Block"; },
         "ImplementationNumerics - algorithm parameter is malformed"},
        {[](Record& r) { r.parameters[1].value = std::nan(""); },
         "ImplementationNumerics - numeric parameters must be finite"},
        {[](Record& r) { r.parameters[1].value = -HUGE_VAL; },
         "ImplementationNumerics - numeric parameters must be finite"},
        {[](Record& r) { r.parameters[2].value = std::string(); },
         "ImplementationNumerics - string parameters must not be empty"},
        {[](Record& r) {
             r.parameters.push_back({"last", std::int64_t{0}, ""});
         },
         "ImplementationNumerics - algorithm parameter is malformed"},
        {[](Record& r) { r.parameters.push_back(r.parameters[1]); },
         "ImplementationNumerics - algorithm parameter names must be unique"},
    };
    expect_faults_in_order<Record>(valid_implementation(), faults,
                                   [](const Record& record) { canonical(record); });
    // What an author does not say.
    EXPECT_EQ(valid_implementation().stability, StabilityKind::unknown);
    EXPECT_EQ(valid_implementation().complexity.work, Expression::unknown());
}

// Nested in operators, so that the walk has to reach each operand; the first fault in preorder is
// the one that is reported.
TEST(Numerics, ChecksEachNodeOfAnExpression) {
    struct Case {
        Expression node;
        std::string in_shape;
        std::string in_cost;
    };
    const auto dim = Expression::dimension;
    const auto made_by_hand = [](Expression::Node node) {
        return Expression(std::make_shared<const Expression::Node>(std::move(node)));
    };
    const std::string lacking = "SymbolicExpression - constant was made without its fields";
    const std::string negative = "SymbolicExpression - constants must be non-negative";
    const std::string bad_symbol = "SymbolicExpression - symbol must be a lower-case identifier";
    const std::string bad_arity = "SymbolicExpression - operator has invalid arity";
    const Case cases[] = {
        {Expression::unknown(), bad_unknown, ""},
        {Expression::symbol("iterations"), "", ""},
        {dim(in0, 1), "", ""},
        {dim(in0, 2), bad_axis, bad_axis},
        {dim(in1, 0), bad_axis, bad_axis},
        {dim(in2, 0), "", ""},
        {dim(in2, 1), bad_axis, bad_axis},
        {dim(out0, 0), "", ""},
        {dim(out0, 1), bad_axis, bad_axis},
        {dim(nowhere, 9), undeclared, unregistered},
        {Expression::value(in1), "", ""},
        {Expression::value(in0), bad_value, bad_value},
        {Expression::value(in2), bad_value, bad_value},
        {Expression::value(nowhere), undeclared, unregistered},
        {made_by_hand({.op = SymbolicOperator::value}), undeclared, unregistered},
        {made_by_hand({.op = SymbolicOperator::dimension, .role = in0}), bad_axis, bad_axis},
        {made_by_hand({.op = SymbolicOperator::constant}), lacking, lacking},
        {made_by_hand({.op = SymbolicOperator::constant, .integer = -5}), negative, negative},
        {made_by_hand({.op = SymbolicOperator::symbol, .name = "Bad"}), bad_symbol, bad_symbol},
        {made_by_hand({.op = SymbolicOperator::add}), bad_arity, bad_arity},
        {made_by_hand({.op = SymbolicOperator{12}}), bad_arity, bad_arity},
        {made_by_hand({.op = SymbolicOperator{-1}}), bad_arity, bad_arity},
    };
    const auto expect = [](const auto& record, const std::string& message) {
        if (message.empty()) {
            EXPECT_NO_THROW(canonical(record));
        } else {
            expect_error<std::invalid_argument>([&] { canonical(record); }, message);
        }
    };
    for (const Case& row : cases) {
        const auto nested = Expression::operation(
            SymbolicOperator::multiply,
            {Expression::constant(2), Expression::operation(SymbolicOperator::log2, {row.node})});
        const auto followed = Expression::operation(
            SymbolicOperator::add,
            {nested, row.in_cost.empty() ? Expression::constant(1) : dim(nowhere, 0)});
        SCOPED_TRACE(&row - cases);
        auto operation = valid_operation();
        operation.constraints.push_back({dim(in0, 0), ShapeRelation::less_equal, followed});
        expect(operation, row.in_shape);
        auto implementation = valid_implementation();
        implementation.complexity.auxiliary_space = followed;
        expect(implementation, row.in_cost);
    }
}

TEST(OperationNumerics, TrustsTheRankOfAnOperandOfAnyKind) {
    auto record = valid_operation();
    record.constraints = {{Expression::value(out1), ShapeRelation::equal, Expression::constant(1)}};
    expect_error<std::invalid_argument>([&] { canonical(record); }, bad_value);
    record.shapes.back().rank = 0;
    EXPECT_NO_THROW(canonical(record));
    record.shapes.back().rank = 7;
    record.constraints = {
        {Expression::dimension(out1, 6), ShapeRelation::equal, Expression::constant(1)}};
    EXPECT_NO_THROW(canonical(record));
}

TEST(OperationNumerics, SortsEachListByItsOwnOrder) {
    const std::vector<OperationOperandSpec> any = {{in2, OperandAccess::read, std::nullopt},
                                                   {in10, OperandAccess::read, std::nullopt},
                                                   {out0, OperandAccess::write, std::nullopt}};
    const auto two = Expression::dimension(in2, 0);
    const auto ten = Expression::dimension(in10, 0);
    const auto requirement = [](int kind, std::vector<OperandRole> roles, int purpose,
                                int enforcement, const char* note) {
        return NumericalRequirement{RequirementKind{kind}, std::move(roles),
                                    RequirementPurpose{purpose},
                                    RequirementEnforcement{enforcement}, note};
    };
    OperationNumerics record;
    record.shapes = {{out0, 1}, {in10, 1}, {in2, 1}};
    record.constraints = {{two, ShapeRelation::equal, two},
                          {ten, ShapeRelation::less_equal, ten},
                          {ten, ShapeRelation::equal, two},
                          {ten, ShapeRelation::equal, ten}};
    record.requirements = {
        requirement(1, {in2}, 0, 0, "x"),       requirement(0, {out0}, 0, 0, "x"),
        requirement(0, {out0, in2}, 0, 0, "x"), requirement(0, {in2}, 1, 0, "x"),
        requirement(0, {in2}, 0, 2, "x"),       requirement(0, {in2}, 0, 0, "y"),
        requirement(0, {in2}, 0, 0, "x"),
    };
    record.notes = {"\xc3\xa9", "z", "a", "B", "a"};
    record = canonicalise_operation_numerics(std::move(record), any);
    EXPECT_EQ(canonicalise_operation_numerics(record, any), record);

    EXPECT_THAT(record.shapes,
                ElementsAre(OperandShape{in2, 1}, OperandShape{in10, 1}, OperandShape{out0, 1}));
    // By text: "dim(10,0)" stands before "dim(2,0)".
    EXPECT_THAT(record.constraints,
                ElementsAre(ShapeConstraint{ten, ShapeRelation::equal, ten},
                            ShapeConstraint{ten, ShapeRelation::equal, two},
                            ShapeConstraint{ten, ShapeRelation::less_equal, ten},
                            ShapeConstraint{two, ShapeRelation::equal, two}));
    EXPECT_THAT(record.requirements,
                ElementsAre(requirement(0, {in2}, 0, 0, "x"), requirement(0, {in2}, 0, 0, "y"),
                            requirement(0, {in2}, 0, 2, "x"), requirement(0, {in2}, 1, 0, "x"),
                            requirement(0, {in2, out0}, 0, 0, "x"),
                            requirement(0, {out0}, 0, 0, "x"), requirement(1, {in2}, 0, 0, "x")));
    EXPECT_THAT(record.notes, ElementsAre("B", "a", "a", "z", "\xc3\xa9"));
}

TEST(ImplementationNumerics, SortsParametersByNameAndNotesByText) {
    const std::vector<std::string> notes = {"\xc3\xa9", "a ", "a", "B", "a", " a"};
    auto record = valid_implementation();
    record.parameters.push_back({"block_10", 1.0, "A name with another as its start."});
    std::ranges::reverse(record.parameters);
    record.notes = record.complexity.notes = record.precision.notes = notes;
    record = canonical(std::move(record));
    EXPECT_EQ(canonical(record), record);
    std::vector<std::string> names;
    std::ranges::transform(record.parameters, std::back_inserter(names), &AlgorithmParameter::name);
    EXPECT_THAT(names, ElementsAre("block", "block_10", "pivoting", "tolerance"));
    for (const auto* list : {&record.notes, &record.complexity.notes, &record.precision.notes}) {
        EXPECT_THAT(*list, ElementsAre(" a", "B", "a", "a", "a ", "\xc3\xa9"));
    }
}

template <typename Enumeration>
std::string words(const char* (*name)(Enumeration), int last) {
    std::string text;
    for (int value = 0; value <= last; ++value) {
        text += name(Enumeration{value}) + std::string(" ");
    }
    EXPECT_STREQ(name(Enumeration{-1}), "unknown");
    EXPECT_STREQ(name(Enumeration{last + 1}), "unknown");
    return text;
}

TEST(Numerics, NamesItsEnumerations) {
    EXPECT_EQ(words(shape_relation_name, 3), "equal less_equal greater_equal divisible_by ");
    EXPECT_EQ(words(requirement_kind_name, 8),
              "finite nonzero nonnegative positive nonsingular hermitian normal positive_definite "
              "unique_dominant_eigenvalue ");
    EXPECT_EQ(words(requirement_purpose_name, 3),
              "execution defined_result unique_result accuracy ");
    EXPECT_EQ(words(requirement_enforcement_name, 2),
              "checked guaranteed_by_operand caller_responsibility ");
    EXPECT_EQ(words(stability_kind_name, 4),
              "exact backward_stable conditionally_stable not_guaranteed unknown ");
    EXPECT_EQ(words(precision_mode_name, 4), "exact native widened mixed unknown ");
    EXPECT_EQ(words(reduction_order_name, 5),
              "not_applicable sequential pairwise parallel_tree library_defined unknown ");
}

} // namespace
} // namespace Tessaline
