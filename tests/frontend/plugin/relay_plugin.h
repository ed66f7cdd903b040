/* SPDX-License-Identifier: Apache-2.0 */
#ifndef RELAY_PLUGIN_H
#define RELAY_PLUGIN_H

/* The plugin of the tests: the test program says what its initialisation does. */

#include <tessaline/plugin.h>

/* The environment variable that holds the address of a RelayScript. */
#define RELAY_VARIABLE "TESSALINE_TEST_RELAY"

typedef struct RelayScript {
    tessaline_plugin_init_fn init;  /* runs as the plugin's initialisation */
    tessaline_shutdown_fn shutdown; /* the library's own: counts up the int that it is given */
    tessaline_kernel_fn negate;     /* the library's own: the negated float vector */
} RelayScript;

#endif
