// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes the steps of the typed kernels.

#include "tessaline/execution/backend_process.h"

#include <memory>

namespace Tessaline {

/// Each function makes one step of the SIMD engine. A name tells operation, location, domain,
/// complex layout, element and shape of the kernel's operands.
class CpuMaterialiser {
  public:
    using Step = std::unique_ptr<BackendProcessStep>;

    static Step sqrt_host_dense_complex_split_float_vect();
    static Step conj_host_dense_complex_split_float_vect();
    static Step mul_host_dense_real_float_vect();
    static Step mul_host_dense_complex_split_float_vect();
    static Step add_host_dense_real_float_vect();
    static Step add_host_dense_real_float16_vect();
    static Step add_host_dense_complex_split_float_vect();
    static Step sub_host_dense_real_float_vect();
    static Step sub_host_dense_complex_split_float_vect();
    static Step sum_host_dense_real_float_vect();
    static Step sum_host_dense_complex_split_float_vect();
    static Step scale_host_dense_real_kv_float_vect();
    static Step scale_host_dense_complex_split_kp_float_vect();
    static Step divide_host_dense_complex_split_float_vect();
    static Step transpose_host_dense_complex_split_float();
    static Step matmul_host_dense_complex_split_float_rowmaj();
    static Step matmul_host_dense_real_float_rowmaj();
    static Step matvec_host_dense_complex_split_float_rowmaj();
    static Step adjoint_host_dense_complex_split_float();
    static Step kroneckerprod_host_dense_complex_split_float_rowmaj();
    static Step innerprod_host_dense_complex_split_float_vect();
    static Step outerprod_host_dense_complex_split_float_vect();
    static Step lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj();
    static Step solve_host_dense_complex_interleaved_int64_cfloat_colmaj();
    // NOLINTNEXTLINE(readability-identifier-naming): an established name
    static Step logdet_host_dense_complex_interleaved_int64_cuFloat_colmaj();
    static Step trace_host_dense_complex_split_float();
    static Step norm_host_dense_complex_split_float();
    static Step eigen_host_dense_complex_interleaved_cf32_colmaj();
    static Step principal_eigenvect_host_complex_interleaved_cf32_colmaj();
    static Step partialtrace_left_host_complex_split_float_rowmaj();
    static Step partialtrace_right_host_complex_split_float_rowmaj();
    static Step matrix_exp_host_complex_split_float_rowmaj();
    static Step is_unitary_host_complex_split_float_rowmaj();
    static Step identity_host_complex_split_float_rowmaj();
    static Step vector_equal_host_complex_split_float();
};

} // namespace Tessaline
