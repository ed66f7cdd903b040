// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operands of floating kernels by shape of operation. Each shape resolves its operands in the
// order of its members, and raises what operands.h says; kernels get views and no bindings.

#include "backend/cpu/floating/operands.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline {

using SimdKernels::UnfusedTable;

/// A vector that is changed in its place.
template <typename T>
struct VectorInPlace {
    std::span<T> elements;

    explicit VectorInPlace(BackendExecutionBindings& bindings)
        : elements(output_vector<T>(bindings, output_role(0))) {}
};

template <typename T>
struct VectorMap {
    std::span<const T> in;
    std::span<T> out;

    explicit VectorMap(BackendExecutionBindings& bindings)
        : in(input_vector<T>(bindings, input_role(0))),
          out(output_vector<T>(bindings, output_role(0), in.size())) {}
};

/// A vector, and a scalar that each of its elements meets.
template <typename T>
struct VectorByScalar {
    ComputeOf<T> scalar;
    VectorMap<T> map;

    explicit VectorByScalar(BackendExecutionBindings& bindings)
        : scalar(input_scalar<T>(bindings, input_role(1))),
          map(bindings) {}
};

template <typename T>
struct VectorPair {
    std::span<const T> a;
    std::span<const T> b;

    /// Of one size.
    explicit VectorPair(BackendExecutionBindings& bindings)
        : a(input_vector<T>(bindings, input_role(0))),
          b(input_vector<T>(bindings, input_role(1), a.size())) {}
};

template <typename T>
struct VectorCombination {
    VectorPair<T> in;
    std::span<T> out;

    explicit VectorCombination(BackendExecutionBindings& bindings)
        : in(bindings),
          out(output_vector<T>(bindings, output_role(0), in.a.size())) {}
};

template <typename T>
struct VectorReduction {
    std::span<const T> in;
    ScalarResult<T> result;

    explicit VectorReduction(BackendExecutionBindings& bindings)
        : in(input_vector<T>(bindings, input_role(0))),
          result(bindings, output_role(0)) {}
};

template <typename T>
struct VectorPairReduction {
    VectorPair<T> in;
    ScalarResult<T> result;

    explicit VectorPairReduction(BackendExecutionBindings& bindings)
        : in(bindings),
          result(bindings, output_role(0)) {}
};

/// Vectors of any two sizes.
template <typename T>
struct VectorComparison {
    std::span<const T> a;
    std::span<const T> b;
    ScalarResult<int> result;

    explicit VectorComparison(BackendExecutionBindings& bindings)
        : a(input_vector<T>(bindings, input_role(0))),
          b(input_vector<T>(bindings, input_role(1))),
          result(bindings, output_role(0)) {}
};

/// Result is a stored element, or int for an answer.
template <typename T, typename Result>
struct MatrixReduction {
    FloatingMatrix<const T> A;
    ScalarResult<Result> result;

    explicit MatrixReduction(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          result(bindings, output_role(0)) {}
};

template <typename T>
struct MatrixVectorProduct {
    FloatingMatrix<const T> A;
    std::span<const T> x;
    std::span<T> y;

    explicit MatrixVectorProduct(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          x(input_vector<T>(bindings, input_role(1), A.cols)),
          y(output_vector<T>(bindings, output_role(0), A.rows)) {}
};

template <typename T>
struct MatrixProduct {
    FloatingMatrix<const T> A;
    FloatingMatrix<const T> B;
    FloatingMatrix<T> C;

    explicit MatrixProduct(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          B(input_matrix<T>(bindings, input_role(1), {.rows = A.cols, .cols = {}})),
          C(output_matrix<T>(bindings, output_role(0), {A.rows, B.cols})) {}
};

template <typename T>
struct KroneckerProduct {
    FloatingMatrix<const T> A;
    FloatingMatrix<const T> B;
    FloatingMatrix<T> result;

    explicit KroneckerProduct(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          B(input_matrix<T>(bindings, input_role(1))),
          result(output_matrix<T>(
              bindings, output_role(0),
              {checked_element_count(A.rows, B.rows), checked_element_count(A.cols, B.cols)})) {}
};

template <typename T>
struct OuterProduct {
    std::span<const T> a;
    std::span<const T> b;
    FloatingMatrix<T> result;

    explicit OuterProduct(BackendExecutionBindings& bindings)
        : a(input_vector<T>(bindings, input_role(0))),
          b(input_vector<T>(bindings, input_role(1))),
          result(output_matrix<T>(bindings, output_role(0), {a.size(), b.size()})) {}
};

template <typename T>
struct MatrixTransposition {
    FloatingMatrix<const T> A;
    FloatingMatrix<T> result;

    explicit MatrixTransposition(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          result(output_matrix<T>(bindings, output_role(0), {A.cols, A.rows})) {}
};

/// Matrices whose shapes the operation does not relate here.
template <typename T>
struct MatrixMap {
    FloatingMatrix<const T> A;
    FloatingMatrix<T> result;

    explicit MatrixMap(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          result(output_matrix<T>(bindings, output_role(0))) {}
};

template <typename T>
struct MatrixOutput {
    FloatingMatrix<T> result;

    explicit MatrixOutput(const FloatingMatrix<T>& matrix) : result(matrix) {}
    explicit MatrixOutput(BackendExecutionBindings& bindings)
        : result(output_matrix<T>(bindings, output_role(0))) {}
};

/// A kernel as it stands in the table: operands resolved, and without the vector kernels where it
/// has no use for them.
template <auto Kernel>
struct Resolved;
template <typename Operands, void (*Kernel)(const Operands&, const UnfusedTable&)>
struct Resolved<Kernel> {
    static void run(BackendExecutionBindings& bindings, const UnfusedTable& kernels) {
        Kernel(Operands(bindings), kernels);
    }
};
template <typename Operands, void (*Kernel)(const Operands&)>
struct Resolved<Kernel> {
    static void run(BackendExecutionBindings& bindings, const UnfusedTable&) {
        Kernel(Operands(bindings));
    }
};
/// A kernel that resolves its operands itself.
template <void (*Kernel)(BackendExecutionBindings&)>
struct Resolved<Kernel> {
    static void run(BackendExecutionBindings& bindings, const UnfusedTable&) { Kernel(bindings); }
};

} // namespace Tessaline
