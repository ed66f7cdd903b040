// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_capabilities.h"
#include "backend/cpu/cpu_numerics.h"
#include "support/key_storage.h"
#include "support/key_text.h"
#include "support/numerics_text.h"
#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/catalogue/builtin_operations.h"
#include "tessaline/frontend/tessaline_context.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

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

// Operands by their kind; i is an integer scalar, capitals are interleaved.
const Texts float32_rows = {
    "multiply: v, v > v", "add: v, v > v",   "subtract: v, v > v",
    "sum: v > s",         "scale: v, s > v", "matmul: m, m > m",
};
const Texts complex64_rows = {
    "sqrt: v > v",
    "conjugate: > v",
    "multiply: v, v > v",
    "add: v, v > v",
    "subtract: v, v > v",
    "sum: v > s",
    "scale: v, s > v",
    "divide: v, s > v",
    "transpose: m > m",
    "matmul: m, m > m",
    "matvec: m, v > v",
    "adjoint: m > m",
    "kron: m, m > m",
    "inner: v, v > s",
    "outer: v, v > m",
    "lu_factor: > l",
    "solve: l > v",
    "logdet: l > s",
    "trace: m > s",
    "norm: v > s",
    "eig: M > e",
    "principal_eigenvector: M > V",
    "partial_trace_left: m > m",
    "partial_trace_right: m > m",
    "matrix_power: m, i > m",
    "is_unitary: m > i",
    "eye: > m",
    "vector_equal: v, v > i",
};

/// Checks keys and numerics of a policy's rows, and that their kernels take storage of their keys.
template <typename Policy>
void expect_rows(const Texts& expected, const std::map<char, std::string>& operands,
                 const char* algorithm_prefix) {
    const auto rows = CpuCapabilities<Policy>::legacy_records();
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const std::size_t colon = expected[index].find(':');
        std::string text = "tessaline." + expected[index].substr(0, colon) + "@1:";
        for (const char symbol : expected[index].substr(colon + 1)) {
            const auto operand = operands.find(symbol);
            text += operand == operands.end() ? std::string(1, symbol) : operand->second;
        }
        EXPECT_EQ(Testing::key_text(rows[index].key), text);
        EXPECT_TRUE(rows[index].numerics->algorithm.starts_with(algorithm_prefix)) << text;
        EXPECT_NO_THROW(Testing::run_on_ones(rows[index].key, rows[index].entry)) << text;
    }
}

TEST(EngineRows, AcceptRealViewsAndSplitPlanes) {
    expect_rows<NumericPolicy<Float16, float>>({"add: v, v > v"}, {{'v', "v float16/float32"}},
                                               "cpu.");
    expect_rows<NumericPolicy<float, float>>(
        float32_rows,
        {{'v', "v float32/float32"}, {'m', "m float32/float32 row"}, {'s', "s float32/float32"}},
        "simd.");
    expect_rows<NumericPolicy<std::complex<float>, std::complex<float>>>(
        complex64_rows,
        {{'v', "v complex64/complex64 split"},
         {'m', "m complex64/complex64 split row"},
         {'s', "s complex64/complex64"},
         {'V', "v complex64/complex64 interleaved"},
         {'M', "m complex64/complex64 interleaved column"},
         {'l', "l complex64/complex64 interleaved column"},
         {'e', "e complex64/complex64 interleaved column"},
         {'i', "s int32/int32"}},
        "simd.");
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
    for (const auto& [key, backend] : registry.registrations()) {
        EXPECT_EQ(key.backend(), BackendKind::cpu_simd);
        EXPECT_EQ(backend.provenance(), provenance);
        EXPECT_TRUE(backend.numerics().has_value());
    }
    // The engine leaves these four of complex64 to the floating kernels.
    for (const OperationId& operation :
         {BuiltinOperations::eigh, BuiltinOperations::eigvalsh, BuiltinOperations::slogdet,
          BuiltinOperations::logdet_positive_definite}) {
        const auto is_wanted = [&operation](const auto& row) {
            const auto& [key, backend] = row;
            return key.op() == operation && key.get_input(0).storage == ScalarType::Complex64;
        };
        EXPECT_EQ(std::ranges::count_if(registry.registrations(), is_wanted), 1)
            << operation.name();
    }
    for (const auto& row : CpuCapabilities<
             NumericPolicy<std::complex<float>, std::complex<float>>>::legacy_records()) {
        const auto found = registry.registrations().find(row.key);
        ASSERT_NE(found, registry.registrations().end()) << row.key.op().name();
        EXPECT_EQ(found->second.numerics()->algorithm, row.numerics->algorithm);
    }
}

TEST(RegisterCpuBackends, InterleavedOperandsReachEveryOperationInEveryPolicy) {
    OperationRegistry operations;
    register_builtin_operations(operations, RegistrationProvenance::builtin("9.9"));
    operations.seal();
    BackendRegistry registry;
    register_cpu_backends(registry, RegistrationProvenance::builtin("9.9"));
    registry.seal(operations);
    BackendAdaptationRegistry adaptations;
    register_cpu_adaptations(adaptations);
    for_each_numeric_policy([&]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer) {
            for (const auto& [key, entry, numerics] : cpu_floating_capabilities(Policy::type())) {
                const auto match =
                    registry.find(operations.operation(key.op()).handle(), BackendKind::cpu_simd,
                                  key.inputs(), key.outputs(), adaptations);
                ASSERT_TRUE(match.has_value()) << Testing::key_text(key);
                EXPECT_EQ(match->exact(), registry.registrations().contains(key));
            }
        }
    });
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
