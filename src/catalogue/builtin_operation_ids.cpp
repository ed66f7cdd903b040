// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/builtin_operation_ids.h"

namespace Tessaline::BuiltinOperations {

// 101 is the first priority that is open to programs; objects without one come after all that have.
#define TESSALINE_DEFINE_OPERATION_ID(name, index)                                                 \
    [[gnu::init_priority(101)]] const OperationId name("tessaline." #name, 1);
TESSALINE_BUILTIN_OPERATIONS(TESSALINE_DEFINE_OPERATION_ID)
#undef TESSALINE_DEFINE_OPERATION_ID

} // namespace Tessaline::BuiltinOperations
