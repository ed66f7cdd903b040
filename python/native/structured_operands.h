// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factorisations and eigenvalue sets as Python holds them: host storage in compute precision,
// seen through array views.

#include "native_context.h"

#include "tessaline/frontend/eigen_values.h"
#include "tessaline/frontend/lu_factorisation.h"

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <memory>
#include <string_view>

namespace Tessaline::Python {

/// Storage of an LU factorisation.
class NativeLUOperand {
  public:
    /// Zeroed storage for a matrix of order `size`. Low-precision words are widened to their
    /// compute type. Raises std::invalid_argument for a pair that is not compiled for structured
    /// operands.
    NativeLUOperand(std::uint64_t size, std::string_view dtype, std::string_view compute_dtype);
    /// Storage that holds a copy of a square matrix, widened, for an operation to factorise in
    /// place. Raises std::invalid_argument for any other array, and for a `dtype` that is not the
    /// array's.
    NativeLUOperand(nanobind::handle matrix, std::string_view dtype,
                    std::string_view compute_dtype);

    LuFactorisation& handle() { return lu_; }
    const LuFactorisation& handle() const { return lu_; }

  private:
    LuFactorisation lu_;
};

/// Storage of eigenvalues and, column by column, eigenvectors.
class NativeEigenOperand {
  public:
    /// As the constructor of NativeLUOperand; only complex policies have this storage.
    NativeEigenOperand(std::uint64_t size, std::string_view dtype, std::string_view compute_dtype);

    EigenValues& handle() { return eigen_; }
    const EigenValues& handle() const { return eigen_; }

  private:
    EigenValues eigen_;
};

/// The factorisation of one matrix, with the context that made it.
class NativeLUFactor {
  public:
    /// Factorises. The Python context is kept alive as long as the factor. Raises what
    /// NativeLUOperand and the operation do.
    NativeLUFactor(nanobind::handle matrix, nanobind::object context);

    const LuFactorisation& handle() const { return operand_->handle(); }

    /// Overwrites a right-hand side of the factor's type, a vector in C order, with the solution.
    /// Raises nanobind::type_error for an array that cannot take it where it lies.
    void solve(nanobind::handle array) const;
    /// The logarithm of the determinant, complex for a real matrix too.
    std::complex<double> logdet() const;

  private:
    const NativeContext* context_;
    nanobind::object context_owner_;
    std::shared_ptr<NativeLUOperand> operand_;
};

/// Defines LUOperand, EigenOperand and, after the contexts that it works on, LUFactor.
void define_structured_operands(nanobind::module_& module);

} // namespace Tessaline::Python
