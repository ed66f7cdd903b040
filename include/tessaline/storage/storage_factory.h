// SPDX-License-Identifier: Apache-2.0
#pragma once

// The one place that turns a run-time request for storage into a concrete entity.

#include "tessaline/storage/entities.h"
#include "tessaline/storage/host_memory.h"
#include "tessaline/storage/storage_contract.h"
#include "tessaline/storage/storage_initialiser.h"

#include <memory>

/// Nothing is converted: a request is served exactly or refused. The host functions make pageable
/// storage, filled with zeros or from the initialiser. Each raises std::invalid_argument for a
/// request outside the storage contract, a numeric policy that is not compiled, an initialiser of
/// another shape or null data, and a strict NUMA request; std::logic_error for an initialiser of
/// another element type; std::length_error for a size that overflows.
namespace Tessaline::StorageFactory {

/// A complex scalar lies in two buffers, real and imaginary.
TESSALINE_API std::unique_ptr<ScalarEntity> host_scalar(const DataTypeDescriptor& type,
                                                        HostMemoryOptions options = {},
                                                        const StorageInitialiser& initialiser = {});

TESSALINE_API std::unique_ptr<VectorEntity>
host_vector(const DataTypeDescriptor& type, std::uint64_t size, DataComplexLayout complex_layout,
            HostMemoryOptions options = {}, const StorageInitialiser& initialiser = {});

/// Only interleaved complex matrices may be column major.
TESSALINE_API std::unique_ptr<MatrixEntity>
host_matrix(const DataTypeDescriptor& type, std::uint64_t rows, std::uint64_t cols,
            DataMatrixLayout layout, DataComplexLayout complex_layout,
            HostMemoryOptions options = {}, const StorageInitialiser& initialiser = {});

/// Column-major factors of a matrix of order `size` in a floating policy; the initialiser fills the
/// factors only.
TESSALINE_API std::unique_ptr<LuDecompEntity> host_lu(const DataTypeDescriptor& type,
                                                      std::uint64_t size,
                                                      HostMemoryOptions options = {},
                                                      const StorageInitialiser& initialiser = {});

/// Eigenvalues and, in `layout`, eigenvectors of a matrix of order `size` in a complex policy.
TESSALINE_API std::unique_ptr<EigenValsEntity> host_eigen(const DataTypeDescriptor& type,
                                                          std::uint64_t size,
                                                          DataMatrixLayout layout,
                                                          HostMemoryOptions options = {});

} // namespace Tessaline::StorageFactory
