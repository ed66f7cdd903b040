// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which combinations of scalar category, operand kind and layouts may exist as dense storage, and
// which of them can be pinned or moved between host and device. All are judgements over keys: they
// need no device.

#include "tessaline/catalogue/backend_key.h"

namespace Tessaline {

/// The rule of dense storage, whatever the location. Raises std::invalid_argument for an unknown
/// storage type.
TESSALINE_API bool dense_storage_contract(const BackendOperandKey& key);

namespace StorageFactory {

/// Whether page-locked host storage of the key has a class.
TESSALINE_API bool supports_pinned_storage(const BackendOperandKey& key);

/// Whether device storage of the key has a class that transfers serve.
TESSALINE_API bool supports_device_transfer(const BackendOperandKey& key);

/// Whether a host operand can serve an implementation that takes `device`, as an input copied there
/// or as an output copied back. Interleaved matrices may change to column major on the way.
TESSALINE_API bool supports_host_transfer(const BackendOperandKey& source,
                                          const BackendOperandKey& device, bool input);

} // namespace StorageFactory

} // namespace Tessaline
