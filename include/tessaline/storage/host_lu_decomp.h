// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factors, pivots and swap count in pageable host memory.

#include "tessaline/storage/entity_generator.h"
#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/structured_storage.h"

namespace Tessaline {

namespace EntityNames {
inline constexpr char DenseHostLUDecompColMajor[] = "DenseHostLUDecompColMajor";
}

/// Starts with the swap count 0.
template <BufferElement Pivot, BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostLUDecompColMajor final
    : public DenseStorageDetail::LuDecompBuffers<EntityNames::DenseHostLUDecompColMajor,
                                                 HostBuffer<Pivot>, HostBuffer<Stored>> {
  public:
    using DenseHostLUDecompColMajor::LuDecompBuffers::LuDecompBuffers;
};

TESSALINE_DECLARE_ENTITY(factors, DenseHostLUDecompColMajor)

} // namespace Tessaline
