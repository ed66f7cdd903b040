// SPDX-License-Identifier: Apache-2.0
#pragma once

// The handle of an operand that holds eigenvalues and eigenvectors.

#include "tessaline/frontend/host_contents.h"
#include "tessaline/storage/entities.h"
#include "tessaline/storage/host_memory.h"

#include <memory>

namespace Tessaline {

/// Owns the eigenvalues and the matrix of eigenvectors of one square matrix. Movable, not copyable;
/// a handle that was moved from may only be assigned to or destroyed. Reading is safe from several
/// threads.
class TESSALINE_API EigenValues {
  public:
    /// Takes the storage over. Raises ArgumentError with reason null_storage for null.
    explicit EigenValues(std::unique_ptr<EigenValsEntity> storage);

    /// Pageable host storage for a matrix of order `size`, with eigenvectors in `layout`. Raises
    /// what StorageFactory::host_eigen does.
    static EigenValues host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                                 DataMatrixLayout layout, HostMemoryOptions options = {});

    /// Pageable host storage for a matrix of order `size`, its elements complex of type T.
    template <CompiledElement T>
    requires is_complex_element<T>
    static EigenValues host_zeros(std::uint64_t size,
                                  DataMatrixLayout layout = DataMatrixLayout::column_major,
                                  HostMemoryOptions options = {}) {
        return host_impl(PolicyOf<T>::type(), size, layout, options);
    }

    EigenValsEntity& entity() { return *storage_; }
    const EigenValsEntity& entity() const { return *storage_; }
    const EigenValsDescriptor& descriptor() const { return storage_->descriptor(); }
    const DataTopologyDescriptor& topology() const { return descriptor().topology(); }
    const DataTypeDescriptor& type() const { return descriptor().type(); }
    bool is_complex() const { return type().is_complex(); }

    /// The order of the matrix.
    std::uint64_t size() const { return descriptor().size(); }
    DataVectorFormat vector_format() const { return descriptor().vector_format(); }
    /// The layout of the eigenvectors; also layout().
    DataMatrixLayout vector_layout() const { return descriptor().vector_layout(); }
    DataMatrixLayout layout() const { return vector_layout(); }
    DataComplexLayout complex_layout() const { return descriptor().complex_layout(); }
    bool is_dense() const { return vector_format() == DataVectorFormat::dense; }
    bool is_sparse() const { return vector_format() == DataVectorFormat::sparse; }
    bool is_row_major() const { return layout() == DataMatrixLayout::row_major; }
    bool is_col_major() const { return layout() == DataMatrixLayout::column_major; }
    bool is_complex_split() const { return complex_layout() == DataComplexLayout::split; }
    bool is_complex_intlv() const { return complex_layout() == DataComplexLayout::interleaved; }

  private:
    std::unique_ptr<EigenValsEntity> storage_;
};

} // namespace Tessaline
