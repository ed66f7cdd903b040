// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/numerics_text.h"

#include <gtest/gtest.h>

namespace Tessaline {
namespace {

using namespace BackendRegistration;
using Testing::expect_error;
using Testing::key_of;

// The golden catalogue holds the records; here is what no row of it shows.
const DenseNumericsProfile tree_profile = Testing::made_up_profile(PrecisionMode::mixed, true);

TEST(BuiltinDenseNumerics, ComplexIntegersNeedAnIntermediateMatrixAsWell) {
    const auto space = [](ScalarType storage) {
        return builtin_dense_numerics(key_of("matmul", "m m > m", storage), tree_profile)
            .complexity.auxiliary_space.canonical();
    };
    EXPECT_EQ(space(ScalarType::ComplexInt32), "multiply(dim(2147483648,0),dim(2147483648,1))");
    EXPECT_EQ(space(ScalarType::Int32), "0");
}

TEST(BuiltinDenseNumerics, RefusesWhatItDoesNotDescribe) {
    const auto refused = [](const OperationId& id) {
        const BackendRegistryKey add = key_of("add", "v v > v");
        expect_error<std::logic_error>(
            [&] {
                builtin_dense_numerics({add.backend(), id, add.inputs(), add.output()},
                                       tree_profile);
            },
            "builtin_dense_numerics - unsupported built-in operation");
    };
    for (const char* name : {"lu_factor", "solve", "logdet", "eig", "principal_eigenvector", "eigh",
                             "eigvalsh", "slogdet", "logdet_positive_definite"}) {
        refused(OperationId(std::string("tessaline.") + name, 1));
    }
    refused(OperationId("tessaline.add", 2));
    refused(OperationId("acme.add", 1));

    DenseNumericsProfile profile = tree_profile;
    profile.accumulation_type = ScalarType{99};
    const std::string unknown = "scalar_metadata - unknown scalar type";
    expect_error<std::invalid_argument>(
        [&] { builtin_dense_numerics(key_of("sum", "v > s"), profile); }, unknown);
    expect_error<std::invalid_argument>(
        [&] { builtin_dense_numerics(key_of("add", "v v > v", ScalarType{99}), tree_profile); },
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

TEST(CostExpressions, SimplifyNothing) {
    const auto n = SymbolicExpression::symbol("n");
    EXPECT_EQ(sum({n, n, n}).canonical(), "add(n,n,n)");
    expect_error<std::invalid_argument>([&] { product({n}); },
                                        "SymbolicExpression - operator has invalid arity");
}

} // namespace
} // namespace Tessaline
