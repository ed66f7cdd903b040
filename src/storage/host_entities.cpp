// SPDX-License-Identifier: Apache-2.0
// The instantiations of all host entities.
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/borrowed_host_entities.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_lu_decomp.h"

#include <stdexcept>

namespace Tessaline {

void BorrowedBufferDetail::fail_read_only() {
    throw std::logic_error("BorrowedBuffer - borrowed storage is read-only");
}

TESSALINE_HOST_ENTITIES(TESSALINE_INSTANTIATE_ENTITIES)
TESSALINE_BORROWED_HOST_ENTITIES(TESSALINE_INSTANTIATE_ENTITIES)
TESSALINE_INSTANTIATE_ENTITIES(factors, DenseHostLUDecompColMajor)
TESSALINE_INSTANTIATE_ENTITIES(interleaved, HostEigenVals)

} // namespace Tessaline
