// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_capabilities.h"

#include "backend/cpu/floating_operation.h"
#include "support/expect_error.h"
#include "support/key_storage.h"
#include "support/key_text.h"
#include "support/numerics_text.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

namespace Tessaline {
namespace {

using BackendRegistration::BuiltinCapability;
using BackendRegistration::floating_operations;
using Testing::expect_error;
using Testing::key_text;
using Testing::run_on_ones;
using Testing::summary;

/// The types of a policy's rows, as storage and compute type, by the letters of the table below.
struct Policy {
    DataTypeDescriptor type;
    const char* s; ///< the policy itself
    const char* c; ///< in compute precision
    const char* r; ///< real
    const char* z; ///< complex
};

const Policy policies[] = {
    {DataTypeDescriptor::from_scalar_types(ScalarType::Complex32, ScalarType::Complex64),
     "complex32/complex64", "complex64/complex64", "float32/float32", "complex64/complex64"},
    {DataTypeDescriptor::real_float16(), "float16/float32", "float32/float32", "float32/float32",
     "complex64/complex64"},
    {DataTypeDescriptor::real_bfloat16(), "bfloat16/float32", "float32/float32", "float32/float32",
     "complex64/complex64"},
    {DataTypeDescriptor::real_double(), "float64/float64", "float64/float64", "float64/float64",
     "complex128/complex128"},
    {DataTypeDescriptor::complex_double(), "complex128/complex128", "complex128/complex128",
     "float64/float64", "complex128/complex128"},
    {DataTypeDescriptor::real_float(), "float32/float32", "float32/float32", "float32/float32",
     "complex64/complex64"},
    {DataTypeDescriptor::complex_float(), "complex64/complex64", "complex64/complex64",
     "float32/float32", "complex64/complex64"},
};

/// Inputs > outputs in the order of indices: the kind, as in operand_text.h, and the type; i is
/// int32.
const char* const signatures[] = {
    "sqrt: vs > vs",
    "conjugate: > vs",
    "multiply: vs vs > vs",
    "add: vs vs > vs",
    "subtract: vs vs > vs",
    "sum: vs > ss",
    "scale: vs ss > vs",
    "divide: vs ss > vs",
    "transpose: ms > ms",
    "matmul: ms ms > ms",
    "matvec: ms vs > vs",
    "adjoint: ms > ms",
    "kron: ms ms > ms",
    "inner: vs vs > ss",
    "outer: vs vs > ms",
    "lu_factor: > ls",
    "solve: ls > vs",
    "logdet: ls > sz",
    "trace: ms > ss",
    "norm: vs > ss",
    "eig: ms > ez",
    "principal_eigenvector: ms > vz",
    "partial_trace_left: ms > ms",
    "partial_trace_right: ms > ms",
    "matrix_power: ms si > ms",
    "is_unitary: ms > si",
    "eye: > ms",
    "vector_equal: vs vs > si",
    "eigh: ms > vr mc",
    "eigvalsh: ms > vr",
    "slogdet: ms > sc sr",
    "logdet_positive_definite: ms > sr",
};

/// What key_text gives for a signature under a policy.
std::string expected_key(const std::string& signature, const Policy& policy) {
    std::istringstream words(signature);
    std::string word;
    words >> word;
    std::string text = "tessaline." + word.substr(0, word.size() - 1) + "@1:";
    const char* separator = " ";
    while (words >> word) {
        if (word == ">") {
            text += " >";
            separator = " ";
            continue;
        }
        const char kind = word[0];
        const std::string type = word[1] == 's'   ? policy.s
                                 : word[1] == 'c' ? policy.c
                                 : word[1] == 'r' ? policy.r
                                 : word[1] == 'z' ? policy.z
                                                  : "int32/int32";
        text += separator + std::string(1, kind) + " " + type;
        text += kind != 's' && type.starts_with("complex") ? " interleaved" : "";
        text += kind == 'm' ? " row" : kind == 'l' || kind == 'e' ? " column" : "";
        separator = ", ";
    }
    return text;
}

TEST(CpuFloatingCapabilities, AcceptTheOperandsOfEveryOperationInEveryPolicy) {
    for (const Policy& policy : policies) {
        const auto rows = cpu_floating_capabilities(policy.type);
        ASSERT_EQ(rows.size(), std::size(signatures));
        for (std::size_t index = 0; index < rows.size(); ++index) {
            EXPECT_EQ(key_text(rows[index].key), expected_key(signatures[index], policy));
            EXPECT_EQ(rows[index].key.op(), floating_operations[index].get());
            EXPECT_EQ(rows[index].key.backend(), BackendKind::cpu_simd);
        }
    }
}

TEST(CpuFloatingCapabilities, RefuseAPolicyWithoutKernels) {
    expect_error<std::invalid_argument>(
        [] { cpu_floating_capabilities(DataTypeDescriptor::real_int()); },
        "numeric policy is not compiled: int32 / int32");
    expect_error<std::invalid_argument>(
        [] {
            cpu_floating_capabilities(
                DataTypeDescriptor::from_scalar_types(ScalarType::Float32, ScalarType::Float64));
        },
        "numeric policy is not compiled: float32 / float64");
}

/// The numbers of one policy in the records: accumulation of dense rows and of `norm`, the working
/// type of structured solvers, and the tolerances of the eigensolver and of comparisons.
struct PolicyNumbers {
    const char* accumulation;
    const char* norm_accumulation;
    const char* mode;
    const char* working_type;
    const char* working_mode;
    double convergence;
    double residual;
    double absolute;
    double relative;
};

// In the order of `policies`.
const PolicyNumbers numbers[] = {
    {"complex64", "float32", "mixed", "complex128", "widened", 9.999999747378752e-05, 0.001,
     0.0009765625, 0.00390625},
    {"float32", "float32", "mixed", "float64", "widened", 9.999999747378752e-05, 0.001,
     0.0009765625, 0.00390625},
    {"float32", "float32", "mixed", "float64", "widened", 9.999999747378752e-05, 0.001, 0.0078125,
     0.03125},
    {"float64", "float64", "native", "float64", "native", 1.8626451021765827e-13,
     1.862645149230957e-12, 2.220446049250313e-16, 8.881784197001252e-16},
    {"complex128", "float64", "native", "complex128", "native", 1.8626451021765827e-13,
     1.862645149230957e-12, 2.220446049250313e-16, 8.881784197001252e-16},
    {"float32", "float32", "native", "float64", "widened", 9.999999747378752e-05, 0.001,
     9.999999974752427e-07, 9.999999747378752e-06},
    {"complex64", "float32", "native", "complex128", "widened", 9.999999747378752e-05, 0.001,
     9.999999974752427e-07, 9.999999747378752e-06},
};

ImplementationNumerics record_of(const std::vector<BuiltinCapability>& rows,
                                 const OperationId& operation) {
    const auto row = std::ranges::find_if(rows, [&operation](const BuiltinCapability& candidate) {
        return candidate.key.op() == operation;
    });
    return canonicalise_implementation_numerics(row->numerics.value(), row->key);
}

using Parameters = std::vector<AlgorithmParameter>;

TEST(CpuFloatingNumerics, SayInWhatEachPolicyComputes) {
    for (std::size_t index = 0; index < std::size(policies); ++index) {
        const auto rows = cpu_floating_capabilities(policies[index].type);
        SCOPED_TRACE(policies[index].s);
        const PolicyNumbers& policy = numbers[index];
        const auto expect_summary = [&](const OperationId& operation, const std::string& text) {
            EXPECT_EQ(summary(record_of(rows, operation)), text);
        };
        const std::string in_compute = std::string(policy.mode) + " in " + policy.accumulation;
        const std::string in_working =
            std::string(policy.working_mode) + " in " + policy.working_type + ", sequential";
        const std::string in_complex128 =
            std::string(policy.working_mode) + " in complex128, sequential";
        namespace Ids = BuiltinOperations;
        expect_summary(Ids::sum,
                       "cpu.sum_reduction: not_guaranteed, " + in_compute + ", sequential");
        expect_summary(Ids::norm, std::string("cpu.norm_reduction: not_guaranteed, ") +
                                      policy.mode + " in " + policy.norm_accumulation +
                                      ", sequential");
        expect_summary(Ids::matmul, "cpu.classical_gemm: conditionally_stable, " + in_compute +
                                        ", library_defined");
        expect_summary(Ids::matvec, "cpu.classical_gemv: conditionally_stable, " + in_compute +
                                        ", library_defined");
        expect_summary(Ids::conjugate, "cpu.conjugate: exact, exact in 0, not_applicable");
        expect_summary(Ids::lu_factor, "cpu.partial_pivoting_lu: conditionally_stable, " +
                                           in_compute + ", sequential");
        expect_summary(Ids::solve, "cpu.triangular_substitution: conditionally_stable, " +
                                       in_compute + ", sequential");
        expect_summary(Ids::logdet,
                       "cpu.lu_logdet: conditionally_stable, " + in_compute + ", sequential");
        expect_summary(Ids::eig, "cpu.balanced_shifted_qr: unknown, " + in_complex128);
        expect_summary(Ids::principal_eigenvector,
                       "cpu.balanced_shifted_qr.principal_selection: unknown, " + in_complex128);
        expect_summary(Ids::eigh, "cpu.hermitian_jacobi: conditionally_stable, " + in_working);
        expect_summary(Ids::eigvalsh, "cpu.hermitian_jacobi: conditionally_stable, " + in_working);
        expect_summary(Ids::slogdet,
                       "cpu.partial_pivoting_slogdet: conditionally_stable, " + in_working);
        expect_summary(Ids::logdet_positive_definite,
                       "cpu.cholesky_logdet: conditionally_stable, " + in_working);
        for (const OperationId& operation : {Ids::eig, Ids::principal_eigenvector}) {
            EXPECT_EQ(
                record_of(rows, operation).parameters,
                (Parameters{
                    {"convergence_tolerance", policy.convergence, "Relative deflation tolerance."},
                    {"maximum_iterations", std::int64_t{256}, "Per active dimension."},
                    {"residual_tolerance", policy.residual,
                     "Normalised right-eigenpair residual."}}));
        }
        for (const OperationId& operation : {Ids::is_unitary, Ids::vector_equal}) {
            const auto parameters = record_of(rows, operation).parameters;
            ASSERT_EQ(parameters.size(), 2U);
            EXPECT_EQ(std::get<double>(parameters[0].value), policy.absolute);
            EXPECT_EQ(std::get<double>(parameters[1].value), policy.relative);
        }
    }
}

/// Work, space, notes and parameters of a record in one text.
std::string words_of(const ImplementationNumerics& record) {
    std::string text =
        record.complexity.work.canonical() + " | " + record.complexity.auxiliary_space.canonical();
    for (const auto* notes : {&record.complexity.notes, &record.precision.notes, &record.notes}) {
        text += " |";
        for (const std::string& note : *notes) {
            text += " " + note;
        }
    }
    return text;
}

TEST(CpuFloatingNumerics, SayWhatSolversCost) {
    const auto rows = cpu_floating_capabilities(DataTypeDescriptor::real_double());
    const auto half = cpu_floating_capabilities(DataTypeDescriptor::real_float16());
    const std::string copied =
        "Input is copied before factorisation; real inputs use real working storage.";
    const std::string jacobi = "add(multiply(power(dim(0,0),3),sweeps),power(dim(0,0),2)) | "
                               "power(dim(0,0),2) | sweeps is bounded by maximum_sweeps. | | " +
                               copied;
    const std::string qr =
        "add(multiply(power(dim(0,0),3),iterations),power(dim(0,0),3)) | power(dim(0,0),2) | "
        "iterations is bounded by maximum_iterations times the number of non-trivial active "
        "dimensions. | | Real inputs are embedded in complex working storage; output precision "
        "follows the signature.";
    const std::string determinant = "power(dim(0,0),3) | power(dim(0,0),2) | | | " + copied;
    namespace Ids = BuiltinOperations;
    EXPECT_EQ(words_of(record_of(rows, Ids::eigh)), jacobi);
    EXPECT_EQ(words_of(record_of(rows, Ids::eigvalsh)), jacobi);
    EXPECT_EQ(words_of(record_of(rows, Ids::eig)), qr);
    EXPECT_EQ(words_of(record_of(rows, Ids::principal_eigenvector)), qr);
    EXPECT_EQ(words_of(record_of(rows, Ids::slogdet)), determinant);
    EXPECT_EQ(words_of(record_of(rows, Ids::logdet_positive_definite)), determinant);
    EXPECT_EQ(words_of(record_of(rows, Ids::lu_factor)),
              "power(dim(2147483648,0),3) | 0 | | Pivot selection and updates use native double "
              "precision. | Partial pivoting can exhibit growth for adversarial matrices.");
    const std::string solved = " precision. | Forward error depends on conditioning and the stored "
                               "LU factors.";
    EXPECT_EQ(words_of(record_of(rows, Ids::solve)),
              "power(dim(0,0),2) | 0 | | Triangular substitutions accumulate in native double" +
                  solved);
    EXPECT_EQ(words_of(record_of(half, Ids::solve)),
              "power(dim(0,0),2) | dim(0,0) | | Triangular substitutions accumulate in native "
              "single" +
                  solved);
    EXPECT_EQ(
        words_of(record_of(half, Ids::logdet)),
        "dim(0,0) | 0 | | The logarithms are evaluated in native single precision. | Accuracy "
        "degrades when diagonal factors are badly scaled.");
    EXPECT_EQ(record_of(rows, Ids::eigh).parameters,
              (Parameters{{"maximum_sweeps", std::int64_t{64},
                           "Cyclic Jacobi sweep limit, configured at build time."}}));
    EXPECT_THAT(record_of(half, Ids::matrix_power).precision.notes,
                ::testing::ElementsAre(
                    "Every matrix product accumulates in float32.",
                    "Intermediate matrices use the compute dtype; only the final output is "
                    "rounded."));
}

TEST(CpuFloatingCapabilities, KernelsTakeStorageOfTheirKeys) {
    for (const Policy& policy : policies) {
        for (const BuiltinCapability& row : cpu_floating_capabilities(policy.type)) {
            SCOPED_TRACE(row.key.op().name() + ", " + policy.s);
            const auto& key = row.key.inputs().empty() ? row.key.output() : row.key.get_input(0);
            if (key.kind == OperandKind::LuDecomp && key.storage != key.compute) {
                expect_error<std::invalid_argument>(
                    [&] { run_on_ones(row.key, row.entry); },
                    "CPU LU - factors must use their compute dtype");
            } else {
                EXPECT_NO_THROW(run_on_ones(row.key, row.entry));
            }
        }
    }
}

} // namespace
} // namespace Tessaline
