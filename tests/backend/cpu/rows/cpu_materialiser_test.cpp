// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_materialiser.h"

#include "backend/cpu/simd/kernels/engine_power_methods.h"
#include "backend/cpu/steps/cpu_layout_adaptation.h"
#include "backend/cpu/steps/deferred_planes.h"
#include "support/expect_error.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/execution/backend_execution_bindings.h"
#include "tessaline/execution/backend_execution_session.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_lu_decomp.h"
#include "tessaline/storage/storage_factory.h"

#include <gmock/gmock.h>
#include <variant>

namespace Tessaline {
namespace {

using Complex = std::complex<float>;
using ::testing::ElementsAre;

constexpr float epsilon = std::numeric_limits<float>::epsilon();

/// How elements of an operand lie. `adapted` ones are interleaved, with steps around the kernel's
/// that turn them into split ones.
enum class Form { real, half, integer, split, interleaved, adapted };

DataTypeDescriptor type_of(Form form) {
    const auto same = [](ScalarType type) {
        return DataTypeDescriptor::from_scalar_types(type, type);
    };
    switch (form) {
    case Form::half:
        return DataTypeDescriptor::from_scalar_types(ScalarType::Float16, ScalarType::Float32);
    case Form::integer:
        return same(ScalarType::Int32);
    case Form::real:
        return same(ScalarType::Float32);
    default:
        return same(ScalarType::Complex64);
    }
}

DataComplexLayout layout_of(Form form) {
    return form == Form::split                                  ? DataComplexLayout::split
           : form == Form::interleaved || form == Form::adapted ? DataComplexLayout::interleaved
                                                                : DataComplexLayout::none;
}

/// Scalars have no dimension, vectors one and matrices two. Matrices of the form `interleaved` are
/// column-major.
struct OperandCase {
    Form form;
    std::vector<std::uint64_t> shape;
    std::vector<Complex> elements;
};

OperandCase scalar(Form form, Complex value = {}) {
    return {form, {}, {value}};
}
OperandCase vector(Form form, std::vector<Complex> elements) {
    const std::uint64_t size = elements.size();
    return {form, {size}, std::move(elements)};
}
OperandCase matrix(Form form, std::uint64_t rows, std::vector<Complex> elements) {
    const std::uint64_t cols = elements.size() / rows;
    return {form, {rows, cols}, std::move(elements)};
}

/// Storage of an operand, seen as complex numbers.
class Operand {
  public:
    explicit Operand(const OperandCase& operand) : form_(operand.form), entity_(make(operand)) {
        visit_elements([&, i = std::size_t{0}](auto& real, auto* imag) mutable {
            const Complex value = operand.elements[i++];
            using Part = std::remove_reference_t<decltype(real)>;
            real = static_cast<Part>(value.real());
            if (imag != nullptr) {
                *imag = static_cast<Part>(value.imag());
            }
        });
    }

    std::vector<Complex> elements() {
        std::vector<Complex> result;
        visit_elements([&](auto& real, auto* imag) {
            result.emplace_back(static_cast<float>(real),
                                imag == nullptr ? 0.0F : static_cast<float>(*imag));
        });
        return result;
    }

    void bind(BackendExecutionBindings& bindings, OperandRole role) {
        std::visit([&](const auto& entity) { bindings.operands.insert(role, std::ref(*entity)); },
                   entity_);
        bindings.roles.push_back(role);
    }

  private:
    using Entity = std::variant<std::unique_ptr<ScalarEntity>, std::unique_ptr<VectorEntity>,
                                std::unique_ptr<MatrixEntity>>;

    static Entity make(const OperandCase& operand) {
        const auto type = type_of(operand.form);
        const auto complex = layout_of(operand.form);
        const auto& shape = operand.shape;
        const auto order = operand.form == Form::interleaved ? DataMatrixLayout::column_major
                                                             : DataMatrixLayout::row_major;
        switch (shape.size()) {
        case 0:
            return StorageFactory::host_scalar(type);
        case 1:
            return StorageFactory::host_vector(type, shape[0], complex);
        default:
            return StorageFactory::host_matrix(type, shape[0], shape[1], order, complex);
        }
    }

    /// Calls `visitor` with each element's parts; the second is null for a real element.
    template <typename Visitor>
    void visit_elements(Visitor&& visitor) {
        auto& buffers = std::visit(
            [](const auto& entity) -> ErasedBufferAccess& {
                return erased_buffers(*entity, "test operand");
            },
            entity_);
        const auto parts = [&]<typename Part>(Part*, std::uint64_t step) {
            const MutableBufferView first = buffers.buffer(0);
            auto* const real = static_cast<Part*>(first.data);
            auto* const imag = buffers.buffer_count() == 2
                                   ? static_cast<Part*>(buffers.buffer(1).data)
                               : step == 2 ? real + 1
                                           : nullptr;
            for (std::uint64_t i = 0; i < step * first.count; i += step) {
                visitor(real[i], imag == nullptr ? nullptr : imag + i);
            }
        };
        switch (form_) {
        case Form::half:
            return parts(static_cast<Float16*>(nullptr), 1);
        case Form::integer:
            return parts(static_cast<int*>(nullptr), 1);
        case Form::interleaved:
        case Form::adapted:
            return parts(static_cast<float*>(nullptr), 2);
        default:
            return parts(static_cast<float*>(nullptr), 1);
        }
    }

    Form form_;
    Entity entity_;
};

struct StepCase {
    CpuMaterialiser::Step (*make)();
    std::vector<OperandCase> operands; ///< the output last, with its contents before the step
    std::vector<Complex> expected;
};

/// A step between those that adapt the operands of some roles.
class AdaptedRun {
  public:
    /// Interleaved operands become split ones.
    void adapt(BackendExecutionBindings& bindings, OperandRole role, bool keeps_contents) {
        const OperandDescriptor operand = describe_operand(role, bindings.operands.at(role));
        BackendOperandKey planes = operand_key_for(operand);
        planes.complex = DataComplexLayout::split;
        before_.push_back(adapt_cpu_layout(role, planes, keeps_contents, false));
        if (is_output_role(role)) {
            after_.push_back(adapt_cpu_layout(role, planes, true, true));
        }
    }

    /// Whether planes were made of an adapted operand.
    bool run(BackendProcessStep& step, BackendExecutionBindings& bindings) {
        BackendExecutionSession session;
        const auto execute_all = [&](auto& steps) {
            for (const auto& each : steps) {
                each->execute(session, bindings);
            }
        };
        execute_all(before_);
        step.execute(session, bindings);
        bool made_planes = false;
        for (const OperandRole role : bindings.roles) {
            const OperandBinding& bound = bindings.operands.at(role);
            if (!bindings.adapted_origins(role).empty()) {
                made_planes |= operand_kind(bound) == OperandKind::Vector
                                   ? deferred_origin<VectorEntity, float>(bound) == nullptr
                                   : deferred_origin<MatrixEntity, float>(bound) == nullptr;
            }
        }
        execute_all(after_);
        return made_planes;
    }

  private:
    std::vector<std::unique_ptr<BackendProcessStep>> before_;
    std::vector<std::unique_ptr<BackendProcessStep>> after_;
};

/// Runs a step on operands whose elements are small integers, so that every engine is exact.
/// Returns whether planes were made of adapted operands.
bool expect_run(const StepCase& one) {
    std::vector<Operand> operands(one.operands.begin(), one.operands.end());
    BackendExecutionBindings bindings;
    AdaptedRun run;
    const std::size_t inputs = operands.size() - 1;
    for (std::size_t i = 0; i <= inputs; ++i) {
        const OperandRole role = i == inputs ? output_role(0) : input_role(i);
        operands[i].bind(bindings, role);
        if (one.operands[i].form == Form::adapted) {
            run.adapt(bindings, role, i < inputs || inputs == 0);
        }
    }
    const bool made_planes = run.run(*one.make(), bindings);
    EXPECT_THAT(operands.back().elements(), ::testing::ElementsAreArray(one.expected));
    return made_planes;
}

/// Kernels that take planes only.
constexpr std::string_view plane_kernels[] = {
    "is_unitary_host_complex_split_float_rowmaj",
    "matrix_exp_host_complex_split_float_rowmaj",
};

/// The same, with split operands and with each choice among them of adapted ones. Planes are made
/// unless all are adapted and the kernel takes them as they are.
void expect_step(const char* name, CpuMaterialiser::Step (*make)(),
                 std::vector<OperandCase> operands, const OperandCase& output,
                 const std::vector<Complex>& expected) {
    SCOPED_TRACE(name);
    operands.push_back(output);
    std::vector<std::size_t> split;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        if (operands[i].form == Form::split && !operands[i].shape.empty()) {
            split.push_back(i);
        }
    }
    const std::size_t choices = std::size_t{1} << split.size();
    for (std::size_t choice = 0; choice < choices; ++choice) {
        SCOPED_TRACE(choice);
        StepCase adapted{make, operands, expected};
        for (std::size_t i = 0; i < split.size(); ++i) {
            if ((choice >> i & 1U) != 0) {
                adapted.operands[split[i]].form = Form::adapted;
            }
        }
        const bool spares_planes =
            choice == 0 || (choice == choices - 1 && std::ranges::count(plane_kernels, name) == 0);
        EXPECT_EQ(expect_run(adapted), !spares_planes);
    }
}

#define STEP(name) #name, &CpuMaterialiser::name

const Complex i(0, 1);
const OperandCase r3 = vector(Form::real, {1, 2, 3});
const OperandCase s3 = vector(Form::split, {1, i, 2.0F + i});
const OperandCase t3 = vector(Form::split, {i, i, 3});
const OperandCase s2x2 = matrix(Form::split, 2, {1, i, 2, 3});
const OperandCase to_r3 = vector(Form::real, {9, 9, 9});
const OperandCase to_s3 = vector(Form::split, {9, 9, 9});
const OperandCase to_s2x2 = matrix(Form::split, 2, {9, 9, 9, 9});

TEST(CpuMaterialiserTest, ElementwiseStepsReachTheirKernels) {
    expect_step(STEP(sqrt_host_dense_complex_split_float_vect),
                {vector(Form::split, {4, -9, 2.0F * i})}, to_s3, {2, 3.0F * i, 1.0F + i});
    expect_step(STEP(conj_host_dense_complex_split_float_vect), {}, s3, {1, -i, 2.0F - i});
    expect_step(STEP(mul_host_dense_real_float_vect), {r3, r3}, to_r3, {1, 4, 9});
    expect_step(STEP(mul_host_dense_complex_split_float_vect), {s3, t3}, to_s3,
                {i, -1, 6.0F + 3.0F * i});
    expect_step(STEP(add_host_dense_real_float_vect), {r3, r3}, to_r3, {2, 4, 6});
    expect_step(STEP(add_host_dense_real_float16_vect),
                {vector(Form::half, {1, 2048, -3}), vector(Form::half, {1, 1, 5})},
                vector(Form::half, {9, 9, 9}), {2, 2048, 2});
    expect_step(STEP(add_host_dense_complex_split_float_vect), {s3, t3}, to_s3,
                {1.0F + i, 2.0F * i, 5.0F + i});
    expect_step(STEP(sub_host_dense_real_float_vect), {r3, vector(Form::real, {4, 2, 1})}, to_r3,
                {-3, 0, 2});
    expect_step(STEP(sub_host_dense_complex_split_float_vect), {s3, t3}, to_s3,
                {1.0F - i, 0, -1.0F + i});
    expect_step(STEP(scale_host_dense_real_kv_float_vect), {r3, scalar(Form::real, -2)}, to_r3,
                {-2, -4, -6});
    expect_step(STEP(scale_host_dense_complex_split_kp_float_vect), {s3, scalar(Form::split, i)},
                to_s3, {i, -1, -1.0F + 2.0F * i});
    expect_step(STEP(divide_host_dense_complex_split_float_vect),
                {s3, scalar(Form::split, 2.0F * i)}, to_s3, {-0.5F * i, 0.5F, 0.5F - i});
}

TEST(CpuMaterialiserTest, ReductionStepsReachTheirKernels) {
    const auto to_complex = scalar(Form::split, 9);
    const auto to_integer = scalar(Form::integer, 9);
    expect_step(STEP(sum_host_dense_real_float_vect), {r3}, scalar(Form::real, 9), {6});
    expect_step(STEP(sum_host_dense_complex_split_float_vect), {s3}, to_complex, {3.0F + 2.0F * i});
    expect_step(STEP(innerprod_host_dense_complex_split_float_vect), {s3, t3}, to_complex,
                {7.0F - 2.0F * i});
    expect_step(STEP(trace_host_dense_complex_split_float), {s2x2}, to_complex, {4});
    expect_step(STEP(norm_host_dense_complex_split_float),
                {vector(Form::split, {2.0F + i, 2.0F * i})}, to_complex, {3});
    expect_step(STEP(is_unitary_host_complex_split_float_rowmaj),
                {matrix(Form::split, 2, {0, i, 1, 0})}, to_integer, {1});
    expect_step(STEP(vector_equal_host_complex_split_float), {s3, t3}, to_integer, {0});
    expect_step(STEP(vector_equal_host_complex_split_float), {s3, s3}, to_integer, {1});
}

TEST(CpuMaterialiserTest, MatrixStepsReachTheirKernels) {
    const auto s2x3 = matrix(Form::split, 2, {1, 2, i, 3, 4, 5});
    const auto to_s3x2 = matrix(Form::split, 3, {9, 9, 9, 9, 9, 9});
    const auto s2 = vector(Form::split, {1, i});
    const auto to_s2 = vector(Form::split, {9, 9});
    const auto s4x4 =
        matrix(Form::split, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, i});
    expect_step(STEP(transpose_host_dense_complex_split_float), {s2x3}, to_s3x2,
                {1, 3, 2, 4, i, 5});
    expect_step(STEP(adjoint_host_dense_complex_split_float), {s2x3}, to_s3x2, {1, 3, 2, 4, -i, 5});
    expect_step(STEP(matmul_host_dense_complex_split_float_rowmaj), {s2x2, s2x2}, to_s2x2,
                {1.0F + 2.0F * i, 4.0F * i, 8, 9.0F + 2.0F * i});
    expect_step(STEP(matmul_host_dense_real_float_rowmaj),
                {matrix(Form::real, 1, {1, 2}), matrix(Form::real, 2, {3, 4, 5, 6})},
                matrix(Form::real, 1, {9, 9}), {13, 16});
    expect_step(STEP(matvec_host_dense_complex_split_float_rowmaj), {s2x2, s2}, to_s2,
                {0, 2.0F + 3.0F * i});
    expect_step(STEP(kroneckerprod_host_dense_complex_split_float_rowmaj),
                {matrix(Form::split, 1, {1, i}), matrix(Form::split, 2, {2, i})}, to_s2x2,
                {2, 2.0F * i, i, -1});
    expect_step(STEP(outerprod_host_dense_complex_split_float_vect), {s2, s2}, to_s2x2,
                {1, i, i, -1});
    expect_step(STEP(partialtrace_left_host_complex_split_float_rowmaj), {s4x4}, to_s2x2,
                {12, 14, 20, 6.0F + i});
    expect_step(STEP(partialtrace_right_host_complex_split_float_rowmaj), {s4x4}, to_s2x2,
                {7, 11, 23, 11.0F + i});
    expect_step(STEP(matrix_exp_host_complex_split_float_rowmaj), {s2x2, scalar(Form::integer, 2)},
                to_s2x2, {1.0F + 2.0F * i, 4.0F * i, 8, 9.0F + 2.0F * i});
    expect_step(STEP(identity_host_complex_split_float_rowmaj), {}, to_s2x2, {1, 0, 0, 1});
}

TEST(CpuMaterialiserTest, TheExponentIsReadAsUnsigned) {
    // 2^32 - 1 is odd, and only the sign of the eigenvalue -1 remembers that.
    expect_step(STEP(matrix_exp_host_complex_split_float_rowmaj),
                {matrix(Form::split, 2, {-1, 0, 0, 1}), scalar(Form::integer, -1)}, to_s2x2,
                {-1, 0, 0, 1});
}

/// Bindings for the solvers, and their runs.
class CpuSolverStepsTest : public ::testing::Test {
  protected:
    using LuDecomp = DenseHostLUDecompColMajor<long, Complex, Complex>;

    template <typename Entity>
    void bind(OperandRole role, Entity& entity) {
        bindings_.operands.insert_or_assign(role, std::ref(entity));
        bindings_.roles.push_back(role);
    }
    void run(CpuMaterialiser::Step step) {
        BackendExecutionSession session;
        step->execute(session, bindings_);
    }

    /// Factors of [[1, i], [2, 4]], which take one swap.
    static std::unique_ptr<LuDecompEntity> matrix_in_lu() {
        auto lu = StorageFactory::host_lu(type_of(Form::split), 2);
        auto& factors = dynamic_cast<LuDecomp&>(*lu);
        const Complex columns[] = {1, 2, i, 4};
        std::copy_n(columns, 4, factors.factors());
        return lu;
    }

    BackendExecutionBindings bindings_;
};

TEST_F(CpuSolverStepsTest, FactorsServeSolveAndLogdet) {
    const auto lu = matrix_in_lu();
    bind(output_role(0), static_cast<LuDecompEntity&>(*lu));
    run(CpuMaterialiser::lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj());
    const auto& factors = dynamic_cast<const LuDecomp&>(*lu);
    EXPECT_EQ(*factors.swap_count(), 1U);
    EXPECT_THAT(std::vector(factors.pivots(), factors.pivots() + 2), ElementsAre(2, 2));
    EXPECT_THAT(std::vector(factors.factors(), factors.factors() + 4),
                ElementsAre(Complex(2), Complex(0.5F), Complex(4), -2.0F + i));

    BackendExecutionBindings solving;
    Operand b(vector(Form::split, {2.0F + i, 8}));
    solving.operands.insert(input_role(0), std::ref(*lu));
    b.bind(solving, output_role(0));
    BackendExecutionSession session;
    CpuMaterialiser::solve_host_dense_complex_interleaved_int64_cfloat_colmaj()->execute(session,
                                                                                         solving);
    const Complex x = b.elements()[0];
    const Complex y = b.elements()[1];
    // Of backward error 10 n rounding units: the norms of the matrix and of the solution.
    const float size = std::sqrt(22 * (std::norm(x) + std::norm(y)));
    for (const Complex residual : {x + i * y - (2.0F + i), 2.0F * x + 4.0F * y - 8.0F}) {
        EXPECT_LE(std::abs(residual), 10 * 2 * epsilon / 2 * size);
    }

    BackendExecutionBindings logdet;
    Operand result(scalar(Form::split));
    logdet.operands.insert(input_role(0), std::ref(*lu));
    result.bind(logdet, output_role(0));
    CpuMaterialiser::logdet_host_dense_complex_interleaved_int64_cuFloat_colmaj()->execute(session,
                                                                                           logdet);
    // Both factors and their logarithms are rounded, and so is the sum of those.
    const Complex determinant(4, -2);
    EXPECT_LE(std::abs(std::exp(result.elements()[0]) - determinant),
              5 * epsilon * std::abs(determinant) * std::abs(std::log(determinant)));
}

TEST_F(CpuSolverStepsTest, EigenStepsTakeColumnMajorMatrices) {
    // [[2, 1], [0, 1]]: the eigenvector of 1 is (1, -1) over root 2.
    Operand a(matrix(Form::interleaved, 2, {2, 0, 1, 1}));
    a.bind(bindings_, input_role(0));
    const auto eigen =
        StorageFactory::host_eigen(type_of(Form::split), 2, DataMatrixLayout::column_major);
    bind(output_role(0), *eigen);
    run(CpuMaterialiser::eigen_host_dense_complex_interleaved_cf32_colmaj());
    const auto& set = dynamic_cast<const HostEigenVals<Complex, Complex>&>(*eigen);
    EXPECT_THAT(std::vector(set.eigenvalues(), set.eigenvalues() + 2),
                ElementsAre(Complex(2), Complex(1)));
    // Each was rounded once to single precision.
    EXPECT_LE(std::abs(set.eigenvectors()[2] + set.eigenvectors()[3]), epsilon);

    BackendExecutionBindings power;
    Operand principal(vector(Form::interleaved, {9, 9}));
    a.bind(power, input_role(0));
    principal.bind(power, output_role(0));
    BackendExecutionSession session;
    CpuMaterialiser::principal_eigenvect_host_complex_interleaved_cf32_colmaj()->execute(session,
                                                                                         power);
    // Each step halves the distance, so that what is left is no more than the last step was.
    const float distance = EnginePowerMethods::convergence_tolerance + 2 * epsilon;
    EXPECT_LE(std::abs(principal.elements()[0] - 1.0F), distance);
    EXPECT_LE(std::abs(principal.elements()[1]), distance);
}

TEST_F(CpuSolverStepsTest, FailuresOfTheEngineReachTheCaller) {
    const auto lu = StorageFactory::host_lu(type_of(Form::split), 2);
    bind(output_role(0), static_cast<LuDecompEntity&>(*lu));
    Testing::expect_error<SolverError>(
        [&] {
            run(CpuMaterialiser::lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj());
        },
        "SimdEngine::lu_decomp - singular matrix");
    Operand b(vector(Form::split, {1, 2, 3}));
    bind(input_role(0), static_cast<LuDecompEntity&>(*lu));
    bindings_.operands.erase(output_role(0));
    b.bind(bindings_, output_role(0));
    Testing::expect_error<std::invalid_argument>(
        [&] { run(CpuMaterialiser::solve_host_dense_complex_interleaved_int64_cfloat_colmaj()); },
        "SimdEngine::solve - incompatible RHS size");
}

TEST_F(CpuSolverStepsTest, StorageOfAnotherElementIsRefused) {
    const auto doubles =
        DataTypeDescriptor::from_scalar_types(ScalarType::Complex128, ScalarType::Complex128);
    const auto lu = StorageFactory::host_lu(doubles, 2);
    bind(output_role(0), static_cast<LuDecompEntity&>(*lu));
    EXPECT_THROW(
        run(CpuMaterialiser::lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj()),
        std::bad_cast);
    const auto eigen = StorageFactory::host_eigen(doubles, 2, DataMatrixLayout::column_major);
    Operand a(matrix(Form::interleaved, 2, {2, 0, 1, 1}));
    a.bind(bindings_, input_role(0));
    bind(output_role(0), *eigen);
    EXPECT_THROW(run(CpuMaterialiser::eigen_host_dense_complex_interleaved_cf32_colmaj()),
                 std::bad_cast);
    bindings_.operands.insert_or_assign(output_role(0),
                                        ConstOperandEntityRef<EigenValsEntity>(*eigen));
    EXPECT_THROW(run(CpuMaterialiser::eigen_host_dense_complex_interleaved_cf32_colmaj()),
                 std::bad_variant_access);
}

} // namespace
} // namespace Tessaline
