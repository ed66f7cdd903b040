// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_factory.h"

#include "storage/dense_factory.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/host_lu_decomp.h"

namespace Tessaline {

namespace {

struct PageableHost {
    static constexpr DataLocation location = DataLocation::pageable_host;
    static constexpr const char* label = "host";

    template <typename T>
    using Buffer = HostBuffer<T>;
    template <typename Stored, typename Compute>
    using RealScalar = BoundRealScalarEntity<Stored, Compute>;
    template <typename Stored, typename Compute>
    using SplitScalar = BoundComplexScalarEntity<Stored, Compute>;
    template <typename Stored, typename Compute>
    using RealVector = DenseHostRealVector<Stored, Compute>;
    template <typename Stored, typename Compute>
    using SplitVector = DenseHostComplexSplitVector<Stored, Compute>;
    template <typename Stored, typename Compute>
    using InterleavedVector = DenseHostComplexIntlvVector<Stored, Compute>;
    template <typename Stored, typename Compute>
    using RealMatrix = DenseHostRealMatrixRowMajor<Stored, Compute>;
    template <typename Stored, typename Compute>
    using SplitMatrix = DenseHostComplexSplitMatrixRowMajor<Stored, Compute>;
    template <typename Stored, typename Compute>
    using InterleavedMatrix = DenseHostComplexIntlvMatrixRowMajor<Stored, Compute>;
    template <typename Stored, typename Compute>
    using InterleavedMatrixColMajor = DenseHostComplexIntlvMatrixColMajor<Stored, Compute>;
    template <typename Stored, typename Compute>
    using LuDecomp = DenseHostLUDecompColMajor<long, Stored, Compute>;
    template <typename Stored, typename Compute>
    using EigenVals = HostEigenVals<Stored, Compute>;
};

} // namespace

std::unique_ptr<ScalarEntity> StorageFactory::host_scalar(const DataTypeDescriptor& type,
                                                          HostMemoryOptions options,
                                                          const StorageInitialiser& initialiser) {
    return DenseFactory::scalar<PageableHost>(type, options, initialiser);
}

std::unique_ptr<VectorEntity> StorageFactory::host_vector(const DataTypeDescriptor& type,
                                                          std::uint64_t size,
                                                          DataComplexLayout complex_layout,
                                                          HostMemoryOptions options,
                                                          const StorageInitialiser& initialiser) {
    return DenseFactory::vector<PageableHost>(type, size, complex_layout, options, initialiser);
}

std::unique_ptr<MatrixEntity>
StorageFactory::host_matrix(const DataTypeDescriptor& type, std::uint64_t rows, std::uint64_t cols,
                            DataMatrixLayout layout, DataComplexLayout complex_layout,
                            HostMemoryOptions options, const StorageInitialiser& initialiser) {
    return DenseFactory::matrix<PageableHost>(type, rows, cols, layout, complex_layout, options,
                                              initialiser);
}

std::unique_ptr<LuDecompEntity> StorageFactory::host_lu(const DataTypeDescriptor& type,
                                                        std::uint64_t size,
                                                        HostMemoryOptions options,
                                                        const StorageInitialiser& initialiser) {
    return DenseFactory::lu<PageableHost>(type, size, options, initialiser);
}

std::unique_ptr<EigenValsEntity> StorageFactory::host_eigen(const DataTypeDescriptor& type,
                                                            std::uint64_t size,
                                                            DataMatrixLayout layout,
                                                            HostMemoryOptions options) {
    return DenseFactory::eigen<PageableHost>(type, size, layout, options);
}

} // namespace Tessaline
