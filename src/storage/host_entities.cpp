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

#define TESSALINE_DEFINE_HOST_ENTITIES(category, Stored, Compute)                                  \
    TESSALINE_HOST_ENTITIES_##category(, Stored, Compute)                                          \
        TESSALINE_HOST_LU_DECOMP_##category(, Stored, Compute)                                     \
            TESSALINE_HOST_EIGEN_VALS_##category(, Stored, Compute)                                \
                TESSALINE_BORROWED_HOST_ENTITIES_##category(, Stored, Compute)
TESSALINE_COMPILED_POLICIES(TESSALINE_DEFINE_HOST_ENTITIES)
#undef TESSALINE_DEFINE_HOST_ENTITIES

} // namespace Tessaline
