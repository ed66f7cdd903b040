/* SPDX-License-Identifier: Apache-2.0 */

/* A plugin whose one symbol resolves to null. */

typedef void function(void);

static function* resolve(void) {
    return 0;
}

__attribute__((visibility("default"))) function tessaline_plugin_init
    __attribute__((ifunc("resolve")));
