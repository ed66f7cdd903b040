// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/numerics_text.h"
#include "tessaline/dispatch/builtin_capability.h"

#include <gmock/gmock.h>

#include <regex>

namespace Tessaline {
namespace {

using namespace BackendRegistration;
using ::testing::ElementsAre;
using Testing::expect_error;
using ::testing::IsEmpty;
using Testing::key_of;
using Texts = std::vector<std::string>;

/// Every field has a value that no other one has.
DenseNumericsProfile plain_profile() {
    return {.algorithm_prefix = "p.",
            .reduction_prefix = "r.",
            .gemm_algorithm = "g.mm",
            .gemv_algorithm = "g.mv",
            .accumulation_type = ScalarType::Float64,
            .norm_accumulation_type = ScalarType::Float32,
            .precision_mode = PrecisionMode::native,
            .reduction_order = ReductionOrder::pairwise,
            .tree_reduction = false,
            .absolute_tolerance = 0.5,
            .relative_tolerance = 0.25};
}

/// Differs from the plain one in what its type says: a tree, and operands that are converted.
DenseNumericsProfile tree_profile() {
    DenseNumericsProfile profile = plain_profile();
    profile.precision_mode = PrecisionMode::mixed;
    profile.tree_reduction = true;
    return profile;
}

/// An expression with roles by name: "multiply(I0.0,O0.1)".
std::string text_of(const SymbolicExpression& expression) {
    std::string text = expression.canonical();
    text = std::regex_replace(text, std::regex("2147483648"), "O0");
    return std::regex_replace(text, std::regex("dim\\((O?)(\\d),(\\d)\\)"), "$1$2.$3");
}

struct ExpectedRecord {
    const char* operation;
    const char* operands;
    const char* algorithm;
    const char* stability;
    const char* order;
    const char* accumulation; ///< empty for none; "converting" for one under conversion only
    const char* work;
    const char* space;
    const char* tree_space;
};

// The first input is 0, the second 1 and the output O0.
const ExpectedRecord records[] = {
    {"add", "v v > v", "p.add", "conditionally_stable", "not_applicable", "converting", "0.0", "0",
     "0"},
    {"subtract", "v v > v", "p.subtract", "conditionally_stable", "not_applicable", "converting",
     "0.0", "0", "0"},
    {"multiply", "v v > v", "p.multiply", "conditionally_stable", "not_applicable", "converting",
     "0.0", "0", "0"},
    {"scale", "v s > v", "p.scale", "conditionally_stable", "not_applicable", "converting", "0.0",
     "0", "0"},
    {"divide", "v s > v", "p.divide", "not_guaranteed", "not_applicable", "converting", "0.0", "0",
     "0"},
    {"sqrt", "v > v", "p.sqrt", "conditionally_stable", "not_applicable", "converting", "0.0", "0",
     "0"},
    {"conjugate", "> v", "p.conjugate", "exact", "not_applicable", "", "O0.0", "0", "0"},
    {"transpose", "m > m", "p.transpose", "exact", "not_applicable", "", "multiply(0.0,0.1)", "0",
     "0"},
    {"adjoint", "m > m", "p.adjoint", "exact", "not_applicable", "", "multiply(0.0,0.1)", "0", "0"},
    {"eye", "> m", "p.identity", "exact", "not_applicable", "", "multiply(O0.0,O0.1)", "0", "0"},
    {"sum", "v > s", "r.sum_reduction", "not_guaranteed", "pairwise", "float64", "0.0", "0", "0.0"},
    {"norm", "v > s", "r.norm_reduction", "not_guaranteed", "pairwise", "float32", "0.0", "0",
     "0.0"},
    {"trace", "m > s", "p.diagonal_reduction", "not_guaranteed", "pairwise", "float64",
     "minimum(0.0,0.1)", "0", "1"},
    {"matmul", "m m > m", "g.mm", "conditionally_stable", "library_defined", "float64",
     "multiply(0.0,0.1,1.1)", "0", "0"},
    {"matvec", "m v > v", "g.mv", "conditionally_stable", "library_defined", "float64",
     "multiply(0.0,0.1)", "0", "O0.0"},
    {"inner", "v v > s", "p.conjugated_inner_product", "not_guaranteed", "pairwise", "float64",
     "0.0", "0.0", "0.0"},
    {"kron", "m m > m", "p.kronecker", "conditionally_stable", "not_applicable", "",
     "multiply(O0.0,O0.1)", "0", "0"},
    {"outer", "v v > m", "p.outer_product", "conditionally_stable", "not_applicable", "",
     "multiply(0.0,1.0)", "0", "0"},
    {"partial_trace_left", "m > m", "p.partial_trace", "not_guaranteed", "pairwise", "float64",
     "multiply(0.0,O0.0)", "0", "0"},
    {"partial_trace_right", "m > m", "p.partial_trace", "not_guaranteed", "pairwise", "float64",
     "multiply(0.0,O0.0)", "0", "0"},
    {"matrix_power", "m s > m", "p.exponentiation_by_squaring", "conditionally_stable",
     "library_defined", "float64",
     "maximum(power(0.0,2),multiply(power(0.0,3),log2(maximum(value(1),1))))",
     "multiply(power(0.0,2),minimum(log2(maximum(value(1),1)),1))",
     "multiply(power(0.0,2),minimum(log2(maximum(value(1),1)),1))"},
    {"is_unitary", "m > s", "p.is_unitary", "conditionally_stable", "pairwise", "float64",
     "multiply(power(0.0,2),0.1)", "0", "0"},
    {"vector_equal", "v v > s", "p.vector_equal", "conditionally_stable", "not_applicable", "",
     "minimum(0.0,1.0)", "0", "0"},
};

void expect_record(const ExpectedRecord& expected, const DenseNumericsProfile& profile) {
    SCOPED_TRACE(std::string(expected.operation) + (profile.tree_reduction ? ", tree" : ""));
    const auto key = key_of(expected.operation, expected.operands);
    const bool converts = profile.precision_mode == PrecisionMode::mixed;
    const auto record = builtin_dense_numerics(key, profile);
    EXPECT_EQ(record.algorithm, expected.algorithm);
    EXPECT_STREQ(stability_kind_name(record.stability), expected.stability);
    EXPECT_EQ(text_of(record.complexity.work), expected.work);
    EXPECT_EQ(text_of(record.complexity.auxiliary_space),
              profile.tree_reduction ? expected.tree_space : expected.space);
    EXPECT_EQ(record.precision.mode, record.stability == StabilityKind::exact
                                         ? PrecisionMode::exact
                                         : profile.precision_mode);
    EXPECT_STREQ(reduction_order_name(record.precision.reduction_order), expected.order);
    const std::string accumulation = expected.accumulation == std::string("converting")
                                         ? (converts ? "float64" : "")
                                         : expected.accumulation;
    EXPECT_EQ(record.precision.accumulation_dtype.value_or(""), accumulation);
    EXPECT_NO_THROW(canonicalise_implementation_numerics(record, key));
}

TEST(BuiltinDenseNumerics, DescribesEveryDenseOperation) {
    EXPECT_EQ(std::size(records), 23U);
    for (const ExpectedRecord& record : records) {
        expect_record(record, plain_profile());
        expect_record(record, tree_profile());
    }
}

struct ExpectedWords {
    const char* operation;
    Texts complexity;
    Texts precision;
    Texts notes;
};

const std::string conversion =
    "Values are loaded from float16 storage, computed in float64, and rounded once to the output "
    "storage type.";
const std::string reduction = "Accumulation order depends on the backend reduction structure.";
const std::string blocks = "Each output element is a native-precision reduction.";

/// What the tree profile says; operations without words are left out.
const ExpectedWords words[] = {
    {"add", {}, {conversion}, {}},
    {"subtract", {}, {conversion}, {}},
    {"multiply", {}, {conversion}, {}},
    {"scale", {}, {conversion}, {}},
    {"divide", {}, {conversion}, {}},
    {"sqrt", {}, {conversion}, {}},
    {"sum", {}, {reduction}, {"Cancellation and overflow can affect the result."}},
    {"norm", {}, {reduction}, {"Scaling and reduction rounding can affect the norm."}},
    {"trace",
     {"Parallel reduction uses a bounded buffer of block partials."},
     {"Diagonal values accumulate in a fixed hierarchical parallel tree."},
     {"Cancellation can dominate the relative error."}},
    {"matmul",
     {},
     {"Dot products accumulate in float64."},
     {"Forward error depends on operand scaling and conditioning."}},
    {"matvec", {}, {"Dot products accumulate in float64."}, {}},
    {"inner",
     {},
     {"The conjugated products accumulate in backend-defined order."},
     {"Cancellation can dominate the relative error."}},
    {"partial_trace_left", {}, {blocks}, {"Cancellation can affect traced blocks."}},
    {"partial_trace_right", {}, {blocks}, {"Cancellation can affect traced blocks."}},
    {"matrix_power",
     {"Exponents zero and one use quadratic identity or copy fast paths without auxiliary "
      "workspace; larger exponents use logarithmically many dense products and quadratic "
      "workspace."},
     {"Every matrix product accumulates in float64."},
     {"Rounding and conditioning effects compound across matrix products."}},
    {"is_unitary",
     {},
     {"Inner products are reduced in backend-defined order."},
     {"Values near the tolerance boundary are rounding sensitive."}},
    {"vector_equal",
     {},
     {},
     {"Absolute and relative tests are applied independently to each complex component after exact "
      "equality.",
      "Same-signed infinities compare equal; opposite infinities, finite-infinite pairs and "
      "comparisons containing NaN compare unequal.",
      "Unequal vector lengths return false without element comparison; finite values near the "
      "tolerance boundary are rounding sensitive."}},
};

TEST(BuiltinDenseNumerics, SaysTheWordsOfEveryOperation) {
    for (const ExpectedRecord& row : records) {
        SCOPED_TRACE(row.operation);
        const auto expected = std::ranges::find_if(words, [&row](const auto& entry) {
            return entry.operation == std::string(row.operation);
        });
        const ExpectedWords none{row.operation, {}, {}, {}};
        const ExpectedWords& found = expected == std::end(words) ? none : *expected;
        const auto record = builtin_dense_numerics(
            key_of(row.operation, row.operands, ScalarType::Float16), tree_profile());
        EXPECT_EQ(record.complexity.notes, found.complexity);
        EXPECT_EQ(record.precision.notes, found.precision);
        EXPECT_EQ(record.notes, found.notes);
    }
}

TEST(BuiltinDenseNumerics, WordsFollowTheProfile) {
    const auto trace = builtin_dense_numerics(key_of("trace", "m > s"), plain_profile());
    EXPECT_THAT(trace.complexity.notes, IsEmpty());
    EXPECT_THAT(trace.precision.notes,
                ElementsAre("Diagonal values accumulate in backend-defined order."));
    EXPECT_THAT(builtin_dense_numerics(key_of("add", "v v > v"), plain_profile()).precision.notes,
                IsEmpty());
    DenseNumericsProfile widened = plain_profile();
    widened.precision_mode = PrecisionMode::widened;
    widened.accumulation_type = ScalarType::Complex64;
    EXPECT_THAT(
        builtin_dense_numerics(key_of("sqrt", "v > v", ScalarType::Complex32), widened)
            .precision.notes,
        ElementsAre("Values are loaded from complex32 storage, computed in complex64, and rounded "
                    "once to the output storage type."));
}

TEST(BuiltinDenseNumerics, ComplexProductsOfATreeBackendNeedAnIntermediateMatrix) {
    const auto space = [](ScalarType storage, const DenseNumericsProfile& profile) {
        return text_of(builtin_dense_numerics(key_of("matmul", "m m > m", storage), profile)
                           .complexity.auxiliary_space);
    };
    EXPECT_EQ(space(ScalarType::Complex64, tree_profile()), "multiply(O0.0,O0.1)");
    EXPECT_EQ(space(ScalarType::ComplexInt32, tree_profile()), "multiply(O0.0,O0.1)");
    EXPECT_EQ(space(ScalarType::Complex64, plain_profile()), "0");
}

TEST(BuiltinDenseNumerics, ComparisonsReportTheirTolerances) {
    using Parameters = std::vector<AlgorithmParameter>;
    const auto parameters = [](const char* operation, const char* operands) {
        return builtin_dense_numerics(key_of(operation, operands), plain_profile()).parameters;
    };
    EXPECT_EQ(parameters("is_unitary", "m > s"),
              (Parameters{{"absolute_tolerance", 0.5, "Absolute comparison tolerance."},
                          {"relative_tolerance", 0.25, "Relative comparison tolerance."}}));
    EXPECT_EQ(parameters("vector_equal", "v v > s"),
              (Parameters{{"absolute_tolerance", 0.5,
                           "Finite components pass when their absolute difference is no greater "
                           "than this tolerance."},
                          {"relative_tolerance", 0.25,
                           "Finite components pass when their absolute difference is no greater "
                           "than this tolerance times their maximum magnitude."}}));
    EXPECT_THAT(parameters("matmul", "m m > m"), IsEmpty());
}

TEST(BuiltinDenseNumerics, RefusesWhatItDoesNotDescribe) {
    const auto refused = [](const OperationId& id) {
        const BackendRegistryKey add = key_of("add", "v v > v");
        expect_error<std::logic_error>(
            [&] {
                builtin_dense_numerics({add.backend(), id, add.inputs(), add.output()},
                                       plain_profile());
            },
            "builtin_dense_numerics - unsupported built-in operation");
    };
    for (const char* name : {"lu_factor", "solve", "logdet", "eig", "principal_eigenvector", "eigh",
                             "eigvalsh", "slogdet", "logdet_positive_definite"}) {
        refused(OperationId(std::string("tessaline.") + name, 1));
    }
    refused(OperationId("tessaline.add", 2));
    refused(OperationId("acme.add", 1));

    DenseNumericsProfile profile = tree_profile();
    profile.accumulation_type = ScalarType{99};
    const std::string unknown = "scalar_metadata - unknown scalar type";
    expect_error<std::invalid_argument>(
        [&] { builtin_dense_numerics(key_of("sum", "v > s"), profile); }, unknown);
    expect_error<std::invalid_argument>(
        [&] { builtin_dense_numerics(key_of("add", "v v > v", ScalarType{99}), tree_profile()); },
        unknown);
}

TEST(BackendEntryOfSteps, MakesAProcessOfOneNewStepEachTime) {
    struct Step final : BackendProcessStep {
        void execute(BackendExecutionSession&, BackendExecutionBindings&) override {}
    };
    const BackendEntry entry = backend_entry([] { return std::make_unique<Step>(); });
    const BackendProcess first = entry.materialise();
    const BackendProcess second = entry.materialise();
    EXPECT_EQ(first.size(), 1U);
    EXPECT_NE(first.retain_steps()->front(), second.retain_steps()->front());
}

TEST(CostExpressions, AreOneNodeEach) {
    const auto n = SymbolicExpression::symbol("n");
    EXPECT_EQ(product({n, n, n}).canonical(), "multiply(n,n,n)");
    EXPECT_EQ(sum({n, n}).canonical(), "add(n,n)");
    EXPECT_EQ(power(n, 3).canonical(), "power(n,3)");
    EXPECT_EQ(minimum(n, n).canonical(), "minimum(n,n)");
    EXPECT_EQ(maximum(n, n).canonical(), "maximum(n,n)");
    EXPECT_EQ(logarithm(n).canonical(), "log2(n)");
    expect_error<std::invalid_argument>([&] { product({n}); },
                                        "SymbolicExpression - operator has invalid arity");
}

} // namespace
} // namespace Tessaline
