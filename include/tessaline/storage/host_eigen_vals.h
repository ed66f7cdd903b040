// SPDX-License-Identifier: Apache-2.0
#pragma once

// Eigenvalues and eigenvectors in pageable host memory.

#include "tessaline/storage/entity_generator.h"
#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/structured_storage.h"

namespace Tessaline {

namespace EntityNames {
inline constexpr char HostEigenVals[] = "HostEigenVals";
}

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API HostEigenVals final
    : public DenseStorageDetail::EigenValsBuffers<EntityNames::HostEigenVals, HostBuffer<Stored>> {
  public:
    using HostEigenVals::EigenValsBuffers::EigenValsBuffers;

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
        // And here the buffers are asked before they are moved.
        : HostEigenVals::EigenValsBuffers{
              EigenValsDescriptor(
                  values.size(),
                  host_buffers_topology(DataLocation::pageable_host, options, values, vectors),
                  NumericPolicy<Stored, Compute>::type(), DataVectorFormat::dense, layout,
                  DataComplexLayout::interleaved),
              std::move(values), std::move(vectors)} {}
};

TESSALINE_DECLARE_ENTITY(interleaved, HostEigenVals)

} // namespace Tessaline
