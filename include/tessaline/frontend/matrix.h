// SPDX-License-Identifier: Apache-2.0
#pragma once

// The handle of a matrix operand.

#include "tessaline/frontend/host_contents.h"
#include "tessaline/storage/entities.h"
#include "tessaline/storage/host_memory.h"

#include <memory>

namespace Tessaline {

/// Owns the storage of one matrix. Movable, not copyable; a handle that was moved from may only be
/// assigned to or destroyed. Reading is safe from several threads.
class TESSALINE_API Matrix {
  public:
    /// Takes the storage over. Raises ArgumentError with reason null_storage for null and
    /// std::length_error when rows times cols exceeds 64 bits.
    explicit Matrix(std::unique_ptr<MatrixEntity> storage);

    /// Pageable host storage; raises what StorageFactory::host_matrix does.
    static Matrix host_impl(const DataTypeDescriptor& type, std::uint64_t rows, std::uint64_t cols,
                            DataMatrixLayout layout, DataComplexLayout complex_layout,
                            HostMemoryOptions options = {},
                            const StorageInitialiser& initialiser = {});

    /// Pageable host storage with a copy of the contents, rows times cols elements in the order of
    /// `layout`, in the numeric policy that stores them; complex elements stay interleaved. Only
    /// complex matrices may be column major.
    template <HostContents Contents>
    static Matrix host(std::uint64_t rows, std::uint64_t cols, const Contents& contents,
                       DataMatrixLayout layout = DataMatrixLayout::row_major,
                       HostMemoryOptions options = {}) {
        using T = std::ranges::range_value_t<Contents>;
        return host_impl(PolicyOf<T>::type(), rows, cols, layout, whole_layout<T>, options,
                         initial_contents(contents));
    }
    template <CompiledElement T>
    static Matrix host(std::uint64_t rows, std::uint64_t cols, std::initializer_list<T> contents,
                       DataMatrixLayout layout = DataMatrixLayout::row_major,
                       HostMemoryOptions options = {}) {
        return host(rows, cols, std::span(contents.begin(), contents.size()), layout, options);
    }

    /// Pageable host storage of rows times cols zeros of type T.
    template <CompiledElement T>
    static Matrix host_zeros(std::uint64_t rows, std::uint64_t cols,
                             DataMatrixLayout layout = DataMatrixLayout::row_major,
                             HostMemoryOptions options = {}) {
        return host_impl(PolicyOf<T>::type(), rows, cols, layout, whole_layout<T>, options);
    }

    MatrixEntity& entity() { return *storage_; }
    const MatrixEntity& entity() const { return *storage_; }
    const MatrixDescriptor& descriptor() const { return storage_->descriptor(); }
    const DataTopologyDescriptor& topology() const { return descriptor().topology(); }
    const DataTypeDescriptor& type() const { return descriptor().type(); }
    bool is_complex() const { return type().is_complex(); }

    std::uint64_t rows() const { return descriptor().rows(); }
    std::uint64_t cols() const { return descriptor().cols(); }
    /// rows times cols.
    std::uint64_t size() const { return rows() * cols(); }
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
    std::unique_ptr<MatrixEntity> storage_;
};

} // namespace Tessaline
