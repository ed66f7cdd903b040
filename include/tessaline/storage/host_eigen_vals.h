// SPDX-License-Identifier: Apache-2.0
#pragma once

// Eigenvalues and eigenvectors in pageable host memory.

#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/structured_storage.h"

namespace Tessaline {

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API HostEigenVals final
    : public DenseStorageDetail::EigenValsBuffers<HostBuffer<Stored>> {
  public:
    /// Takes the buffers over. Raises std::invalid_argument when their sizes are not the
    /// descriptor's order and its square.
    HostEigenVals(EigenValsDescriptor descriptor, HostBuffer<Stored> values,
                  HostBuffer<Stored> vectors)
        : HostEigenVals::EigenValsBuffers("HostEigenVals", std::move(descriptor), std::move(values),
                                          std::move(vectors)) {}

    /// Zeros, for a matrix of order `size`. Raises as HostBuffer does.
    explicit HostEigenVals(std::uint64_t size,
                           DataMatrixLayout layout = DataMatrixLayout::column_major,
                           HostMemoryOptions options = {})
        // Braces keep the order: a size too large must fail before anything is allocated.
        : HostEigenVals{HostBuffer<Stored>(checked_element_count(size, size), options),
                        HostBuffer<Stored>(size, options), layout, options} {}

  private:
    HostEigenVals(HostBuffer<Stored>&& vectors, HostBuffer<Stored>&& values,
                  DataMatrixLayout layout, HostMemoryOptions options)
        : HostEigenVals::EigenValsBuffers(
              "HostEigenVals",
              EigenValsDescriptor(
                  values.size(),
                  host_buffers_topology(DataLocation::pageable_host, options, values, vectors),
                  NumericPolicy<Stored, Compute>::type(), DataVectorFormat::dense, layout,
                  DataComplexLayout::interleaved),
              std::move(values), std::move(vectors)) {}
};

#define TESSALINE_HOST_EIGEN_VALS_complex(PREFIX, Stored, Compute)                                 \
    PREFIX template class HostEigenVals<Stored, Compute>;
#define TESSALINE_HOST_EIGEN_VALS_floating(PREFIX, Stored, Compute)
#define TESSALINE_HOST_EIGEN_VALS_integer(PREFIX, Stored, Compute)

#define TESSALINE_DECLARE_HOST_EIGEN_VALS(category, Stored, Compute)                               \
    TESSALINE_HOST_EIGEN_VALS_##category(extern, Stored, Compute)
TESSALINE_COMPILED_POLICIES(TESSALINE_DECLARE_HOST_EIGEN_VALS)
#undef TESSALINE_DECLARE_HOST_EIGEN_VALS

} // namespace Tessaline
