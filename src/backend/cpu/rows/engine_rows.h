// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rows of the SIMD engine by policy, from which its steps and its capabilities are made: the
// operation, the function of the engine, the materialiser's function that makes the step, and the
// operands in the order in which the engine's function takes them (engine_operands.h). A kernel
// that exists in either form takes interleaved operands too, where all that are split stand for
// such.

#define TESSALINE_FLOAT16_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                       \
    ONE_FORM(add, add, add_host_dense_real_float16_vect, RealVector<in0, Float16>,                 \
             RealVector<in1, Float16>, RealVector<out0, Float16>)

#define TESSALINE_FLOAT32_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                       \
    ONE_FORM(multiply, mul, mul_host_dense_real_float_vect, RealVector<in0>, RealVector<in1>,      \
             RealVector<out0>)                                                                     \
    ONE_FORM(add, add, add_host_dense_real_float_vect, RealVector<in0>, RealVector<in1>,           \
             RealVector<out0>)                                                                     \
    ONE_FORM(subtract, sub, sub_host_dense_real_float_vect, RealVector<in0>, RealVector<in1>,      \
             RealVector<out0>)                                                                     \
    ONE_FORM(sum, sum, sum_host_dense_real_float_vect, RealVector<in0>, RealScalar<out0>)          \
    ONE_FORM(scale, scale, scale_host_dense_real_kv_float_vect, RealVector<in0>, RealScalar<in1>,  \
             RealVector<out0>)                                                                     \
    ONE_FORM(matmul, matmul, matmul_host_dense_real_float_rowmaj, RealMatrix<in0>,                 \
             RealMatrix<in1>, RealMatrix<out0>)

#define TESSALINE_COMPLEX64_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                     \
    EITHER_FORM(sqrt, sqrt, sqrt_host_dense_complex_split_float_vect, SplitVector<in0>,            \
                SplitVector<out0>)                                                                 \
    EITHER_FORM(conjugate, conj, conj_host_dense_complex_split_float_vect, SplitVector<out0>)      \
    EITHER_FORM(multiply, mul, mul_host_dense_complex_split_float_vect, SplitVector<in0>,          \
                SplitVector<in1>, SplitVector<out0>)                                               \
    EITHER_FORM(add, add, add_host_dense_complex_split_float_vect, SplitVector<in0>,               \
                SplitVector<in1>, SplitVector<out0>)                                               \
    EITHER_FORM(subtract, sub, sub_host_dense_complex_split_float_vect, SplitVector<in0>,          \
                SplitVector<in1>, SplitVector<out0>)                                               \
    EITHER_FORM(sum, sum, sum_host_dense_complex_split_float_vect, SplitVector<in0>,               \
                ComplexScalar<out0>)                                                               \
    EITHER_FORM(scale, scale, scale_host_dense_complex_split_kp_float_vect, SplitVector<in0>,      \
                ComplexScalar<in1>, SplitVector<out0>)                                             \
    EITHER_FORM(divide, divide, divide_host_dense_complex_split_float_vect, SplitVector<in0>,      \
                ComplexScalar<in1>, SplitVector<out0>)                                             \
    EITHER_FORM(transpose, transpose, transpose_host_dense_complex_split_float, SplitMatrix<in0>,  \
                SplitMatrix<out0>)                                                                 \
    EITHER_FORM(matmul, matmul, matmul_host_dense_complex_split_float_rowmaj, SplitMatrix<in0>,    \
                SplitMatrix<in1>, SplitMatrix<out0>)                                               \
    EITHER_FORM(matvec, matvec, matvec_host_dense_complex_split_float_rowmaj, SplitMatrix<in0>,    \
                SplitVector<in1>, SplitVector<out0>)                                               \
    EITHER_FORM(adjoint, adjoint, adjoint_host_dense_complex_split_float, SplitMatrix<in0>,        \
                SplitMatrix<out0>)                                                                 \
    EITHER_FORM(kron, kroneckerprod, kroneckerprod_host_dense_complex_split_float_rowmaj,          \
                SplitMatrix<in0>, SplitMatrix<in1>, SplitMatrix<out0>)                             \
    EITHER_FORM(inner, innerprod, innerprod_host_dense_complex_split_float_vect, SplitVector<in0>, \
                SplitVector<in1>, ComplexScalar<out0>)                                             \
    EITHER_FORM(outer, outerprod, outerprod_host_dense_complex_split_float_vect, SplitVector<in0>, \
                SplitVector<in1>, SplitMatrix<out0>)                                               \
    ONE_FORM(lu_factor, lu_decomp, lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj,   \
             Factors<out0>)                                                                        \
    ONE_FORM(solve, solve, solve_host_dense_complex_interleaved_int64_cfloat_colmaj, Factors<in0>, \
             SplitVector<out0>)                                                                    \
    ONE_FORM(logdet, logdet, logdet_host_dense_complex_interleaved_int64_cuFloat_colmaj,           \
             Factors<in0>, ComplexScalar<out0>)                                                    \
    EITHER_FORM(trace, trace, trace_host_dense_complex_split_float, SplitMatrix<in0>,              \
                ComplexScalar<out0>)                                                               \
    EITHER_FORM(norm, norm, norm_host_dense_complex_split_float, SplitVector<in0>,                 \
                ComplexScalar<out0>)                                                               \
    ONE_FORM(eig, eigen, eigen_host_dense_complex_interleaved_cf32_colmaj, InterleavedMatrix<in0>, \
             EigenSet<out0>)                                                                       \
    ONE_FORM(principal_eigenvector, principal_eigenvect,                                           \
             principal_eigenvect_host_complex_interleaved_cf32_colmaj, InterleavedMatrix<in0>,     \
             InterleavedVector<out0>)                                                              \
    EITHER_FORM(partial_trace_left, trace_out_left,                                                \
                partialtrace_left_host_complex_split_float_rowmaj, SplitMatrix<in0>,               \
                SplitMatrix<out0>)                                                                 \
    EITHER_FORM(partial_trace_right, trace_out_right,                                              \
                partialtrace_right_host_complex_split_float_rowmaj, SplitMatrix<in0>,              \
                SplitMatrix<out0>)                                                                 \
    ONE_FORM(matrix_power, matrix_power, matrix_exp_host_complex_split_float_rowmaj,               \
             SplitMatrix<in0>, SplitMatrix<out0>, Exponent<in1>)                                   \
    ONE_FORM(is_unitary, is_unitary, is_unitary_host_complex_split_float_rowmaj, SplitMatrix<in0>, \
             RealScalar<out0, int>)                                                                \
    EITHER_FORM(eye, identity, identity_host_complex_split_float_rowmaj, SplitMatrix<out0>)        \
    EITHER_FORM(vector_equal, vector_equal, vector_equal_host_complex_split_float,                 \
                SplitVector<in0>, SplitVector<in1>, RealScalar<out0, int>)

#define TESSALINE_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                               \
    TESSALINE_FLOAT16_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                           \
    TESSALINE_FLOAT32_ENGINE_ROWS(EITHER_FORM, ONE_FORM)                                           \
    TESSALINE_COMPLEX64_ENGINE_ROWS(EITHER_FORM, ONE_FORM)
