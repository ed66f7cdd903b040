// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_hermitian/structured_solver.h"

#include "backend/cpu/eigen_hermitian/hermitian_jacobi.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "tessaline/catalogue/errors.h"

#include <string>

namespace Tessaline::CpuStructured {

using SimdKernels::RotationKernels;

template <typename C>
HermitianEigenResult<C> eigen(std::span<const C> A, std::size_t order, bool vectors,
                              const RotationKernels<C>& kernels) {
    HermitianJacobi<C> jacobi(A, order, vectors, kernels);
    if (!jacobi.solve(maximum_jacobi_sweeps)) {
        throw SolverError("CPU", maximum_jacobi_sweeps, "Jacobi sweep limit reached",
                          vectors ? "tessaline.eigh" : "tessaline.eigvalsh",
                          "eigh/eigvalsh - Jacobi iteration did not converge for order " +
                              std::to_string(order),
                          ErrorReason::non_convergence);
    }
    return jacobi.result();
}

template HermitianEigenResult<double> eigen(std::span<const double>, std::size_t, bool,
                                            const RotationKernels<double>&);
template HermitianEigenResult<std::complex<double>>
eigen(std::span<const std::complex<double>>, std::size_t, bool,
      const RotationKernels<std::complex<double>>&);

} // namespace Tessaline::CpuStructured
