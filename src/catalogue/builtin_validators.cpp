// SPDX-License-Identifier: Apache-2.0
#include "catalogue/builtin_validators.h"

#include "catalogue/require.h"

namespace Tessaline::BuiltinValidators {

namespace {

constexpr const char* vector_output_size = "OperationSpec - vector output size mismatch";
constexpr const char* vector_input_size = "OperationSpec - vector input size mismatch";
constexpr const char* matrix_output_shape = "OperationSpec - matrix output shape mismatch";

template <typename Descriptor>
const Descriptor& held(const Descriptor* descriptor, const char* message) {
    require(descriptor != nullptr, message);
    return *descriptor;
}

const VectorDescriptor& first_vector(Operands operands) {
    return held(operands.front().vector(), "OperationSpec - first operand must be a vector");
}

const VectorDescriptor& second_vector(Operands operands) {
    return held(operands[1].vector(), "OperationSpec - second operand must be a vector");
}

const VectorDescriptor& output_vector(Operands operands) {
    return held(operands.back().vector(), "OperationSpec - output must be a vector");
}

const MatrixDescriptor& first_matrix(Operands operands) {
    return held(operands.front().matrix(), "OperationSpec - first operand must be a matrix");
}

const MatrixDescriptor& second_matrix(Operands operands) {
    return held(operands[1].matrix(), "OperationSpec - second operand must be a matrix");
}

const MatrixDescriptor& output_matrix(Operands operands) {
    return held(operands.back().matrix(), "OperationSpec - output must be a matrix");
}

const LuDecompDescriptor& first_factorisation(Operands operands) {
    return held(operands.front().lu_decomp(), "OperationSpec - first operand must be an LU factor");
}

void require_second_scalar(Operands operands) {
    held(operands[1].scalar(), "OperationSpec - second operand must be a scalar");
}

void require_output_scalar(Operands operands) {
    held(operands.back().scalar(), "OperationSpec - output must be a scalar");
}

void require_square(const MatrixDescriptor& matrix, const char* message) {
    require(matrix.rows() == matrix.cols(), message);
}

void require_first_square(const MatrixDescriptor& matrix) {
    require_square(matrix, "OperationSpec - first operand must be square");
}

bool has_shape(const MatrixDescriptor& matrix, std::uint64_t rows, std::uint64_t cols) {
    return matrix.rows() == rows && matrix.cols() == cols;
}

} // namespace

void sqrt(Operands operands) {
    const VectorDescriptor& input = first_vector(operands);
    const VectorDescriptor& output = output_vector(operands);
    require(input.size() == output.size(), vector_output_size);
}

void conjugate(Operands operands) {
    held(operands.front().vector(), "OperationSpec - read-write operand must be a vector");
}

void elementwise_binary(Operands operands) {
    const VectorDescriptor& left = first_vector(operands);
    const VectorDescriptor& right = second_vector(operands);
    const VectorDescriptor& output = output_vector(operands);
    require(left.size() == right.size(), vector_input_size);
    require(left.size() == output.size(), vector_output_size);
}

void reduction(Operands operands) {
    first_vector(operands);
    require_output_scalar(operands);
}

void elementwise_by_scalar(Operands operands) {
    const VectorDescriptor& input = first_vector(operands);
    require_second_scalar(operands);
    const VectorDescriptor& output = output_vector(operands);
    require(input.size() == output.size(), vector_output_size);
}

void inner(Operands operands) {
    const VectorDescriptor& left = first_vector(operands);
    const VectorDescriptor& right = second_vector(operands);
    require(left.size() == right.size(), vector_input_size);
    require_output_scalar(operands);
}

void outer(Operands operands) {
    const VectorDescriptor& left = first_vector(operands);
    const VectorDescriptor& right = second_vector(operands);
    const MatrixDescriptor& output = output_matrix(operands);
    require(has_shape(output, left.size(), right.size()),
            "OperationSpec - outer-product output shape mismatch");
}

void vector_equal(Operands operands) {
    first_vector(operands);
    second_vector(operands);
    require_output_scalar(operands);
}

void transposition(Operands operands) {
    const MatrixDescriptor& input = first_matrix(operands);
    const MatrixDescriptor& output = output_matrix(operands);
    require(has_shape(output, input.cols(), input.rows()),
            "OperationSpec - transposed output shape mismatch");
}

void matmul(Operands operands) {
    const MatrixDescriptor& left = first_matrix(operands);
    const MatrixDescriptor& right = second_matrix(operands);
    const MatrixDescriptor& output = output_matrix(operands);
    require(left.cols() == right.rows(), "OperationSpec - matrix input shape mismatch");
    require(has_shape(output, left.rows(), right.cols()), matrix_output_shape);
}

void matvec(Operands operands) {
    const MatrixDescriptor& matrix = first_matrix(operands);
    const VectorDescriptor& vector = second_vector(operands);
    const VectorDescriptor& output = output_vector(operands);
    require(matrix.cols() == vector.size(), "OperationSpec - matrix/vector input size mismatch");
    require(matrix.rows() == output.size(), "OperationSpec - matrix/vector output size mismatch");
}

void kron(Operands operands) {
    const MatrixDescriptor& left = first_matrix(operands);
    const MatrixDescriptor& right = second_matrix(operands);
    const MatrixDescriptor& output = output_matrix(operands);
    std::uint64_t rows = 0;
    std::uint64_t cols = 0;
    require(!__builtin_mul_overflow(left.rows(), right.rows(), &rows) &&
                !__builtin_mul_overflow(left.cols(), right.cols(), &cols),
            "OperationSpec - Kronecker product output shape overflow");
    require(has_shape(output, rows, cols), "OperationSpec - Kronecker output shape mismatch");
}

void matrix_to_scalar(Operands operands) {
    first_matrix(operands);
    require_output_scalar(operands);
}

void partial_trace(Operands operands) {
    const MatrixDescriptor& input = first_matrix(operands);
    const MatrixDescriptor& output = output_matrix(operands);
    require_first_square(input);
    require_square(output, "OperationSpec - output must be square");
    require(output.rows() != 0 && input.rows() % output.rows() == 0,
            "OperationSpec - partial trace output shape mismatch");
}

void matrix_power(Operands operands) {
    const MatrixDescriptor& input = first_matrix(operands);
    require_second_scalar(operands);
    require_first_square(input);
    const MatrixDescriptor& output = output_matrix(operands);
    require(has_shape(output, input.rows(), input.cols()), matrix_output_shape);
}

void eye(Operands operands) {
    const MatrixDescriptor& matrix =
        held(operands.front().matrix(), "OperationSpec - read-write operand must be a matrix");
    require_square(matrix, "OperationSpec - read-write matrix must be square");
}

void lu_factor(Operands operands) {
    held(operands.front().lu_decomp(), "OperationSpec - read-write operand must be an LU factor");
}

void solve(Operands operands) {
    const LuDecompDescriptor& factors = first_factorisation(operands);
    const VectorDescriptor& solution =
        held(operands.back().vector(), "OperationSpec - read-write output must be a vector");
    require(factors.size() == solution.size(), "OperationSpec - solve RHS size mismatch");
}

void logdet(Operands operands) {
    first_factorisation(operands);
    require_output_scalar(operands);
}

void eig(Operands operands) {
    const MatrixDescriptor& matrix = first_matrix(operands);
    require_first_square(matrix);
    const EigenValsDescriptor& values =
        held(operands.back().eigen_vals(), "OperationSpec - output must hold eigenvalues");
    require(matrix.rows() == values.size(), "OperationSpec - eigen output size mismatch");
}

void principal_eigenvector(Operands operands) {
    const MatrixDescriptor& matrix = first_matrix(operands);
    require_first_square(matrix);
    const VectorDescriptor& output = output_vector(operands);
    require(matrix.rows() == output.size(), "OperationSpec - eigenvector output size mismatch");
}

void hermitian_eigen(Operands operands) {
    const MatrixDescriptor& matrix =
        held(operands.front().matrix(), "eigh/eigvalsh - input must be a matrix");
    require_square(matrix, "eigh/eigvalsh - input must be square");
    const VectorDescriptor& values =
        held(operands[1].vector(), "eigh/eigvalsh - eigenvalues must be a vector");
    require(matrix.rows() == values.size(), "eigh/eigvalsh - eigenvalue count mismatch");
    if (operands.size() > 2) {
        const MatrixDescriptor& vectors =
            held(operands[2].matrix(), "eigh - eigenvectors must be a matrix");
        require(has_shape(vectors, matrix.rows(), matrix.cols()),
                "eigh - eigenvector shape mismatch");
    }
}

void determinant(Operands operands) {
    const MatrixDescriptor& matrix = held(
        operands.front().matrix(), "slogdet/logdet_positive_definite - input must be a matrix");
    require_square(matrix, "slogdet/logdet_positive_definite - input must be square");
    for (const OperandDescriptor& output : operands.subspan(1)) {
        held(output.scalar(), "slogdet/logdet_positive_definite - output must be a scalar");
    }
}

} // namespace Tessaline::BuiltinValidators
