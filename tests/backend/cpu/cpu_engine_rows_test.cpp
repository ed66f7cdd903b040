// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_capabilities.h"
#include "backend/cpu/cpu_numerics.h"
#include "support/numerics_text.h"
#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/frontend/tessaline_context.h"

#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Testing::summary;
using Texts = std::vector<std::string>;

/// In canonical form.
template <typename Numerics>
ImplementationNumerics record(Numerics numerics, const char* name, const char* operands,
                              ScalarType storage) {
    const BackendRegistryKey key = Testing::key_of(name, operands, storage);
    return canonicalise_implementation_numerics(numerics(key), key);
}

ImplementationNumerics complex64(const char* name, const char* operands) {
    return record(CpuNumerics::complex64, name, operands, ScalarType::Complex64);
}

TEST(EngineNumerics, DifferByPolicy) {
    const auto float32 = [](const char* name, const char* operands) {
        return summary(record(CpuNumerics::float32, name, operands, ScalarType::Float32));
    };
    EXPECT_EQ(float32("add", "v v > v"),
              "simd.add: conditionally_stable, native in 0, not_applicable");
    EXPECT_EQ(float32("matmul", "m m > m"),
              "simd.classical_gemm: conditionally_stable, native in float32, library_defined");
    EXPECT_EQ(float32("sum", "v > s"),
              "simd.sum_reduction: not_guaranteed, native in float32, library_defined");

    const auto add = record(CpuNumerics::float16_float32, "add", "v v > v", ScalarType::Float16);
    EXPECT_EQ(summary(add), "cpu.add: conditionally_stable, mixed in float32, not_applicable");
    EXPECT_THAT(add.precision.notes,
                ElementsAre("Values are loaded from float16 storage, computed in float32, and "
                            "rounded once to the output storage type."));

    EXPECT_EQ(summary(complex64("inner", "v v > s")),
              "simd.conjugated_inner_product: not_guaranteed, native in complex64, "
              "library_defined");
    EXPECT_EQ(summary(complex64("norm", "v > s")),
              "simd.norm_reduction: not_guaranteed, native in float32, library_defined");
    EXPECT_EQ(summary(complex64("matvec", "m v > v")),
              "simd.classical_gemv: conditionally_stable, native in complex64, library_defined");
    const auto unitary = complex64("is_unitary", "m > s");
    EXPECT_EQ(std::get<double>(unitary.parameters[0].value), 9.999999974752427e-07);
    EXPECT_EQ(std::get<double>(unitary.parameters[1].value), 9.999999747378752e-06);
}

struct ExpectedSolver {
    const char* name;
    const char* operands;
    const char* summary;
    const char* work;
    const char* space;
    Texts complexity;
    Texts precision;
    Texts notes;
};

const ExpectedSolver solvers[] = {
    {"lu_factor",
     "> l",
     "simd.partial_pivoting: conditionally_stable, native in complex64, sequential",
     "power(dim(2147483648,0),3)",
     "0",
     {},
     {"Pivot selection and updates use native single precision."},
     {"Partial pivoting can exhibit growth for adversarial matrices."}},
    {"solve",
     "l > v",
     "simd.lu.forward_backward_substitution: conditionally_stable, native in complex64, sequential",
     "power(dim(0,0),2)",
     "dim(0,0)",
     {},
     {"Triangular substitutions accumulate in native single precision."},
     {"Forward error depends on conditioning and the stored LU factors."}},
    {"logdet",
     "l > s",
     "simd.lu_logdet: conditionally_stable, native in complex64, sequential",
     "dim(0,0)",
     "0",
     {},
     {"The logarithms are evaluated in native single precision."},
     {"Accuracy degrades when diagonal factors are badly scaled."}},
    {"eig",
     "m > e",
     "simd.balanced_shifted_qr_iteration.schur_back_substitution: unknown, widened in complex128, "
     "sequential",
     "add(multiply(power(dim(0,0),3),iterations),power(dim(0,0),3))",
     "power(dim(0,0),2)",
     {"iterations is bounded by maximum_iterations times the number of non-trivial active "
      "dimensions."},
     {"Returned complex64 pairs are validated with complex128 residual accumulation.",
      "Shifted QR, Schur-vector updates, triangular back substitution and balance reversal use "
      "complex128 before results are rounded to complex64.",
      "The complex64 matrix is balanced with reversible radix-two entry scaling before conversion "
      "to complex128."},
     {"Convergence and eigenvector accuracy are sensitive to non-normal, repeated or clustered "
      "spectra."}},
    {"principal_eigenvector",
     "m > v",
     "simd.power_iteration: not_guaranteed, native in complex64, library_defined",
     "multiply(power(dim(0,0),2),iterations)",
     "power(dim(0,0),2)",
     {"iterations is bounded by maximum_iterations."},
     {"Matrix-vector products and reductions use native complex single precision."},
     {"Convergence is not guaranteed for defective matrices or without a well-separated unique "
      "dominant eigenvalue."}},
};

TEST(EngineNumerics, DescribeTheSolversOfTheEngine) {
    for (const ExpectedSolver& expected : solvers) {
        SCOPED_TRACE(expected.name);
        const auto found = complex64(expected.name, expected.operands);
        EXPECT_EQ(summary(found), expected.summary);
        EXPECT_EQ(found.complexity.work.canonical(), expected.work);
        EXPECT_EQ(found.complexity.auxiliary_space.canonical(), expected.space);
        EXPECT_EQ(found.complexity.notes, expected.complexity);
        EXPECT_EQ(found.precision.notes, expected.precision);
        EXPECT_EQ(found.notes, expected.notes);
    }
    EXPECT_THAT(complex64("solve", "l > v").parameters, IsEmpty());
    using Parameters = std::vector<AlgorithmParameter>;
    EXPECT_EQ(complex64("eig", "m > e").parameters,
              (Parameters{{"convergence_tolerance", 9.999999747378752e-05,
                           "Trailing-row-and-column-relative deflation tolerance, guarded by "
                           "original-coordinate backward error."},
                          {"exceptional_shift_interval", std::int64_t{16},
                           "Number of non-deflating iterations between exceptional shifts."},
                          {"maximum_balance_sweeps", std::int64_t{32},
                           "Maximum number of radix-two matrix-balancing sweeps."},
                          {"maximum_iterations", std::int64_t{256},
                           "Maximum number of shifted QR iterations without deflation."},
                          {"residual_tolerance", 0.001,
                           "Maximum double-precision normalised right-eigenpair residual."}}));
    EXPECT_EQ(complex64("principal_eigenvector", "m > v").parameters,
              (Parameters{{"convergence_tolerance", 9.999999747378752e-06,
                           "Euclidean iterate-difference norm stopping tolerance."},
                          {"maximum_iterations", std::int64_t{512},
                           "Maximum power-iteration count per starting vector."}}));
}

TEST(RegisterCpuBackends, EngineRowsComeBeforeFloatingOnes) {
    BackendRegistry registry;
    const auto provenance = RegistrationProvenance::builtin("9.9");
    register_cpu_backends(registry, provenance);
    EXPECT_EQ(registry.size(), 7U * 32U);
    const auto numerics = [&registry](const BackendRegistryKey& key) {
        return registry.registrations().at(key).numerics();
    };
    for (const auto& [key, backend] : registry.registrations()) {
        EXPECT_EQ(key.backend(), BackendKind::cpu_simd);
        EXPECT_EQ(backend.provenance(), provenance);
        EXPECT_TRUE(backend.numerics().has_value());
    }
    for (const auto& row : CpuCapabilities<NumericPolicy<float, float>>::legacy_records()) {
        EXPECT_EQ(numerics(row.key)->algorithm, row.numerics->algorithm);
    }
    for (const auto& row : cpu_floating_capabilities(DataTypeDescriptor::real_double())) {
        EXPECT_EQ(numerics(row.key)->algorithm, row.numerics->algorithm);
    }
}

TEST(DefaultContext, DescribesEveryOperationInEveryPolicyAndEveryTimeAlike) {
    const TessalineContext context;
    const TessalineContext other;
    EXPECT_EQ(context.operations().size(), 32U);
    for (const OperationId& id : context.operations()) {
        EXPECT_EQ(context.describe(id).implementations.size(), 7U) << id.name();
        EXPECT_EQ(context.describe(id), other.describe(id)) << id.name();
    }
}

} // namespace
} // namespace Tessaline
