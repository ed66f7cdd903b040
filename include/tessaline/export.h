// SPDX-License-Identifier: Apache-2.0
#pragma once

// TESSALINE_API marks what the shared object exports. Everything else is compiled with hidden
// visibility.

#define TESSALINE_API __attribute__((visibility("default")))
