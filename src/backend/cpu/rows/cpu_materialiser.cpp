// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_materialiser.h"

#include "backend/cpu/engine/x86_simd_engine.h"
#include "backend/cpu/steps/launch_in_either_form.h"
#include "tessaline/backend/cpu/cpu_structured_operand_views.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"
#include "tessaline/storage/host_entities.h"

namespace Tessaline {

namespace {

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole out0{operand_role_limit};

using Complex64 = std::complex<float>;

// What a kernel takes in a role: inputs are read, outputs written.
template <OperandRole Role, typename Element = float>
using RealScalar =
    BoundRealScalarView<BoundRealScalarEntity<Element, Element>, Role, !is_output_role(Role)>;
template <OperandRole Role>
using ComplexScalar =
    BoundComplexScalarView<BoundComplexScalarEntity<float, float>, Role, !is_output_role(Role)>;
template <OperandRole Role, typename Element = float>
using RealVector =
    BoundDenseRealVectorView<DenseHostRealVector<Element, float>, Role, !is_output_role(Role)>;
template <OperandRole Role>
using SplitVector = BoundDenseComplexSplitVectorView<DenseHostComplexSplitVector<float, float>,
                                                     Role, !is_output_role(Role)>;
template <OperandRole Role>
using RealMatrix = BoundDenseRealMatrixView<DenseHostRealMatrixRowMajor<float, float>, Role,
                                            !is_output_role(Role)>;
template <OperandRole Role>
using SplitMatrix =
    BoundDenseComplexSplitMatrixView<DenseHostComplexSplitMatrixRowMajor<float, float>, Role,
                                     !is_output_role(Role)>;

template <OperandRole Role>
using InterleavedVector =
    BoundDenseComplexIntlvVectorView<DenseHostComplexIntlvVector<Complex64, Complex64>, Role,
                                     !is_output_role(Role)>;
template <OperandRole Role>
using InterleavedMatrix =
    BoundDenseComplexIntlvMatrixView<DenseHostComplexIntlvMatrixColMajor<Complex64, Complex64>,
                                     Role, !is_output_role(Role)>;
using LuDecomp = DenseHostLUDecompColMajor<long, Complex64, Complex64>;
using EigenVals = HostEigenVals<Complex64, Complex64>;

/// A kernel with the operands of these binders, by which it is picked among its overloads.
template <typename... Binders>
using KernelOf = void (*)(
    std::unwrap_reference_t<decltype(Binders::get(std::declval<BackendExecutionBindings&>()))>...);

template <typename... Binders>
CpuMaterialiser::Step step_of(KernelOf<Binders...> kernel) {
    return launch_cpu_kernel<Binders...>(kernel);
}

/// A step whose kernel is there for split and for interleaved operands.
template <typename... Binders>
CpuMaterialiser::Step step_in_either_form(KernelOf<Binders...> split,
                                          KernelOf<InterleavedBinder<Binders>...> interleaved) {
    return std::make_unique<LaunchInEitherFormStep<
        KernelOf<Binders...>, KernelOf<InterleavedBinder<Binders>...>, Binders...>>(split,
                                                                                    interleaved);
}

} // namespace

CpuMaterialiser::Step CpuMaterialiser::sqrt_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<out0>>(&SimdEngine::sqrt,
                                                                    &SimdEngine::sqrt);
}

CpuMaterialiser::Step CpuMaterialiser::conj_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<out0>>(&SimdEngine::conj, &SimdEngine::conj);
}

CpuMaterialiser::Step CpuMaterialiser::mul_host_dense_real_float_vect() {
    return step_of<RealVector<in0>, RealVector<in1>, RealVector<out0>>(&SimdEngine::mul);
}

CpuMaterialiser::Step CpuMaterialiser::mul_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, SplitVector<out0>>(
        &SimdEngine::mul, &SimdEngine::mul);
}

CpuMaterialiser::Step CpuMaterialiser::add_host_dense_real_float_vect() {
    return step_of<RealVector<in0>, RealVector<in1>, RealVector<out0>>(&SimdEngine::add);
}

CpuMaterialiser::Step CpuMaterialiser::add_host_dense_real_float16_vect() {
    return step_of<RealVector<in0, Float16>, RealVector<in1, Float16>, RealVector<out0, Float16>>(
        &SimdEngine::add);
}

CpuMaterialiser::Step CpuMaterialiser::add_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, SplitVector<out0>>(
        &SimdEngine::add, &SimdEngine::add);
}

CpuMaterialiser::Step CpuMaterialiser::sub_host_dense_real_float_vect() {
    return step_of<RealVector<in0>, RealVector<in1>, RealVector<out0>>(&SimdEngine::sub);
}

CpuMaterialiser::Step CpuMaterialiser::sub_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, SplitVector<out0>>(
        &SimdEngine::sub, &SimdEngine::sub);
}

CpuMaterialiser::Step CpuMaterialiser::sum_host_dense_real_float_vect() {
    return step_of<RealVector<in0>, RealScalar<out0>>(&SimdEngine::sum);
}

CpuMaterialiser::Step CpuMaterialiser::sum_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, ComplexScalar<out0>>(&SimdEngine::sum,
                                                                      &SimdEngine::sum);
}

CpuMaterialiser::Step CpuMaterialiser::scale_host_dense_real_kv_float_vect() {
    return step_of<RealVector<in0>, RealScalar<in1>, RealVector<out0>>(&SimdEngine::scale);
}

CpuMaterialiser::Step CpuMaterialiser::scale_host_dense_complex_split_kp_float_vect() {
    return step_in_either_form<SplitVector<in0>, ComplexScalar<in1>, SplitVector<out0>>(
        &SimdEngine::scale, &SimdEngine::scale);
}

CpuMaterialiser::Step CpuMaterialiser::divide_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, ComplexScalar<in1>, SplitVector<out0>>(
        &SimdEngine::divide, &SimdEngine::divide);
}

CpuMaterialiser::Step CpuMaterialiser::transpose_host_dense_complex_split_float() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<out0>>(&SimdEngine::transpose,
                                                                    &SimdEngine::transpose);
}

CpuMaterialiser::Step CpuMaterialiser::matmul_host_dense_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<in1>, SplitMatrix<out0>>(
        &SimdEngine::matmul, &SimdEngine::matmul);
}

CpuMaterialiser::Step CpuMaterialiser::matmul_host_dense_real_float_rowmaj() {
    return step_of<RealMatrix<in0>, RealMatrix<in1>, RealMatrix<out0>>(&SimdEngine::matmul);
}

CpuMaterialiser::Step CpuMaterialiser::matvec_host_dense_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<in0>, SplitVector<in1>, SplitVector<out0>>(
        &SimdEngine::matvec, &SimdEngine::matvec);
}

CpuMaterialiser::Step CpuMaterialiser::adjoint_host_dense_complex_split_float() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<out0>>(&SimdEngine::adjoint,
                                                                    &SimdEngine::adjoint);
}

CpuMaterialiser::Step CpuMaterialiser::kroneckerprod_host_dense_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<in1>, SplitMatrix<out0>>(
        &SimdEngine::kroneckerprod, &SimdEngine::kroneckerprod);
}

CpuMaterialiser::Step CpuMaterialiser::innerprod_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, ComplexScalar<out0>>(
        &SimdEngine::innerprod, &SimdEngine::innerprod);
}

CpuMaterialiser::Step CpuMaterialiser::outerprod_host_dense_complex_split_float_vect() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, SplitMatrix<out0>>(
        &SimdEngine::outerprod, &SimdEngine::outerprod);
}

CpuMaterialiser::Step
CpuMaterialiser::lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj() {
    return step_of<BoundHostLUDecompView<LuDecomp, out0>>(&SimdEngine::lu_decomp);
}

CpuMaterialiser::Step CpuMaterialiser::solve_host_dense_complex_interleaved_int64_cfloat_colmaj() {
    return step_of<BoundConstHostLUDecompView<LuDecomp, in0>, SplitVector<out0>>(
        &SimdEngine::solve);
}

CpuMaterialiser::Step
CpuMaterialiser::logdet_host_dense_complex_interleaved_int64_cuFloat_colmaj() {
    return step_of<BoundConstHostLUDecompView<LuDecomp, in0>, ComplexScalar<out0>>(
        &SimdEngine::logdet);
}

CpuMaterialiser::Step CpuMaterialiser::trace_host_dense_complex_split_float() {
    return step_in_either_form<SplitMatrix<in0>, ComplexScalar<out0>>(&SimdEngine::trace,
                                                                      &SimdEngine::trace);
}

CpuMaterialiser::Step CpuMaterialiser::norm_host_dense_complex_split_float() {
    return step_in_either_form<SplitVector<in0>, ComplexScalar<out0>>(&SimdEngine::norm,
                                                                      &SimdEngine::norm);
}

CpuMaterialiser::Step CpuMaterialiser::eigen_host_dense_complex_interleaved_cf32_colmaj() {
    return step_of<InterleavedMatrix<in0>, BoundHostEigenVals<EigenVals, out0>>(&SimdEngine::eigen);
}

CpuMaterialiser::Step CpuMaterialiser::principal_eigenvect_host_complex_interleaved_cf32_colmaj() {
    return step_of<InterleavedMatrix<in0>, InterleavedVector<out0>>(
        &SimdEngine::principal_eigenvect);
}

CpuMaterialiser::Step CpuMaterialiser::partialtrace_left_host_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<out0>>(&SimdEngine::trace_out_left,
                                                                    &SimdEngine::trace_out_left);
}

CpuMaterialiser::Step CpuMaterialiser::partialtrace_right_host_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<in0>, SplitMatrix<out0>>(&SimdEngine::trace_out_right,
                                                                    &SimdEngine::trace_out_right);
}

CpuMaterialiser::Step CpuMaterialiser::matrix_exp_host_complex_split_float_rowmaj() {
    return step_of<SplitMatrix<in0>, SplitMatrix<out0>,
                   BoundUnsignedScalarValue<BoundRealScalarEntity<int, int>, in1>>(
        &SimdEngine::matrix_power);
}

CpuMaterialiser::Step CpuMaterialiser::is_unitary_host_complex_split_float_rowmaj() {
    return step_of<SplitMatrix<in0>, RealScalar<out0, int>>(&SimdEngine::is_unitary);
}

CpuMaterialiser::Step CpuMaterialiser::identity_host_complex_split_float_rowmaj() {
    return step_in_either_form<SplitMatrix<out0>>(&SimdEngine::identity, &SimdEngine::identity);
}

CpuMaterialiser::Step CpuMaterialiser::vector_equal_host_complex_split_float() {
    return step_in_either_form<SplitVector<in0>, SplitVector<in1>, RealScalar<out0, int>>(
        &SimdEngine::vector_equal, &SimdEngine::vector_equal);
}

} // namespace Tessaline
