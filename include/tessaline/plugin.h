/* SPDX-License-Identifier: Apache-2.0 */
#ifndef TESSALINE_PLUGIN_H
#define TESSALINE_PLUGIN_H

/*
 * The interface between the runtime and native plugins, revision 1: plain C, without any other
 * header of Tessaline. A plugin is a shared library that exports `tessaline_plugin_init` and
 * registers kernels from it. docs/plugins.md shows how to write one.
 *
 * Every record starts with its size in bytes. Who fills a record sets `struct_size` to the size
 * that it was compiled with; a reader refuses a record that is too small and ignores what it does
 * not know. No function of a plugin may let an exception out.
 */

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* clang-format off */
/* NOLINTBEGIN(readability-identifier-naming): names of C, not of the C++ code around it */

#define TESSALINE_PLUGIN_ABI_REVISION 1U

#define TESSALINE_PLUGIN_EXPORT __attribute__((visibility("default")))

/* What a function returns. Any other value counts as a failure, too. */
typedef int32_t tessaline_status;
enum {
    TESSALINE_STATUS_OK = 0,
    TESSALINE_STATUS_INVALID_ARGUMENT = 1,
    TESSALINE_STATUS_UNSUPPORTED = 2,
    TESSALINE_STATUS_RUNTIME_ERROR = 3,
    TESSALINE_STATUS_INTERNAL_ERROR = 4
};

/* Values of `backend`. In all enumerations that start at 1, 0 means absent or invalid. */
enum {
    TESSALINE_BACKEND_CPU_SCALAR = 1,
    TESSALINE_BACKEND_CPU_SIMD = 2,
    TESSALINE_BACKEND_CUDA = 3
};

/* Values of `role`: inputs count from 0, outputs from TESSALINE_ROLE_OUTPUT(0). */
#define TESSALINE_ROLE_INPUT(index) ((uint32_t)(index))
#define TESSALINE_ROLE_OUTPUT(index) (UINT32_C(0x80000000) | (uint32_t)(index))

/* Values of `access`. A read_write operand keeps its content on the way in. */
enum {
    TESSALINE_ACCESS_READ = 1,
    TESSALINE_ACCESS_WRITE = 2,
    TESSALINE_ACCESS_READ_WRITE = 3
};

/* Values of `kind`. */
enum {
    TESSALINE_OPERAND_SCALAR = 1,
    TESSALINE_OPERAND_VECTOR = 2,
    TESSALINE_OPERAND_MATRIX = 3,
    TESSALINE_OPERAND_LU = 4,
    TESSALINE_OPERAND_EIGEN = 5
};

/* Values of `location`. */
enum {
    TESSALINE_LOCATION_PAGEABLE_HOST = 1,
    TESSALINE_LOCATION_PINNED_HOST = 2,
    TESSALINE_LOCATION_CUDA_DEVICE = 3
};

/* Values of `storage`, `compute` and `element_type`. 7 is not assigned. */
enum {
    TESSALINE_SCALAR_FLOAT32 = 1,
    TESSALINE_SCALAR_FLOAT64 = 2,
    TESSALINE_SCALAR_INT32 = 3,
    TESSALINE_SCALAR_INT64 = 4,
    TESSALINE_SCALAR_COMPLEX64 = 5,
    TESSALINE_SCALAR_COMPLEX128 = 6,
    TESSALINE_SCALAR_COMPLEX_INT32 = 8,
    TESSALINE_SCALAR_COMPLEX_INT64 = 9,
    TESSALINE_SCALAR_FLOAT16 = 10,
    TESSALINE_SCALAR_UINT32 = 11,
    TESSALINE_SCALAR_UINT64 = 12,
    TESSALINE_SCALAR_BFLOAT16 = 13,
    TESSALINE_SCALAR_COMPLEX32 = 14
};

/* Values of `complex_layout`: real elements have none, and so have scalars of any type. Split
 * elements lie as real and imaginary parts in two buffers, interleaved ones in one. */
enum {
    TESSALINE_COMPLEX_LAYOUT_NONE = 1,
    TESSALINE_COMPLEX_LAYOUT_SPLIT = 2,
    TESSALINE_COMPLEX_LAYOUT_INTERLEAVED = 3
};

/* Values of `matrix_layout`: scalars and vectors have none, all other kinds have one. */
enum {
    TESSALINE_MATRIX_LAYOUT_NONE = 0,
    TESSALINE_MATRIX_LAYOUT_ROW_MAJOR = 1,
    TESSALINE_MATRIX_LAYOUT_COLUMN_MAJOR = 2
};

/* What a buffer is within its operand. */
enum {
    TESSALINE_BUFFER_DATA = 1,
    TESSALINE_BUFFER_REAL = 2,
    TESSALINE_BUFFER_IMAGINARY = 3,
    TESSALINE_BUFFER_LU_PIVOTS = 4,
    TESSALINE_BUFFER_LU_FACTORS = 5,
    TESSALINE_BUFFER_LU_SWAP_COUNT = 6,
    TESSALINE_BUFFER_EIGENVALUES = 7,
    TESSALINE_BUFFER_EIGENVECTORS = 8
};

/* A text, passed by value. It need not be terminated; `data` may be null if `size` is 0. */
typedef struct tessaline_string {
    const char* data;
    uint64_t size;
} tessaline_string;

/* Reports why a call is about to fail. The text is copied. */
typedef void (*tessaline_error_fn)(void* user_data, tessaline_status status,
                                   tessaline_string message);

/* Given to each call that can fail; valid during that call. The last report counts. */
typedef struct tessaline_error_sink {
    uint32_t struct_size;
    void* user_data;           /* first argument of `report` */
    tessaline_error_fn report;
} tessaline_error_sink;

/* ---- What a plugin declares ---- */

/* A dotted lower-case name, opened by the plugin's id and ".", and a major version from 1. */
typedef struct tessaline_operation_id {
    uint32_t struct_size;
    tessaline_string name;
    uint32_t major;
} tessaline_operation_id;

/* One operand of a kernel: exactly which data it takes. In an array they lie 36 bytes apart. */
typedef struct tessaline_backend_operand {
    uint32_t struct_size;
    uint32_t role;
    uint32_t access;
    uint32_t kind;
    uint32_t location;
    uint32_t storage;        /* the element as it lies in memory */
    uint32_t complex_layout;
    uint32_t matrix_layout;
    uint32_t compute;        /* the type that the kernel computes in */
} tessaline_backend_operand;

/* ---- What a kernel gets ---- */

typedef struct tessaline_buffer_view {
    uint32_t struct_size;
    uint32_t role;
    const void* data;       /* null only if `count` is 0 */
    void* mutable_data;     /* null for an operand that is only read */
    uint64_t count;         /* number of elements */
    uint64_t element_size;  /* bytes of one */
    uint32_t element_type;  /* a scalar type; of a real or imaginary buffer that of one part */
} tessaline_buffer_view;

/*
 * One operand of a call. Dimensions count elements; the lines of a matrix follow each other without
 * gaps. The buffers, in this order:
 *   real and interleaved operands        data
 *   complex scalars and split operands   real, imaginary
 *   LU decompositions                    pivots (int64), factors, swap count (one uint64)
 *   eigenvalue sets                      eigenvalues, eigenvectors
 */
typedef struct tessaline_operand_view {
    uint32_t struct_size;
    uint32_t buffer_view_stride_hint; /* to be ignored; buffers lie 48 bytes apart */
    uint32_t role;
    uint32_t access;
    uint32_t kind;
    uint32_t location;
    uint32_t storage;
    uint32_t complex_layout;
    uint32_t matrix_layout;
    uint32_t compute;
    uint64_t rows;                    /* vector size, matrix rows, LU or eigen order; else 1 */
    uint64_t cols;                    /* matrix columns, LU or eigen order; else 1 */
    const tessaline_buffer_view* buffers;
    uint64_t buffer_count;
} tessaline_operand_view;

/* One call. The record and all that it leads to are valid during the call only. No output shares
 * memory with another operand. */
typedef struct tessaline_kernel_invocation {
    uint32_t struct_size;
    uint32_t backend;
    int32_t cuda_device;                    /* -1 but for a CUDA kernel */
    void* cuda_stream;                      /* a CUDA kernel queues its work here; else null */
    const tessaline_operand_view* operands; /* in the order of the registration */
    uint64_t operand_count;
} tessaline_kernel_invocation;

/* May run on several threads at once. `user_data` is that of the registration. */
typedef tessaline_status (*tessaline_kernel_fn)(void* user_data,
                                                const tessaline_kernel_invocation* invocation,
                                                const tessaline_error_sink* sink);

/* ---- Registration ---- */

/*
 * One kernel. All inputs come first, in ascending role and with access read, then at least one
 * output, in ascending role and with another access. Kernels of one operation agree in number,
 * role, access and kind of their operands.
 */
typedef struct tessaline_kernel_spec {
    uint32_t struct_size;
    tessaline_operation_id operation;
    uint32_t backend;
    const tessaline_backend_operand* operands;
    uint64_t operand_count;
    tessaline_kernel_fn callback;
    void* user_data;
} tessaline_kernel_spec;

/* Everything is copied but `callback` and `user_data`. A failure also fails the loading. */
typedef tessaline_status (*tessaline_register_kernel_fn)(void* context,
                                                         const tessaline_kernel_spec* spec,
                                                         const tessaline_error_sink* sink);

/* Runs once, after the last call of a kernel and before the library is closed. */
typedef void (*tessaline_shutdown_fn)(void* user_data);

/* ---- Loading ---- */

/* What the runtime offers during `tessaline_plugin_init`, and not longer. */
typedef struct tessaline_host {
    uint32_t struct_size;
    uint32_t abi_revision;
    void* context;                                /* first argument of `register_kernel` */
    tessaline_register_kernel_fn register_kernel;
} tessaline_host;

/* Filled by the plugin. All fields are 0 before but `struct_size`, the room that the runtime offers:
 * a plugin that knows a longer record writes no further. */
typedef struct tessaline_plugin_metadata {
    uint32_t struct_size;
    uint32_t abi_revision;          /* TESSALINE_PLUGIN_ABI_REVISION */
    tessaline_string plugin_id;     /* also the namespace of the plugin's operations */
    tessaline_string version;       /* not empty */
    int32_t cuda_runtime_min;       /* as cudaRuntimeGetVersion numbers it; 0 for no limit */
    int32_t cuda_runtime_max;       /* both 0 in a plugin without CUDA kernels */
    void* shutdown_user_data;
    tessaline_shutdown_fn shutdown; /* may be null */
} tessaline_plugin_metadata;

typedef tessaline_status (*tessaline_plugin_init_fn)(const tessaline_host* host,
                                                     tessaline_plugin_metadata* metadata,
                                                     const tessaline_error_sink* sink);

/* The one function that a plugin exports. */
TESSALINE_PLUGIN_EXPORT tessaline_status tessaline_plugin_init(const tessaline_host* host,
                                                               tessaline_plugin_metadata* metadata,
                                                               const tessaline_error_sink* sink);

/* ---- Conveniences ---- */

/* A terminated text. It is not copied. */
static inline tessaline_string tessaline_string_from(const char* text) {
    tessaline_string result;
    result.data = text;
    result.size = strlen(text);
    return result;
}

/* Reports `text` and returns `status`: return tessaline_fail(sink, ...); */
static inline tessaline_status tessaline_fail(const tessaline_error_sink* sink,
                                              tessaline_status status, const char* text) {
    sink->report(sink->user_data, status, tessaline_string_from(text));
    return status;
}

/* ---- The layout is part of the interface ---- */

#define TESSALINE_FREEZE(name, holds) typedef char tessaline_frozen_##name[(holds) ? 1 : -1]
#define TESSALINE_FREEZE_SIZE(type, bytes) TESSALINE_FREEZE(type, sizeof(type) == (bytes))
#define TESSALINE_FREEZE_FIELD(type, field, offset)                                                \
    TESSALINE_FREEZE(type##_##field, offsetof(type, field) == (offset))

TESSALINE_FREEZE_SIZE(tessaline_string, 16);
TESSALINE_FREEZE_FIELD(tessaline_string, data, 0);
TESSALINE_FREEZE_FIELD(tessaline_string, size, 8);

TESSALINE_FREEZE_SIZE(tessaline_error_sink, 24);
TESSALINE_FREEZE_FIELD(tessaline_error_sink, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_error_sink, user_data, 8);
TESSALINE_FREEZE_FIELD(tessaline_error_sink, report, 16);

TESSALINE_FREEZE_SIZE(tessaline_operation_id, 32);
TESSALINE_FREEZE_FIELD(tessaline_operation_id, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_operation_id, name, 8);
TESSALINE_FREEZE_FIELD(tessaline_operation_id, major, 24);

TESSALINE_FREEZE_SIZE(tessaline_backend_operand, 36);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, role, 4);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, access, 8);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, kind, 12);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, location, 16);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, storage, 20);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, complex_layout, 24);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, matrix_layout, 28);
TESSALINE_FREEZE_FIELD(tessaline_backend_operand, compute, 32);

TESSALINE_FREEZE_SIZE(tessaline_buffer_view, 48);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, role, 4);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, data, 8);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, mutable_data, 16);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, count, 24);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, element_size, 32);
TESSALINE_FREEZE_FIELD(tessaline_buffer_view, element_type, 40);

TESSALINE_FREEZE_SIZE(tessaline_operand_view, 72);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, buffer_view_stride_hint, 4);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, role, 8);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, access, 12);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, kind, 16);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, location, 20);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, storage, 24);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, complex_layout, 28);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, matrix_layout, 32);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, compute, 36);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, rows, 40);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, cols, 48);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, buffers, 56);
TESSALINE_FREEZE_FIELD(tessaline_operand_view, buffer_count, 64);

TESSALINE_FREEZE_SIZE(tessaline_kernel_invocation, 40);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, backend, 4);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, cuda_device, 8);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, cuda_stream, 16);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, operands, 24);
TESSALINE_FREEZE_FIELD(tessaline_kernel_invocation, operand_count, 32);

TESSALINE_FREEZE_SIZE(tessaline_kernel_spec, 80);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, operation, 8);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, backend, 40);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, operands, 48);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, operand_count, 56);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, callback, 64);
TESSALINE_FREEZE_FIELD(tessaline_kernel_spec, user_data, 72);

TESSALINE_FREEZE_SIZE(tessaline_host, 24);
TESSALINE_FREEZE_FIELD(tessaline_host, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_host, abi_revision, 4);
TESSALINE_FREEZE_FIELD(tessaline_host, context, 8);
TESSALINE_FREEZE_FIELD(tessaline_host, register_kernel, 16);

TESSALINE_FREEZE_SIZE(tessaline_plugin_metadata, 64);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, struct_size, 0);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, abi_revision, 4);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, plugin_id, 8);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, version, 24);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, cuda_runtime_min, 40);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, cuda_runtime_max, 44);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, shutdown_user_data, 48);
TESSALINE_FREEZE_FIELD(tessaline_plugin_metadata, shutdown, 56);

#undef TESSALINE_FREEZE_FIELD
#undef TESSALINE_FREEZE_SIZE
#undef TESSALINE_FREEZE

/* NOLINTEND(readability-identifier-naming) */
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif
