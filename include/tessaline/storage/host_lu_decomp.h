// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factors, pivots and swap count in pageable host memory.

#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/structured_storage.h"

namespace Tessaline {

/// Starts with the swap count 0. The constructor takes the buffers over and raises
/// std::invalid_argument when their sizes are not the descriptor's order and its square.
template <BufferElement Pivot, BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostLUDecompColMajor final
    : public DenseStorageDetail::LuDecompBuffers<HostBuffer<Pivot>, HostBuffer<Stored>> {
  public:
    DenseHostLUDecompColMajor(LuDecompDescriptor descriptor, HostBuffer<Pivot> pivots,
                              HostBuffer<Stored> factors)
        : DenseHostLUDecompColMajor::LuDecompBuffers("DenseHostLUDecompColMajor",
                                                     std::move(descriptor), std::move(pivots),
                                                     std::move(factors)) {}
};

#define TESSALINE_HOST_LU_DECOMP_floating(PREFIX, Stored, Compute)                                 \
    PREFIX template class DenseHostLUDecompColMajor<long, Stored, Compute>;
#define TESSALINE_HOST_LU_DECOMP_complex TESSALINE_HOST_LU_DECOMP_floating
#define TESSALINE_HOST_LU_DECOMP_integer(PREFIX, Stored, Compute)

#define TESSALINE_DECLARE_HOST_LU_DECOMP(category, Stored, Compute)                                \
    TESSALINE_HOST_LU_DECOMP_##category(extern, Stored, Compute)
TESSALINE_COMPILED_POLICIES(TESSALINE_DECLARE_HOST_LU_DECOMP)
#undef TESSALINE_DECLARE_HOST_LU_DECOMP

} // namespace Tessaline
