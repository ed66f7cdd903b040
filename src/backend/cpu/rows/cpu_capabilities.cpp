// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/cpu/rows/cpu_materialiser.h"
#include "backend/cpu/rows/cpu_numerics.h"
#include "backend/cpu/rows/cpu_operand_keys.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

#include <initializer_list>
#include <span>

namespace Tessaline {

namespace {

namespace Ids = BuiltinOperations;

using enum OperandKind;
using Kernels = CpuMaterialiser;

/// A kernel of the engine and what it accepts.
struct EngineRow {
    const OperationId* operation;
    std::initializer_list<BackendOperandKey> inputs;
    BackendOperandKey output;
    std::unique_ptr<BackendProcessStep> (*make_step)();
};

constexpr BackendOperandKey real_key(OperandKind kind, const DataTypeDescriptor& type) {
    return dense_host_key(kind, type, DataComplexLayout::none);
}

constexpr BackendOperandKey complex_key(OperandKind kind, DataComplexLayout layout) {
    return dense_host_key(kind, DataTypeDescriptor::complex_float(), layout);
}

constexpr BackendOperandKey in_columns(BackendOperandKey matrix) {
    matrix.layout = DataMatrixLayout::column_major;
    return matrix;
}

constexpr BackendOperandKey integer = real_key(Scalar, DataTypeDescriptor::real_int());
constexpr BackendOperandKey half_vector = real_key(Vector, DataTypeDescriptor::real_float16());
constexpr BackendOperandKey real_scalar = real_key(Scalar, DataTypeDescriptor::real_float());
constexpr BackendOperandKey real_vector = real_key(Vector, DataTypeDescriptor::real_float());
constexpr BackendOperandKey real_matrix = real_key(Matrix, DataTypeDescriptor::real_float());
constexpr BackendOperandKey complex_scalar = complex_key(Scalar, DataComplexLayout::none);
constexpr BackendOperandKey split_vector = complex_key(Vector, DataComplexLayout::split);
constexpr BackendOperandKey split_matrix = complex_key(Matrix, DataComplexLayout::split);
constexpr BackendOperandKey vector = complex_key(Vector, DataComplexLayout::interleaved);
constexpr BackendOperandKey matrix =
    in_columns(complex_key(Matrix, DataComplexLayout::interleaved));
constexpr BackendOperandKey factors = complex_key(LuDecomp, DataComplexLayout::interleaved);
constexpr BackendOperandKey eigen_set = complex_key(EigenVals, DataComplexLayout::interleaved);

constexpr EngineRow float16_rows[] = {
    {&Ids::add, {half_vector, half_vector}, half_vector, Kernels::add_host_dense_real_float16_vect},
};

constexpr EngineRow float32_rows[] = {
    {&Ids::multiply,
     {real_vector, real_vector},
     real_vector,
     Kernels::mul_host_dense_real_float_vect},
    {&Ids::add, {real_vector, real_vector}, real_vector, Kernels::add_host_dense_real_float_vect},
    {&Ids::subtract,
     {real_vector, real_vector},
     real_vector,
     Kernels::sub_host_dense_real_float_vect},
    {&Ids::sum, {real_vector}, real_scalar, Kernels::sum_host_dense_real_float_vect},
    {&Ids::scale,
     {real_vector, real_scalar},
     real_vector,
     Kernels::scale_host_dense_real_kv_float_vect},
    {&Ids::matmul,
     {real_matrix, real_matrix},
     real_matrix,
     Kernels::matmul_host_dense_real_float_rowmaj},
};

constexpr EngineRow complex64_rows[] = {
    {&Ids::sqrt, {split_vector}, split_vector, Kernels::sqrt_host_dense_complex_split_float_vect},
    {&Ids::conjugate, {}, split_vector, Kernels::conj_host_dense_complex_split_float_vect},
    {&Ids::multiply,
     {split_vector, split_vector},
     split_vector,
     Kernels::mul_host_dense_complex_split_float_vect},
    {&Ids::add,
     {split_vector, split_vector},
     split_vector,
     Kernels::add_host_dense_complex_split_float_vect},
    {&Ids::subtract,
     {split_vector, split_vector},
     split_vector,
     Kernels::sub_host_dense_complex_split_float_vect},
    {&Ids::sum, {split_vector}, complex_scalar, Kernels::sum_host_dense_complex_split_float_vect},
    {&Ids::scale,
     {split_vector, complex_scalar},
     split_vector,
     Kernels::scale_host_dense_complex_split_kp_float_vect},
    {&Ids::divide,
     {split_vector, complex_scalar},
     split_vector,
     Kernels::divide_host_dense_complex_split_float_vect},
    {&Ids::transpose,
     {split_matrix},
     split_matrix,
     Kernels::transpose_host_dense_complex_split_float},
    {&Ids::matmul,
     {split_matrix, split_matrix},
     split_matrix,
     Kernels::matmul_host_dense_complex_split_float_rowmaj},
    {&Ids::matvec,
     {split_matrix, split_vector},
     split_vector,
     Kernels::matvec_host_dense_complex_split_float_rowmaj},
    {&Ids::adjoint, {split_matrix}, split_matrix, Kernels::adjoint_host_dense_complex_split_float},
    {&Ids::kron,
     {split_matrix, split_matrix},
     split_matrix,
     Kernels::kroneckerprod_host_dense_complex_split_float_rowmaj},
    {&Ids::inner,
     {split_vector, split_vector},
     complex_scalar,
     Kernels::innerprod_host_dense_complex_split_float_vect},
    {&Ids::outer,
     {split_vector, split_vector},
     split_matrix,
     Kernels::outerprod_host_dense_complex_split_float_vect},
    {&Ids::lu_factor,
     {},
     factors,
     Kernels::lu_decomp_host_dense_complex_interleaved_int64_cfloat_colmaj},
    {&Ids::solve,
     {factors},
     split_vector,
     Kernels::solve_host_dense_complex_interleaved_int64_cfloat_colmaj},
    {&Ids::logdet,
     {factors},
     complex_scalar,
     Kernels::logdet_host_dense_complex_interleaved_int64_cuFloat_colmaj},
    {&Ids::trace, {split_matrix}, complex_scalar, Kernels::trace_host_dense_complex_split_float},
    {&Ids::norm, {split_vector}, complex_scalar, Kernels::norm_host_dense_complex_split_float},
    {&Ids::eig, {matrix}, eigen_set, Kernels::eigen_host_dense_complex_interleaved_cf32_colmaj},
    {&Ids::principal_eigenvector,
     {matrix},
     vector,
     Kernels::principal_eigenvect_host_complex_interleaved_cf32_colmaj},
    {&Ids::partial_trace_left,
     {split_matrix},
     split_matrix,
     Kernels::partialtrace_left_host_complex_split_float_rowmaj},
    {&Ids::partial_trace_right,
     {split_matrix},
     split_matrix,
     Kernels::partialtrace_right_host_complex_split_float_rowmaj},
    {&Ids::matrix_power,
     {split_matrix, integer},
     split_matrix,
     Kernels::matrix_exp_host_complex_split_float_rowmaj},
    {&Ids::is_unitary,
     {split_matrix},
     integer,
     Kernels::is_unitary_host_complex_split_float_rowmaj},
    {&Ids::eye, {}, split_matrix, Kernels::identity_host_complex_split_float_rowmaj},
    {&Ids::vector_equal,
     {split_vector, split_vector},
     integer,
     Kernels::vector_equal_host_complex_split_float},
};

std::vector<BackendRegistration::BuiltinCapability>
records_of(std::span<const EngineRow> rows,
           ImplementationNumerics (*numerics)(const BackendRegistryKey&)) {
    std::vector<BackendRegistration::BuiltinCapability> records;
    records.reserve(rows.size());
    for (const EngineRow& row : rows) {
        BackendRegistryKey key(BackendKind::cpu_simd, *row.operation, row.inputs, row.output);
        auto record = numerics(key);
        records.push_back(
            {std::move(key), BackendRegistration::backend_entry(row.make_step), std::move(record)});
    }
    return records;
}

} // namespace

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<Float16, float>>::legacy_records() {
    return records_of(float16_rows, CpuNumerics::float16_float32);
}

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<float, float>>::legacy_records() {
    return records_of(float32_rows, CpuNumerics::float32);
}

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<std::complex<float>, std::complex<float>>>::legacy_records() {
    return records_of(complex64_rows, CpuNumerics::complex64);
}

} // namespace Tessaline
