// SPDX-License-Identifier: Apache-2.0
#pragma once

// All that a program needs that runs operations: operands and their elements, bindings, contexts,
// executors, the ids of the built-in operations, and the errors. Authors of operations and kernels
// include the headers of the folders beside this one, plugins in C tessaline/plugin.h alone.

#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/frontend/operation_bindings.h"
#include "tessaline/frontend/tessaline_context_builder.h"
#include "tessaline/frontend/tessaline_executor.h"
