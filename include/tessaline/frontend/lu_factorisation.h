// SPDX-License-Identifier: Apache-2.0
#pragma once

// The handle of an LU factorisation operand.

#include "tessaline/frontend/matrix.h"

namespace Tessaline {

/// Owns the factors, pivots and swap count of one square matrix. Movable, not copyable; a handle
/// that was moved from may only be assigned to or destroyed. Reading is safe from several threads.
class TESSALINE_API LuFactorisation {
  public:
    /// Takes the storage over. Raises ArgumentError with reason null_storage for null.
    explicit LuFactorisation(std::unique_ptr<LuDecompEntity> storage);

    /// Pageable host storage for a matrix of order `size`; the initialiser fills the factors.
    /// Raises what StorageFactory::host_lu does.
    static LuFactorisation host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                                     HostMemoryOptions options = {},
                                     const StorageInitialiser& initialiser = {});

    /// Pageable host storage whose factor buffer holds a copy of the matrix, column major whatever
    /// the layout of the source, so that an operation may factorise it in place. Nothing is
    /// factorised here: pivots and swap count are zero. Raises std::invalid_argument unless the
    /// source is a square host matrix of a compiled floating policy.
    static LuFactorisation from_host_matrix(const Matrix& source, HostMemoryOptions options = {});

    LuDecompEntity& entity() { return *storage_; }
    const LuDecompEntity& entity() const { return *storage_; }
    const LuDecompDescriptor& descriptor() const { return storage_->descriptor(); }
    const DataTopologyDescriptor& topology() const { return descriptor().topology(); }
    /// The type of the factors.
    const DataTypeDescriptor& type() const { return descriptor().type(); }
    const DataTypeDescriptor& pivot_type() const { return descriptor().pivot_type(); }
    bool is_complex() const { return type().is_complex(); }

    /// The order of the matrix.
    std::uint64_t size() const { return descriptor().size(); }
    DataMatrixFormat format() const { return descriptor().format(); }
    DataMatrixLayout layout() const { return descriptor().layout(); }
    DataComplexLayout complex_layout() const { return descriptor().complex_layout(); }
    bool is_dense() const { return Tessaline::is_dense(format()); }
    bool is_diagonal() const { return Tessaline::is_diagonal(format()); }
    bool is_sparse() const { return Tessaline::is_sparse(format()); }
    bool is_row_major() const { return layout() == DataMatrixLayout::row_major; }
    bool is_col_major() const { return layout() == DataMatrixLayout::column_major; }
    bool is_complex_split() const { return complex_layout() == DataComplexLayout::split; }
    bool is_complex_intlv() const { return complex_layout() == DataComplexLayout::interleaved; }

  private:
    std::unique_ptr<LuDecompEntity> storage_;
};

} // namespace Tessaline
