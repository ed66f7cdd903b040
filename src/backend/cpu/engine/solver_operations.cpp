// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "backend/cpu/engine/engine_factor.h"
#include "backend/cpu/engine/operations.h"

namespace Tessaline::SimdOperations {

void lu_decomp(const Table& kernels, LuDecompView<long, Element> lu) {
    EngineLu::lu_decomp(kernels.elimination, lu);
}

void solve(const Table& kernels, LuDecompView<const long, const Element> lu, SplitOutput b) {
    kernels.solve(lu, b);
}

void logdet(const Table& kernels, LuDecompView<const long, const Element> lu,
            ComplexScalarView<float> out) {
    kernels.logdet(lu, out);
}

void eigen(const Table&, InterleavedMatrixInput A, HostEigenVals<Element, Element>& result) {
    CpuFallback::solve_complex_eigen<float>(A, result, CpuFallback::EigenvalueScale::original);
}

void principal_eigenvect(const Table& kernels, InterleavedMatrixInput A, InterleavedOutput vector) {
    kernels.principal_eigenvect(A, vector);
}

} // namespace Tessaline::SimdOperations
